// Loads given on elements (elementary_load kinds) and the server that turns a
// distributed load into nodal values on lines, faces and volumes in space.
#pragma once

#include "kelt/core/elementary_load.h"
#include "kelt/elements/element_kinematics.h"

namespace kelt::core {

// Kinds of elementary_load. Values are densities per unit of the element's measure
// (length, area or volume), in the global frame.
inline constexpr unsigned load_force = 1;    // values: force (x, y, z); missing components are 0
inline constexpr unsigned load_pressure = 2; // values[0]: pressure against the normal of a face
inline constexpr unsigned load_heat = 3;     // values[0]: heat flux into a face, or source in a line or volume

// Which kinds a model takes, as bits 1 << kind.
inline constexpr unsigned load_bit(unsigned kind) noexcept { return 1u << kind; }

template <class Shape, class Points>
class distributed_load_server {
public:
    static constexpr unsigned nbr_nodes = Shape::nbr_nodes;
    static constexpr unsigned nbr_points = Points::nbr_points;

    // Fe = factor x the integral of N times the load, on the DOFs the load acts on.
    // invalid_data_error for a kind outside `accepted` or a load without values;
    // element_geometry_error, after all points, for a map that is not positive.
    [[nodiscard]] error_type compute_load(const elementary_load& load, unsigned accepted, const unsigned* nodes,
                                          element_work_type& w) const
    {
        if (load.kind >= 32 || !(accepted & load_bit(load.kind)) || load.values.empty()) return invalid_data_error;
        if (load.kind == load_pressure && Shape::dim != 2) return invalid_data_error;
        double x[nbr_nodes][3];
        if (auto e = gather_nodes<nbr_nodes>(w.pos, nodes, x); e != no_error) return e;
        const bool heat = load.kind == load_heat;
        const unsigned per_node = heat ? 1 : 3;
        const bool listed = heat ? list_DOFs<nbr_nodes>(nodes, temperature_places, w.DOFs)
                                 : list_DOFs<nbr_nodes>(nodes, translation_places, w.DOFs);
        if (!listed || !size_outputs(w, nbr_nodes * per_node, false, true)) return memory_error;
        double density[3] = {};
        for (unsigned k = 0; k < per_node && k < load.values.size(); ++k) density[k] = load.values[k];
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const kinematic_item<Shape>* items = data.items[p];
            double point[3], normal[3] = {}, dNx[nbr_nodes][3];
            const double measure = Shape::dim == 3 ? volume_map<Shape>(items, x, dNx, point)
                                                   : surface_map<Shape>(items, x, point, normal);
            if (!(measure > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double wf = data.points[p].weight * w.factor;
            double q[3];
            if (load.kind == load_pressure)
                for (unsigned k = 0; k < 3; ++k) q[k] = -density[0] * normal[k] * wf;
            else
                for (unsigned k = 0; k < 3; ++k) q[k] = density[k] * measure * wf;
            for (unsigned a = 0; a < nbr_nodes; ++a)
                for (unsigned k = 0; k < per_node; ++k) w.Fe[a * per_node + k] += items[a].N * q[k];
        }
        if (result != no_error) w.Fe.clear();
        return result;
    }

    point_shapes<Shape, Points> data;
};

} // namespace kelt::core

namespace kelt::core {

// The loads of a mesh model: what its physics accepts, on the points of its rule.
template <class Physics, class Shape, class Points>
class external_work_server : public distributed_load_server<Shape, Points> {
public:
    [[nodiscard]] error_type compute(const elementary_load& load, const unsigned* nodes, element_work_type& w) const
    {
        return this->compute_load(load, Physics::accepted_loads, nodes, w);
    }
};

} // namespace kelt::core

namespace kelt::core {

// For the models that take no element load.
struct no_external_work {
    [[nodiscard]] error_type compute(const elementary_load&, const unsigned*, element_work_type&) const
    {
        return invalid_data_error;
    }
};

} // namespace kelt::core
