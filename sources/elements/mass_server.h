// The consistent mass of the volumes, in the pattern of the solid routine: per point
// the map, its weight, then rho N_a N_b on each direction. Included by the mass
// family's translation unit only.
#pragma once

#include "kelt/elements/element_kinematics.h"
#include "kelt/elements/element_loads.h"
#include "kelt/elements/physics.h"

namespace kelt::core {

template <class Physics, class Shape, class Points>
class mass_server : public server_base<Physics, Shape, Points> {
public:
    using base = server_base<Physics, Shape, Points>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::nbr_DOFs,
        base::places;
    // Mass models answer 0 to the code queries.
    static constexpr unsigned first_code = 0;
    static constexpr unsigned second_code = 0;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_mass; }

    using base::base;

    // Kind 2: M, and with a vector the opposite of the inertia forces -M U, whose
    // kinetic energy U.M.U / 2 goes to the energy when U holds velocities.
    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_mass) return no_error;
        if (!physics || !physics->law || transformer) return invalid_data_error;
        double x[nbr_nodes][3];
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, x); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, true, false))
            return memory_error;
        double* M = w.Ke.data();
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const kinematic_item<Shape>* items = data.items[p];
            double dNx[nbr_nodes][3], point[3];
            const double det = volume_map<Shape>(items, x, dNx, point);
            w.weights.push_back(det * data.points[p].weight);
            if (!(det > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double rho = physics->law->get_value(law_key{w.model, w.element, data.points[p].ID});
            const double wf = rho * det * data.points[p].weight * w.factor;
            add_moments(wf, point, w);
            for (unsigned b = 0; b < nbr_nodes; ++b)
                for (unsigned a = 0; a <= b; ++a) {
                    const double m = wf * items[a].N * items[b].N;
                    for (unsigned k = 0; k < 3; ++k) {
                        const unsigned i = 3 * a + k, j = 3 * b + k;
                        M[std::size_t(j) * (j + 1) / 2 + i] += m;
                    }
                }
        }
        if (result != no_error) {
            w.Ke.clear();
            return result;
        }
        return linear_outputs<nbr_nodes>(w, nodes, places);
    }

    [[nodiscard]] error_type compute_results(unsigned, const unsigned*, element_work_type&) const { return no_error; }

private:
    // The mass dm at x into the sums: dm and its first moments (sums4), the
    // inertia tensor about the origin dm (|x|² I - x xᵀ) packed (sums6).
    static void add_moments(double dm, const double (&x)[3], element_work_type& w) noexcept
    {
        w.sums4[0] += dm;
        for (unsigned i = 0; i < 3; ++i) w.sums4[1 + i] += dm * x[i];
        w.sums6[0] += dm * (x[1] * x[1] + x[2] * x[2]);
        w.sums6[1] -= dm * x[0] * x[1];
        w.sums6[2] += dm * (x[0] * x[0] + x[2] * x[2]);
        w.sums6[3] -= dm * x[0] * x[2];
        w.sums6[4] -= dm * x[1] * x[2];
        w.sums6[5] += dm * (x[0] * x[0] + x[1] * x[1]);
    }
};

} // namespace kelt::core
