// Unilateral and geometrically non-linear discrete elements: slave nodes against a
// rigid plane, sphere or cylinder carried by a master node, stops on the motion of
// nodes, and chains of nodes that carry one tension. They hand out a tangent and a
// residual at the current state and keep no status between iterations, so they
// are meant for the Newton solver, which alone decides what is accepted.
#pragma once

#include <limits>

#include "kelt/discrete/links.h"
#include "kelt/laws/law_spring.h"

namespace kelt::core {

// The regularised contact law at the gap g: the coefficient c of the force g c,
// its derivative c1 in g and the energy e, whose derivative is g c. It acts for
// p g > 0: with p the largest finite double (or its negative) it is a sharp
// switch, otherwise a smooth rise that reaches half its value at |g| = 1 / |p|.
struct contact_law_value {
    double c = 0.0, c1 = 0.0, e = 0.0;
};
contact_law_value contact_law(double p, double g) noexcept;

// What the three rigid surfaces share: the slaves, each an independent block of
// six DOFs (its three displacements, then the master's), and a stiffness that is
// the smaller of K_max and the pass's displacement penalty.
class contact_rigid : public numerical_model_stiff_simple {
public:
    using numerical_model_stiff_simple::numerical_model_stiff_simple;

    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& set) const override;
    // A penalty is not a stiffness of the model: it must not raise the penalty.
    double get_stiffness_scale(field_tag) const override { return 0.0; }
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;

    dense1D<unsigned, 8> nodes; // the slaves, sorted, without repeats or the master
    unsigned master = ground_node;
    // The law acts on penetration (g < 0) for a positive sharpness; a negative one
    // keeps the slaves on the inner side (a bore).
    double sharpness = std::numeric_limits<double>::max();
    double K_max = std::numeric_limits<double>::max();
    bool no_pull = true;

protected:
    [[nodiscard]] error_type set_nodes(const dense1D<unsigned, 8>& slaves, unsigned master_);
    // From the relative position d of a slave: the unit normal n, the gap g, and
    // the distance r about which the normal turns (0 for a plane).
    virtual void surface(const double (&d)[3], double (&n)[3], double& g, double& r) const noexcept = 0;
    // The plane in which the normal turns: I - n n', and for a cylinder without
    // its axis.
    virtual void turning_plane(const double (&n)[3], double (&P)[3][3]) const noexcept;
};

// A plane n . (x_slave - x_master) + offset = 0, the slaves kept on its positive side.
class contact_plane : public contact_rigid {
public:
    using contact_rigid::contact_rigid;
    // invalid_data_error for a zero normal.
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& slaves, unsigned master_,
                                  const vector_fixed<double, 3>& normal_, double offset_, double sharpness_,
                                  double K_max_);

    double normal[3] = {0.0, 0.0, 1.0};
    double offset = 0.0;

protected:
    void surface(const double (&d)[3], double (&n)[3], double& g, double& r) const noexcept override;
};

// A sphere of centre the master.
class contact_sphere : public contact_rigid {
public:
    using contact_rigid::contact_rigid;
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& slaves, unsigned master_, double radius_,
                                  double sharpness_, double K_max_, bool no_pull_);

    double radius = 0.0;

protected:
    void surface(const double (&d)[3], double (&n)[3], double& g, double& r) const noexcept override;
};

// A cylinder of axis through the master.
class contact_cylinder : public contact_rigid {
public:
    using contact_rigid::contact_rigid;
    // invalid_data_error for a zero axis.
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& slaves, unsigned master_,
                                  const vector_fixed<double, 3>& axis_, double radius_, double sharpness_,
                                  double K_max_, bool no_pull_);

    double axis[3] = {0.0, 0.0, 1.0};
    double radius = 0.0;

protected:
    void surface(const double (&d)[3], double (&n)[3], double& g, double& r) const noexcept override;
    void turning_plane(const double (&n)[3], double (&P)[3][3]) const noexcept override;
};

// Stops on the values of a field at nodes: s = direction . u - limit, with the
// force the positive part of s times the field's penalty. The stored direction
// is the opposite of the one given, so that d . u is kept at or above -limit.
class block_stops : public numerical_model_stiff_simple {
public:
    using numerical_model_stiff_simple::numerical_model_stiff_simple;

    // invalid_data_error for a zero direction or an unknown field.
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes_, field_tag field_,
                                  const vector_fixed<double, 3>& direction_, double limit_);
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& set) const override;
    double get_stiffness_scale(field_tag) const override { return 0.0; }
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;

    dense1D<unsigned, 8> nodes;
    field_tag field = displacement_tag;
    double direction[3] = {0.0, 0.0, 0.0};
    double limit = 0.0;
    Ptr<law_scalar> law;
};

// A chain of nodes carrying one tension T along its whole path, as over pulleys:
// the strain is that of the path's length, and each inner node takes the
// difference of its two segments' directions.
class cable : public law_state_element {
public:
    using law_state_element::law_state_element;

    // invalid_data_error for a law that is not a spring law.
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes_, const Ptr<law_scalar>& law_);
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& set) const override;
    double get_stiffness_scale(field_tag field) const override;
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;
    [[nodiscard]] error_type evaluate(element_work_type& w) const;

    dense1D<unsigned, 8> nodes;
};

// A cable whose stiffness is the displacement penalty: inextensible, and with
// tension_only slack (no force, no stiffness) when its path is shortened.
class cable_rigid : public cable {
public:
    using cable::cable;

    // p1 and p2 are the law's thermal expansion and initial strain.
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes_, bool tension_only_, double p1_, double p2_);
    double get_stiffness_scale(field_tag) const override { return 0.0; }
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;

    bool tension_only = true;
    double p1 = 0.0;
    double p2 = 0.0;
};

} // namespace kelt::core
