// Public handles on the unilateral and geometrically non-linear discrete
// elements: slave nodes against a rigid plane, sphere or cylinder carried by a
// master node, stops on the motion of nodes, and cables. They hand out a tangent
// and a residual at the current state and keep no status of their own, so they
// belong in the Newton solver:
//
//   fem::contact_plane floor(ctx);
//   floor.init(bottom_nodes, ground, {{0.0, 0.0, 1.0}}, 0.0, DBL_MAX, DBL_MAX);
//   all.insert(floor.get_ID());
//
// The contact stiffness is the smaller of K_max and the displacement penalty. The
// law acts on the penetration g < 0 of a slave: with sharpness the largest finite
// double it switches on sharply at g = 0, with a finite one it rises smoothly and
// reaches half its strength at |g| = 1 / sharpness. A negative sharpness acts on
// g > 0 instead, which keeps the slaves inside a sphere or a bore. There is no
// friction. Refusals: invalid_data_error (-101) for a zero normal, axis or
// direction at init and for a node outside the positions at the run;
// element_index_error (-102) for an element other than 0 or all;
// element_geometry_error (-106) for a cable of zero length.
#pragma once

#include "kelt/fem/discrete_elements.h"

namespace kelt::fem {

// Each slave kept on the positive side of the plane n . (x - x_master) + offset = 0.
class contact_plane : public discrete_element {
public:
    contact_plane() = default;
    explicit contact_plane(context& ctx) { create(ctx); }
    void create(context& ctx);
    // The slaves are sorted, repeats and the master dropped; the normal is normalised.
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, unsigned master,
                                  const vector_fixed<double, 3>& normal, double offset, double sharpness, double K_max);
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& nodes, unsigned& master, vector_fixed<double, 3>& normal,
                                        double& offset, double& sharpness, double& K_max) const;
};

// Each slave kept outside the sphere of the radius about the master. With no_pull
// the turn of the normal adds no stiffness while the surface pushes.
class contact_sphere : public discrete_element {
public:
    contact_sphere() = default;
    explicit contact_sphere(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, unsigned master, double radius, double sharpness,
                                  double K_max, bool no_pull);
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& nodes, unsigned& master, double& radius,
                                        double& sharpness, double& K_max, bool& no_pull) const;
};

// Each slave kept outside the cylinder of the axis through the master (inside it,
// a bore, with a negative sharpness).
class contact_cylinder : public discrete_element {
public:
    contact_cylinder() = default;
    explicit contact_cylinder(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, unsigned master,
                                  const vector_fixed<double, 3>& axis, double radius, double sharpness, double K_max,
                                  bool no_pull);
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& nodes, unsigned& master, vector_fixed<double, 3>& axis,
                                        double& radius, double& sharpness, double& K_max, bool& no_pull) const;
};

// Stops that keep direction . u(node) at or above -limit for the values u of a
// field (displacement or rotation) at each node, by the field's penalty.
class block_stops : public discrete_element {
public:
    block_stops() = default;
    explicit block_stops(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, field_tag field,
                                  const vector_fixed<double, 3>& direction, double limit);
    // The direction as given, normalised.
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& nodes, field_tag& field,
                                        vector_fixed<double, 3>& direction, double& limit) const;
};

// A chain of nodes, in order, that carries one tension along its whole path (the
// inner nodes act as pulleys); the strain is the change of the path's length over
// its length in the positions. A law_spring or one of its kind gives the tension,
// with its thermal and initial strains as for a rod. A catenary is a chain of
// two-node cables.
class cable : public discrete_element {
public:
    cable() = default;
    explicit cable(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, const law_base& law);
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& nodes, law_spring& law) const;
};

// A cable of unit law whose stiffness is the displacement penalty: with
// tension_only it is slack (no force, no stiffness) when its path is shortened.
// p1 and p2 are the thermal expansion and the initial strain of its law.
class cable_rigid : public discrete_element {
public:
    cable_rigid() = default;
    explicit cable_rigid(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, bool tension_only, double p1, double p2);
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& nodes, bool& tension_only, double& p1, double& p2) const;
};

} // namespace kelt::fem
