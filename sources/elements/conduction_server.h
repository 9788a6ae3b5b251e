// Steady conduction in the volumes, in the pattern of the solid routine: per point
// the map, its weight, the conductivity, then k grad N_a . grad N_b. Included by the
// conduction family's translation unit only.
#pragma once

#include "kelt/elements/element_kinematics.h"
#include "kelt/elements/element_loads.h"
#include "kelt/elements/physics.h"

namespace kelt::core {

template <class Physics, class Shape, class Points>
class heat_conduction_server : public server_base<Physics, Shape, Points, temperature_places> {
public:
    using base = server_base<Physics, Shape, Points, temperature_places>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::places;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept
    {
        return kind == kind_conduction || kind == kind_thermal_load;
    }

    using base::base;

    // Kind 5: the conductivity matrix K and, with a vector, -K T; the energy is
    // T.K.T / 2. Loads (kind 6) come through the element loads alone.
    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_conduction) return no_error;
        if (!physics || !physics->law || transformer) return invalid_data_error;
        double x[nbr_nodes][3];
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, x); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_nodes, true, false))
            return memory_error;
        double* K = w.Ke.data();
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            double dNx[nbr_nodes][3], point[3];
            const double det = volume_map<Shape>(data.items[p], x, dNx, point);
            w.weights.push_back(det * data.points[p].weight);
            if (!(det > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double k = physics->law->get_value(law_key{w.model, w.element, data.points[p].ID});
            const double wf = k * det * data.points[p].weight * w.factor;
            std::size_t at = 0;
            for (unsigned b = 0; b < nbr_nodes; ++b)
                for (unsigned a = 0; a <= b; ++a)
                    K[at++] += wf * (dNx[a][0] * dNx[b][0] + dNx[a][1] * dNx[b][1] + dNx[a][2] * dNx[b][2]);
        }
        if (result != no_error) {
            w.Ke.clear();
            return result;
        }
        return linear_outputs<nbr_nodes>(w, nodes, places);
    }

    // Temperature gradients (7) or heat fluxes -k grad T (8) at the points, under
    // the coordinates of each point.
    [[nodiscard]] error_type compute_results(unsigned result, const unsigned* nodes, element_work_type& w) const
    {
        if (result != result_temperature_gradient && result != result_heat_flux) return no_error;
        if (!physics || !physics->law) return invalid_data_error;
        double x[nbr_nodes][3], T[nbr_nodes];
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, x); err != no_error) return err;
        gather_values<nbr_nodes>(w.U, nodes, places, T);
        if (!w.results.resize(6, nbr_points) || !w.point_IDs.resize(nbr_points) || !this->record_point_shapes(nodes, w))
            return memory_error;
        w.results = 0.0;
        error_type status = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            w.point_IDs[p] = data.points[p].ID;
            double dNx[nbr_nodes][3], point[3];
            const double det = volume_map<Shape>(data.items[p], x, dNx, point);
            w.weights.push_back(det * data.points[p].weight);
            for (unsigned i = 0; i < 3; ++i) w.results(i, p) = point[i];
            if (!(det > 0.0)) {
                status = element_geometry_error;
                continue;
            }
            const double scale = result == result_heat_flux
                                     ? -physics->law->get_value(law_key{w.model, w.element, data.points[p].ID})
                                     : 1.0;
            for (unsigned i = 0; i < 3; ++i) {
                double g = 0.0;
                for (unsigned a = 0; a < nbr_nodes; ++a) g += dNx[a][i] * T[a];
                w.results(3 + i, p) = scale * g;
            }
        }
        if (status != no_error) w.results.clear();
        return status;
    }
};

} // namespace kelt::core
