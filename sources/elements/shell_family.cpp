// The plate and shell family: Mindlin plates (three DOFs a node, one instance per
// normal axis) and shells (six) on the 4 faces, in small and finite form, with the
// rule and modifier of each shape, and the consistent mass of shells. Every
// instance of the family is made here.
#include <algorithm>

#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"
#include "kelt/elements/shell_server.h"

namespace kelt::core {

namespace {

using namespace elfes;

// Integration is full everywhere; the modifiers remove shear locking, save on the
// six-node triangle, which has none.
template <class Shape> struct face_rules;
template <> struct face_rules<shape_faceT3> {
    using matrix = local_points_set<Gauss_faceT, 3>;
    using plate_load = local_points_set<Gauss_faceT, 1>;
    using plate_formulation = ANS_T3<shape_faceT3>;
    using shell_formulation = compose_modifier<ANS_T3<shape_faceT3>, drilling_stiffness<shape_faceT3>>;
};
template <> struct face_rules<shape_faceQ4> {
    using matrix = local_points_set_prod2<Gauss_faceQ, 2, 2>;
    using plate_load = matrix;
    using plate_formulation = ANS_Q4<shape_faceQ4>;
    using shell_formulation = compose_modifier<ANS_Q4<shape_faceQ4>, drilling_stiffness<shape_faceQ4>>;
};
template <> struct face_rules<shape_faceT6> {
    using matrix = local_points_set<Gauss_faceT, 6>;
    using plate_load = matrix;
    using plate_formulation = regular_formulation<shape_faceT6>;
    using shell_formulation = drilling_stiffness<shape_faceT6>;
};
template <> struct face_rules<shape_faceQ9> {
    using matrix = local_points_set_prod2<Gauss_faceQ, 3, 3>;
    using plate_load = matrix;
    using plate_formulation = ANS_Q9<shape_faceQ9>;
    using shell_formulation = compose_modifier<ANS_Q9<shape_faceQ9>, drilling_stiffness<shape_faceQ9>>;
};

// make.template operator()<Shape>() for the face shape of `type`.
template <class Make>
error_type for_face(element_type type, Make&& make)
{
    switch (type) {
    case element_faceT3: return make.template operator()<shape_faceT3>();
    case element_faceT6: return make.template operator()<shape_faceT6>();
    case element_faceQ4: return make.template operator()<shape_faceQ4>();
    case element_faceQ9: return make.template operator()<shape_faceQ9>();
    default: return element_type_error;
    }
}

// A stiffness mesh whose server reads the drilling factor of the model's context
// at run time.
template <class Server, class External>
class shell_stiff_mesh : public numerical_model_stiff_mesh<Server, External> {
public:
    shell_stiff_mesh(context_type* context, const Ptr<typename Server::physics_type>& physics,
                     const dense2D<unsigned>& nodes, element_type type)
        : numerical_model_stiff_mesh<Server, External>(context, physics, nodes, type)
    {
        this->server.context = &this->context;
    }
};

template <class Physics, class Shape, unsigned Axis>
using plate_model =
    shell_stiff_mesh<shell_server<Physics, Shape, typename face_rules<Shape>::matrix,
                                  typename face_rules<Shape>::plate_formulation, Axis>,
                     shell_load_server<Physics, Shape, typename face_rules<Shape>::plate_load, Axis>>;

template <class Physics, class Shape>
using shell_model =
    shell_stiff_mesh<shell_server<Physics, Shape, typename face_rules<Shape>::matrix,
                                  typename face_rules<Shape>::shell_formulation>,
                     shell_load_server<Physics, Shape, typename face_rules<Shape>::matrix, 3>>;

template <class Physics>
error_type make_plate(context_type* context, Physics& physics, const dense2D<unsigned>& mesh, element_type type,
                      Ptr<numerical_model_base>& out)
{
    return for_face(type, [&]<class Shape>() {
        switch (physics.axis) {
        case 0: return new_mesh_model<plate_model<Physics, Shape, 0>>(context, physics, mesh, Shape::type, out);
        case 1: return new_mesh_model<plate_model<Physics, Shape, 1>>(context, physics, mesh, Shape::type, out);
        case 2: return new_mesh_model<plate_model<Physics, Shape, 2>>(context, physics, mesh, Shape::type, out);
        default: return invalid_data_error;
        }
    });
}

template <class Physics>
error_type make_shell(context_type* context, Physics& physics, const dense2D<unsigned>& mesh, element_type type,
                      Ptr<numerical_model_base>& out)
{
    return for_face(type, [&]<class Shape>() {
        return new_mesh_model<shell_model<Physics, Shape>>(context, physics, mesh, Shape::type, out);
    });
}

// The consistent mass of shells: per point rho h N_a N_b on the translations, the
// rotary inertia on the rotations about the two tangents, and with an offset z the
// coupling of a translation with the turn of the director, u . (theta x n).
template <class Shape, class Points>
class shell_mass_server : public server_base<shell_mass, Shape, Points, six_places> {
public:
    using base = server_base<shell_mass, Shape, Points, six_places>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::nbr_DOFs,
        base::places;
    static constexpr unsigned first_code = 0;
    static constexpr unsigned second_code = 0;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_mass; }

    using base::base;

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_mass) return no_error;
        if (!physics || !physics->law || transformer) return invalid_data_error;
        double x[nbr_nodes][3];
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, x); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, true, false))
            return memory_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const kinematic_item<Shape>* items = data.items[p];
            double point[3], n[3];
            const double det = surface_map<Shape>(items, x, point, n);
            w.weights.push_back(det * data.points[p].weight);
            if (!(det > 0.0) || !std::isfinite(det)) {
                w.Ke.clear();
                return element_geometry_error;
            }
            for (double& c : n) c /= det;
            const auto s = physics->law->get_section(law_key{w.model, w.element, data.points[p].ID});
            const double wf = det * data.points[p].weight * w.factor;
            // Blocks of one pair of nodes, per unit of N_a N_b: translations,
            // rotations (I - n n^T), and u_i theta_j: -(rho h z) [n]x.
            double R[3][3], C[3][3];
            const double S[3][3] = {{0.0, -n[2], n[1]}, {n[2], 0.0, -n[0]}, {-n[1], n[0], 0.0}};
            for (unsigned i = 0; i < 3; ++i)
                for (unsigned j = 0; j < 3; ++j) {
                    R[i][j] = s.rotation * ((i == j ? 1.0 : 0.0) - n[i] * n[j]);
                    C[i][j] = -s.coupling * S[i][j];
                }
            for (unsigned b = 0; b < nbr_nodes; ++b)
                for (unsigned a = 0; a < nbr_nodes; ++a) {
                    const double m = wf * items[a].N * items[b].N;
                    for (unsigned i = 0; i < 3; ++i)
                        for (unsigned j = 0; j < 3; ++j) {
                            // Row a, column b: (u, u), (u, theta), (theta, u), (theta, theta).
                            add(w, 6 * a + i, 6 * b + j, m * ((i == j ? s.translation : 0.0)));
                            add_coupling(w, 6 * a + i, 6 * b + 3 + j, m * C[i][j]);
                            add(w, 6 * a + 3 + i, 6 * b + 3 + j, m * R[i][j]);
                        }
                }
        }
        if (w.vector_mode == 1) {
            double u[nbr_DOFs];
            gather_values<nbr_nodes>(w.U, nodes, places, u);
            if (!w.Fe.resize(nbr_DOFs)) return memory_error;
            for (unsigned i = 0; i < nbr_DOFs; ++i) {
                double s = 0.0;
                for (unsigned j = 0; j < nbr_DOFs; ++j) s += w.Ke(i, j) * u[j];
                w.Fe[i] = -s;
                w.energy += 0.5 * s * u[i];
            }
        }
        if (w.matrix_mode == matrix_none) w.Ke.clear();
        return no_error;
    }

    [[nodiscard]] error_type compute_results(unsigned, const unsigned*, element_work_type&) const { return no_error; }

private:
    // Adds to the packed upper triangle; each pair of the full matrix comes once
    // from (a, b) and once from (b, a), so the lower half is skipped.
    static void add(element_work_type& w, unsigned i, unsigned j, double value)
    {
        if (i <= j) w.Ke.data()[std::size_t(j) * (j + 1) / 2 + i] += value;
    }
    // A (translation, rotation) pair comes once: it goes where the triangle holds it.
    static void add_coupling(element_work_type& w, unsigned i, unsigned j, double value)
    {
        add(w, std::min(i, j), std::max(i, j), value);
    }
};

} // namespace

error_type make_plate_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                            element_type type, Ptr<numerical_model_base>& out)
{
    if (auto* small = dynamic_cast<plate_small*>(&physics)) return make_plate(context, *small, mesh, type, out);
    if (auto* finite = dynamic_cast<plate_finite*>(&physics)) return make_plate(context, *finite, mesh, type, out);
    return element_type_error;
}

error_type make_shell_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                            element_type type, Ptr<numerical_model_base>& out)
{
    if (auto* small = dynamic_cast<shell_small*>(&physics)) return make_shell(context, *small, mesh, type, out);
    if (auto* finite = dynamic_cast<shell_finite*>(&physics)) return make_shell(context, *finite, mesh, type, out);
    return element_type_error;
}

error_type make_shell_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                           element_type type, Ptr<numerical_model_base>& out)
{
    auto* mass = dynamic_cast<shell_mass*>(&physics);
    if (!mass) return element_type_error;
    return for_face(type, [&]<class Shape>() {
        using model = numerical_model_mass_mesh<shell_mass_server<Shape, typename face_rules<Shape>::matrix>,
                                                no_external_work>;
        return new_mesh_model<model>(context, *mass, mesh, Shape::type, out);
    });
}

} // namespace kelt::core
