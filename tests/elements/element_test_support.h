// What the element tests share: dense assemblers that keep every addition, meshes
// of the unit cube in each volume type with distorted interior nodes, and the
// building of models on a test context.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "kelt/core/context.h"
#include "kelt/core/element_catalogue.h"
#include "kelt/core/element_records.h"
#include "kelt/core/vector_fast.h"
#include "kelt/elements/model_init.h"
#include "kelt/elements/shapes.h"
#include "kelt/fem/context.h"
#include "kelt/laws/law_scalar.h"
#include "kelt/laws/law_solid.h"
#include "support/assemblers.h"
#include "support/core_context.h"

namespace kelt::test {

// A dense symmetric matrix over the DOFs it is given, in order of first meeting.
class dense_assembler : public core::matrix_assembler_base {
public:
    bool is_null() const override { return false; }
    error_type add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) override
    {
        for (unsigned i = 0; i < values.size(); ++i) at(IDs[i], IDs[i]) += values[i];
        return no_error;
    }
    error_type add_general(const dense2D<double>& values, const dense1D<unsigned, 8>& IDs) override
    {
        for (unsigned j = 0; j < values.cols(); ++j)
            for (unsigned i = 0; i < values.rows(); ++i) at(IDs[i], IDs[j]) += values(i, j);
        return no_error;
    }
    error_type add_symmetric(const symmetric_full<double>& K, const dense1D<unsigned, 8>& IDs, bool) override
    {
        ++calls;
        for (unsigned j = 0; j < K.order(); ++j)
            for (unsigned i = 0; i < K.order(); ++i) at(IDs[i], IDs[j]) += K(i, j);
        return no_error;
    }

    // Rank of an identifier, added when new.
    unsigned rank(unsigned ID)
    {
        const unsigned r = rows.push_back(ID);
        if (r >= n) grow(r + 1);
        return r;
    }
    double& at(unsigned row_ID, unsigned col_ID)
    {
        const unsigned r = rank(row_ID), c = rank(col_ID);
        return A[std::size_t(c) * capacity + r];
    }
    double get(unsigned r, unsigned c) const { return A[std::size_t(c) * capacity + r]; }

    vector_fast rows;
    unsigned n = 0; // rows in use
    std::vector<double> A; // column-major, capacity x capacity
    unsigned capacity = 0;
    unsigned calls = 0;

private:
    void grow(unsigned m)
    {
        if (m > capacity) {
            const unsigned cap = std::max(m, 2 * capacity);
            std::vector<double> B(std::size_t(cap) * cap, 0.0);
            for (unsigned c = 0; c < n; ++c)
                for (unsigned r = 0; r < n; ++r) B[std::size_t(c) * cap + r] = A[std::size_t(c) * capacity + r];
            A.swap(B);
            capacity = cap;
        }
        n = m;
    }
};


// A mesh: positions (3 x nodes) and connectivity (nodes per element).
struct test_mesh {
    dense2D<double> pos;
    dense2D<unsigned> cells;
    element_type type = element_none;

    unsigned nbr_nodes() const { return pos.cols(); }
    bool on_boundary(unsigned node) const
    {
        for (unsigned k = 0; k < 3; ++k)
            if (std::fabs(pos(k, node)) < 1e-12 || std::fabs(pos(k, node) - 1.0) < 1e-12) return true;
        return false;
    }
};

// The types whose meshes the tests build.
inline constexpr element_type volume_types[8] = {element_tetra4,   element_tetra10, element_pyramid5, element_pyramid14,
                                                 element_wedge6,   element_wedge18, element_hexa8,    element_hexa27};

inline const char* type_name(element_type t)
{
    switch (t) {
    case element_tetra4: return "tetra4";
    case element_tetra10: return "tetra10";
    case element_pyramid5: return "pyramid5";
    case element_pyramid14: return "pyramid14";
    case element_wedge6: return "wedge6";
    case element_wedge18: return "wedge18";
    case element_hexa8: return "hexa8";
    case element_hexa27: return "hexa27";
    default: return "other";
    }
}

// The unit cube in n^3 hexahedra of any volume type. Interior vertices move by up
// to `distortion` of a cell in each direction (fixed seed); boundary ones stay on
// their faces. Higher-order nodes sit at the means of their base nodes, so that
// every cell keeps the geometry of its linear counterpart.
test_mesh cube_mesh(element_type type, unsigned n, double distortion, unsigned seed = 7);

// A flat mesh of lines (along x, on [0, 2]) or faces (on [0, 2] x [0, 1]) at z = 0,
// nx by ny cells with moved interior vertices; faces turn counterclockwise about z.
test_mesh flat_mesh(element_type type, unsigned nx, unsigned ny, double distortion);

// One element of the type on the unit cell's vertices moved at random by up to
// `distortion`.
test_mesh single_element(element_type type, double distortion, unsigned seed = 3);

// A context for core models; the registry is cleared at the end.
struct model_context : core_context {

    Ptr<core::numerical_model_base> solid(const test_mesh& m, const Ptr<core::law_solid_stiff>& law,
                                          bool finite = false)
    {
        Ptr<core::physics_base> physics;
        if (finite)
            physics = new core::solid_finite(law);
        else
            physics = new core::solid_small(law);
        return made(core::make_stiff_mesh(ctx, physics, m.cells, m.type, out_model()));
    }
    Ptr<core::numerical_model_base> mass(const test_mesh& m, double density)
    {
        Ptr<core::physics_base> physics = new core::solid_mass(scalar_law(density));
        return made(core::make_mass_mesh(ctx, physics, m.cells, m.type, out_model()));
    }
    Ptr<core::numerical_model_base> conduction(const test_mesh& m, double k)
    {
        Ptr<core::physics_base> physics = new core::conduction_3d(scalar_law(k));
        return made(core::make_thermal_mesh(ctx, physics, m.cells, m.type, out_model()));
    }
    // A model of any physics through the makers of stiffness, mass or conduction.
    Ptr<core::numerical_model_base> stiff(const test_mesh& m, const Ptr<core::physics_base>& physics)
    {
        return made(core::make_stiff_mesh(ctx, physics, m.cells, m.type, out_model()));
    }
    Ptr<core::numerical_model_base> mass_of(const test_mesh& m, const Ptr<core::physics_base>& physics)
    {
        return made(core::make_mass_mesh(ctx, physics, m.cells, m.type, out_model()));
    }
    Ptr<core::numerical_model_base> thermal_of(const test_mesh& m, const Ptr<core::physics_base>& physics)
    {
        return made(core::make_thermal_mesh(ctx, physics, m.cells, m.type, out_model()));
    }
    Ptr<core::numerical_model_base> load_only(const test_mesh& m)
    {
        return made(core::make_load_only_mesh(ctx, m.cells, m.type, out_model()));
    }

private:
    static Ptr<core::law_scalar> scalar_law(double value)
    {
        Ptr<core::law_scalar> law = new core::law_scalar;
        dense1D<double, 8> d(1, value);
        (void)law->init(d);
        return law;
    }
    Ptr<core::numerical_model_base>& out_model()
    {
        last = nullptr;
        return last;
    }
    Ptr<core::numerical_model_base> made(error_type e)
    {
        if (e != no_error || !last) return {};
        last->context = ctx;
        if (last->record() != no_error) return {};
        return last;
    }
    Ptr<core::numerical_model_base> last;
};

inline Ptr<core::law_solid_stiff> StVenant(double E, double nu, double a = 0.0)
{
    Ptr<core::law_solid_StVenant> law = new core::law_solid_StVenant;
    dense1D<double, 8> d;
    d.push_back(E);
    d.push_back(nu);
    d.push_back(a);
    (void)law->init(d);
    return law;
}

// One element's outputs for a pass of `kind`, with U (may be empty) and a factor.
struct element_run {
    error_type status = no_error;
    core::element_work_type work;
};
inline void compute(const core::numerical_model_base& model, core::pass_kind kind, unsigned element,
                    const test_mesh& m, const core::DOF_values_view& U, element_run& run,
                    core::matrix_mode_type matrix_mode = core::matrix_tangent, double factor = 1.0)
{
    core::element_pass_type pass;
    pass.pos = m.pos;
    pass.U = U;
    pass.matrix_mode = matrix_mode;
    run.work.start(pass, model.ID);
    run.work.matrix_mode = matrix_mode;
    run.work.vector_mode = 1;
    run.work.factor = factor;
    run.work.element = element;
    run.status = model.compute_element(kind, run.work);
}

// A view of DOF values given by a function of (node, place).
template <class F>
core::DOF_values_view values_of(const test_mesh& m, unsigned nbr_places, const unsigned* places, F&& f)
{
    core::DOF_values_view v;
    v.rows = new vector_fast;
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        for (unsigned k = 0; k < nbr_places; ++k) {
            (void)v.rows->push_back(node * 9 + places[k]);
            v.values.push_back(f(node, places[k]));
        }
    return v;
}

// How far the stiffness of element 0 at a state u (element DOF order: node slot a,
// then place) is from what it must be, each error relative to the largest term:
// - derivative: the finite variant's tangent against a central difference of
//   minus its internal forces;
// - split: that tangent against its material plus its geometric mode;
// - small: the small variant's geometric mode at u against the finite one's, when
//   `small` is given (both take the stress of the Green-Lagrange strain of u, so
//   that a buckling run sees the same matrix from either).
struct tangent_errors {
    double derivative = 0.0, split = 0.0, small = 0.0;
};
tangent_errors tangent_errors_of(const core::numerical_model_base& finite, const core::numerical_model_base* small,
                                 const test_mesh& m, unsigned nbr_places, const unsigned* places,
                                 const std::vector<double>& u);

// Assembles kind over all elements of a model (threads as the context says).
inline error_type assemble(core::numerical_model_base& model, core::pass_kind kind, const test_mesh& m,
                           dense_assembler& K, core::vector_assembler_base* F = nullptr,
                           const core::DOF_values_view* U = nullptr)
{
    core::element_pass_type pass;
    pass.pos = m.pos;
    if (U) pass.U = *U;
    pass.matrix = &K;
    pass.vector = F;
    return model.run_elements(kind, pass);
}

// Eigenvalues of a dense symmetric matrix (ascending), by dspev.
std::vector<double> eigenvalues(const std::vector<double>& A, unsigned n);
std::vector<double> eigenvalues(const symmetric_full<double>& K);

// The eigenvalues within rel x the largest of 0. Each one is also checked to be
// no more negative than that, as those of a semidefinite matrix are to rounding.
inline unsigned nbr_zero_eigenvalues(const std::vector<double>& w, double rel)
{
    const double scale = w.back();
    unsigned zeros = 0;
    for (double v : w) {
        EXPECT_GT(v, -rel * scale);
        if (std::fabs(v) < rel * scale) ++zeros;
    }
    return zeros;
}

// Solves A x = b (A dense n x n, column-major) by Gaussian elimination with partial pivoting.
std::vector<double> solve_dense(std::vector<double> A, std::vector<double> b, unsigned n);

} // namespace kelt::test
