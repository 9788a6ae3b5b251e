// Constraints as stiff springs: links between DOFs and rigid bodies of a master
// node and its slaves. There is no elimination of DOFs anywhere in the library, so
// each constraint is a spring whose stiffness is the penalty of its field, read
// from the pass (a multiple of the model's own largest stiffness). The accuracy of
// a constraint is the ratio of that stiffness to the penalty.
#pragma once

#include "kelt/discrete/discrete_elements.h"
#include "kelt/laws/law_scalar_ep.h"

namespace kelt::core {

// The penalty of a constraint on a field: none for the temperature, which has no
// penalty of its own, so that such a link adds nothing.
double field_penalty(const element_work_type& w, field_tag field) noexcept;

// The law of constant value 1: the link's stiffness is then the penalty alone.
Ptr<law_scalar> unit_law();

// The one-sided table: stiffness `below` up to the breakpoint 0, `above` beyond.
Ptr<law_scalar> one_sided_law(double below, double above, double shift);

// A spring of unit law whose stiffness is the penalty of its field.
class link : public spring {
public:
    using spring::spring;
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field);
    // A penalty is not a stiffness of the model: it must not raise the penalty.
    double get_stiffness_scale(field_tag) const override { return 0.0; }
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;
};

// Keeps the distance of two nodes from falling below gap (gap > 0), or from
// passing -gap (gap <= 0). The law only switches the link: when active its force
// is the penalty times the whole relative vector, the gap not deducted.
class link_gnl : public link {
public:
    using link::link;
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, double gap);

    double gap = 0.0;
};

// The linear constraint coefs . u + c0 = 0, with the larger of the penalties of
// the fields in its list.
class link_directional : public spring_directional {
public:
    using spring_directional::spring_directional;
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs, double c0);
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                  double c1, double c2, double c0);
    double get_stiffness_scale(field_tag) const override { return 0.0; }
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;

protected:
    virtual double penalty(const element_work_type& w) const noexcept;
};

// One-sided: keeps coefs . u + gap non-negative (side true) or non-positive (side
// false); the force is the penalty times coefs . u + gap on the active side.
class link_directional_gnl : public link_directional {
public:
    using link_directional::link_directional;
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs, double gap,
                                  bool side);
    // The direction form: u(node2) - u(node1) along dir.
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                  double gap, bool side);

    double gap = 0.0;
    bool side = true;
};

// The rotation of node1 about an axis tied to that of the segment node1-node2.
class link_drill : public link_directional {
public:
    using link_directional::link_directional;
    [[nodiscard]] error_type init(const dense2D<double>& pos, unsigned node1, unsigned node2,
                                  const vector_fixed<double, 3>& axis);

protected:
    double penalty(const element_work_type& w) const noexcept override { return w.penalty_rotation; }
};

// A mask: the field tag in its upper bits, bit c of the low three for component c.
inline constexpr unsigned all_displacements = 15;
inline constexpr unsigned all_rotations = 31;

// A master node (the first) and slaves that follow its small rigid motion,
// U_s = U_m + R_m x r, and its rotation R_s = R_m when with_rotations is set. Each
// slave is an independent block, so the work stays linear in the slaves.
class rigid_body_st : public numerical_model_stiff_simple {
public:
    using numerical_model_stiff_simple::numerical_model_stiff_simple;

    // Fewer than two nodes leave the body empty: it does nothing.
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, unsigned first_mask, unsigned second_mask,
                                  bool with_rotations);
    // The in-plane translations and the rotation about the normal.
    [[nodiscard]] error_type init_diaphragm(const dense1D<unsigned, 8>& nodes, unsigned normal_axis);
    // The normal of a diaphragm's masks (3 when they are not a diaphragm's).
    unsigned normal_axis() const noexcept;
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& set) const override;
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;

    dense1D<unsigned, 8> nodes;
    unsigned first_mask = all_displacements;
    unsigned second_mask = all_rotations;
    bool with_rotations = true;

    // q = Q(t) r, what the master's rotation t adds to the arm r, with dq[c][j] =
    // dq_c / dt_j and d2q[c][j][k] its second derivatives. Small rotations: t x r.
    virtual void turned_arm(const double (&t)[3], const double (&r)[3], double (&q)[3], double (&dq)[3][3],
                            double (&d2q)[3][3][3]) const noexcept;

protected:
    // The components of each field that the masks select, as bits.
    unsigned displacement_bits() const noexcept;
    unsigned rotation_bits() const noexcept;
};

// The rigid body under finite rotations of its master: g_U = U_s - U_m - Q(R_m) r
// with Q = R(R_m) - I, and the consistent tangent with its geometric part.
class rigid_body_ft : public rigid_body_st {
public:
    using rigid_body_st::rigid_body_st;
    void turned_arm(const double (&t)[3], const double (&r)[3], double (&q)[3], double (&dq)[3][3],
                    double (&d2q)[3][3][3]) const noexcept override;
};

} // namespace kelt::core
