// Public handles on the constraints: links, rigid bodies and diaphragms. The
// library eliminates no DOF: each constraint is a stiff spring whose stiffness is
// the penalty of its field, a multiple of the model's largest stiffness (the
// context's raw_penalty_factor, at least min_penalty_factor), so that it holds to
// about the ratio of that stiffness to the penalty:
//
//   fem::rigid_diaphragm_lin floor(ctx);
//   floor.init(floor_nodes, 2);               // first node the master, normal z
//   all.insert(floor.get_ID());
//
// A link on the temperature field has no penalty and adds nothing. A rigid body
// whose nodes are not all columns of the positions is refused at the run with
// invalid_data_error (-101).
#pragma once

#include "kelt/fem/discrete_elements.h"
#include "kelt/fem/numerical_models.h"

namespace kelt::fem {

// The nodes' values of a field tied: u(node2) = u(node1).
class link : public discrete_element {
public:
    link() = default;
    explicit link(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field);
    [[nodiscard]] error_type get_params(unsigned& node1, unsigned& node2, field_tag& field) const;
};

// One-sided: with gap > 0 the distance of the nodes is kept from falling below
// gap, with gap <= 0 from passing -gap. While active the force is the penalty
// times the whole relative vector.
class link_gnl : public discrete_element {
public:
    link_gnl() = default;
    explicit link_gnl(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, double gap);
    [[nodiscard]] error_type get_params(unsigned& node1, unsigned& node2, field_tag& field, double& gap) const;
};

// The linear constraint sum coefs[i] u(DOFs[i]) + c0 = 0. Like initial stresses,
// c0 is a force of the element at rest: Newton always sees it, a linear static
// run when the load case has a stress manager (a zero temperature will do).
class link_directional : public discrete_element {
public:
    link_directional() = default;
    explicit link_directional(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs, double c0);
    // c1 dir . u(node1) + c2 dir . u(node2) + c0 = 0, dir normalised.
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                  double c1, double c2, double c0);
    // The list as built: distinct DOFs with their coefficients.
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs, double& c0) const;
};

// One-sided linear constraint: s = coefs . u, with s + gap kept non-negative
// (side true) or non-positive (side false).
class link_directional_gnl : public discrete_element {
public:
    link_directional_gnl() = default;
    explicit link_directional_gnl(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs, double gap,
                                  bool side);
    // s = dir . (u(node2) - u(node1)).
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                  double gap, bool side);
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs, double& gap,
                                        bool& side) const;
};

// The rotation of node1 about `axis` tied to the rotation of the segment
// node1-node2 about it; invalid_data_error for nodes outside pos, a zero axis or
// coincident nodes.
class link_drill : public discrete_element {
public:
    link_drill() = default;
    explicit link_drill(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense2D<double>& pos, unsigned node1, unsigned node2,
                                  const vector_fixed<double, 3>& axis);
    // The constraint as built.
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs) const;
};

// The first node is the master, the others follow its small rigid motion:
// u_s = u_m + R_m x (x_s - x_m) and, with_rotations, R_s = R_m. A mask is a field
// tag (8 or 24) plus bit c for component c: 15 all translations, 31 all rotations.
// A slave far from the master gets the rotation penalty |r|² times the
// translation one when that is larger. Fewer than two nodes: an empty body.
class rigid_body_lin : public discrete_element {
public:
    rigid_body_lin() = default;
    explicit rigid_body_lin(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, bool with_rotations);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, unsigned first_mask, unsigned second_mask,
                                  bool with_rotations);
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& nodes, unsigned& first_mask, unsigned& second_mask,
                                        bool& with_rotations) const;
};

// A rigid body in the plane normal to axis normal_axis (0, 1, 2): the two in-plane
// translations and the rotation about the normal are tied, the rest left free.
class rigid_diaphragm_lin : public discrete_element {
public:
    rigid_diaphragm_lin() = default;
    explicit rigid_diaphragm_lin(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, unsigned normal_axis);
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& nodes, unsigned& normal_axis) const;
};

// The same bodies under finite rotations of the master: the slaves follow
// u_s = u_m + (R(R_m) - I) r with R the rotation tensor of the rotation vector R_m,
// for the Newton solver, whose tangent includes the turn of the arm.
class rigid_body_gnl : public rigid_body_lin {
public:
    rigid_body_gnl() = default;
    explicit rigid_body_gnl(context& ctx) { create(ctx); }
    void create(context& ctx);
};

class rigid_diaphragm_gnl : public rigid_diaphragm_lin {
public:
    rigid_diaphragm_gnl() = default;
    explicit rigid_diaphragm_gnl(context& ctx) { create(ctx); }
    void create(context& ctx);
};

// Rods that carry load on one side only, each column of the connectivity a
// two-node rod of axial stiffness k (a law_spring_nl of two rows): with side true
// they act in tension only, with side false in compression only. p1, p2, p3 are
// the law's value kept for the host, its thermal expansion and its initial
// strain. Their stiffness changes with the state: they are for the Newton solver
// (a linear solve sees a tie rod at zero strain as slack in tension).
class tie_rods : public numerical_model_stiff_lin {
public:
    explicit tie_rods(context& ctx) : numerical_model_stiff_lin(ctx), ctx_(&ctx) {}
    [[nodiscard]] error_type init(const dense2D<unsigned>& connectivity, double k, double p1, double p2, double p3,
                                  bool side);

private:
    context* ctx_;
};

} // namespace kelt::fem
