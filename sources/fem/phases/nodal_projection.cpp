#include "kelt/fem/phases/nodal_projection.h"

#include <algorithm>
#include <new>
#include <vector>

#include "kelt/engine/assemblers.h"
#include "kelt/fem/phases/factor.h"

namespace kelt::core {

bool number_nodes(run_state& run, const numerical_model_base& model, pass_kind kind, numbering& out, double& timer)
{
    {
        phase_timer t(timer);
        std::vector<unsigned> ends, element_DOFs;
        error_type e = model.get_elements_DOFs(all_elements, kind, run.problem->pos, all_fields, ends, element_DOFs);
        if (e == no_error) {
            // Each element's DOFs become its nodes, each once; the model's nodes
            // in order of first meeting.
            std::vector<unsigned> rows;
            rows.reserve(element_DOFs.size());
            vector_fast seen;
            dense1D<unsigned, 8> nodes;
            std::vector<unsigned> node_ends(1, 0);
            for (std::size_t el = 0; el + 1 < ends.size(); ++el) {
                const std::size_t first = rows.size();
                for (unsigned k = ends[el]; k < ends[el + 1]; ++k) {
                    const unsigned id = node_of(element_DOFs[k]) * 9;
                    if (std::find(rows.begin() + std::ptrdiff_t(first), rows.end(), id) == rows.end())
                        rows.push_back(id);
                    if (!seen.contains(id)) (void)seen.push_back(id);
                }
                node_ends.push_back(unsigned(rows.size()));
            }
            if (!nodes.resize(seen.size())) throw std::bad_alloc();
            std::copy(seen.IDs().begin(), seen.IDs().end(), nodes.begin());
            e = number_and_profile(nodes, node_ends, rows, dense1D<unsigned, 8>(), false, *out.free_IDs,
                                   out.profile, out.K_bytes, out.index_bytes);
            out.K_size_MB = profile_megabytes(out.K_bytes, out.index_bytes);
        }
        if (e != no_error) KELT_RAISE(run, e, "Model error.");
    }
    run.log(1, "Nbr nodes                : %10llu \n", (unsigned long long)out.size());
    return !run.stop_requested();
}

namespace {

// Rows (identifiers node x 9) of an element's nodes, each once, and the weight
// of each point; false when the element gave no point shapes.
bool element_rows(const element_work_type& w, dense1D<unsigned, 8>& IDs)
{
    const unsigned nodes = w.point_nodes.size(), points = w.results.cols();
    if (nodes == 0 || w.point_shapes.rows() != nodes || w.point_shapes.cols() != points || w.weights.size() != points)
        return false;
    if (!IDs.resize(nodes)) throw std::bad_alloc();
    for (unsigned a = 0; a < nodes; ++a) IDs[a] = w.point_nodes[a] * 9;
    return true;
}

// A rule with fewer points than nodes, or a weight not positive (the stiffness
// rules of the tetrahedra), gives a singular or indefinite w N Nᵀ: such an element
// shares its volume equally among its nodes instead, with its weighted mean value,
// which still holds a constant field exactly.
bool deficient(const element_work_type& w)
{
    if (w.results.cols() < w.point_nodes.size()) return true;
    for (unsigned p = 0; p < w.weights.size(); ++p)
        if (!(w.weights[p] > 0.0)) return true;
    return false;
}

// M += sum over points of w N Nᵀ.
class nodal_matrix_assembler final : public result_assembler_base {
public:
    explicit nodal_matrix_assembler(indexed_sym_matrix& M) : into(M) {}
    error_type add_results(unsigned, unsigned, const dense1D<unsigned, 8>&, const dense2D<double>&) override
    {
        return element_type_error;
    }
    error_type add_element_results(const element_work_type& w) override
    {
        if (!element_rows(w, IDs)) return element_type_error;
        const unsigned n = IDs.size();
        if (!Me.resize(n)) throw std::bad_alloc();
        Me = 0.0;
        if (deficient(w)) {
            double volume = 0.0;
            for (unsigned p = 0; p < w.weights.size(); ++p) volume += w.weights[p];
            for (unsigned a = 0; a < n; ++a) Me(a, a) = volume / n;
            return into.add_symmetric(Me, IDs, true);
        }
        for (unsigned p = 0; p < w.results.cols(); ++p)
            for (unsigned b = 0; b < n; ++b)
                for (unsigned a = 0; a <= b; ++a)
                    Me(a, b) += w.weights[p] * w.point_shapes(a, p) * w.point_shapes(b, p);
        return into.add_symmetric(Me, IDs, true);
    }

private:
    matrix_sym_assembler<indexed_sym_matrix> into;
    dense1D<unsigned, 8> IDs;
    symmetric_full<double> Me;
};

// rhs(:, first + c) += sum over points of w N v_c.
class nodal_rhs_assembler final : public result_assembler_base {
public:
    nodal_rhs_assembler(const numbering& n_, const projected_field& f, FEM_real& rhs_, unsigned first_)
        : n(n_), field(f), rhs(rhs_), first(first_)
    {
    }
    error_type add_results(unsigned, unsigned, const dense1D<unsigned, 8>&, const dense2D<double>&) override
    {
        return element_type_error;
    }
    error_type add_element_results(const element_work_type& w) override
    {
        if (!element_rows(w, IDs)) return element_type_error;
        double v[16] = {};
        const bool shared = deficient(w);
        for (unsigned p = 0; p < w.results.cols(); ++p) {
            point_values(w.results, p, v);
            for (unsigned c = 0; c < field.count; ++c) {
                dense1D<double, 8> col = rhs.col(first + c);
                if (col.size() != rhs.rows()) return memory_error;
                for (unsigned a = 0; a < IDs.size(); ++a) {
                    const unsigned r = n.free_IDs->rank(IDs[a]);
                    const double N = shared ? 1.0 / IDs.size() : w.point_shapes(a, p);
                    if (r < col.size()) col[r] += w.weights[p] * N * v[c];
                }
            }
        }
        return no_error;
    }

private:
    void point_values(const dense2D<double>& values, unsigned p, double (&v)[16]) const
    {
        for (unsigned c = 0; c < field.count && c < 16; ++c) v[c] = 3 + c < values.rows() ? values(3 + c, p) : 0.0;
        if (!field.tensor) return;
        const double s = field.halve_shears ? 0.5 : 1.0;
        // xx, yy, zz, xy, xz, yz to s00, s01, s11, s02, s12, s22, for each tensor
        // of the point (a shell's forces, then its moments).
        for (unsigned t = 0; 6 * t + 6 <= field.count && 9 + 6 * t <= values.rows(); ++t) {
            const double* x = values.col_data(p) + 3 + 6 * t;
            const double packed[6] = {x[0], s * x[3], x[1], s * x[4], s * x[5], x[2]};
            std::copy(packed, packed + 6, v + 6 * t);
        }
    }

    const numbering& n;
    const projected_field& field;
    FEM_real& rhs;
    unsigned first;
    dense1D<unsigned, 8> IDs;
};

} // namespace

bool assemble_nodal_matrix(run_state& run, numerical_model_base& model, pass_kind kind, unsigned result,
                           element_pass_type pass, const numbering& n, indexed_sym_matrix& M, double& timer)
{
    phase_timer t(timer);
    M.IDs = n.free_IDs;
    error_type e = M.matrix.create(n.profile, n.size(), 0.0, run.OOC());
    if (e == no_error && M.nbr_rows() != n.size()) e = memory_error;
    if (e != no_error) {
        M.matrix.clear();
        raise_allocation_error(run, e, __FILE__, __LINE__);
        return false;
    }
    nodal_matrix_assembler into(M);
    pass.results = &into;
    e = model.run_element_results(kind, result, pass);
    if (e == no_error && M.matrix.proxy()) e = M.matrix.proxy()->flush_pending(false);
    if (e != no_error) KELT_RAISE(run, e, "Assembly error.");
    return e == no_error;
}

error_type assemble_nodal_rhs(numerical_model_base& model, pass_kind kind, unsigned result, element_pass_type pass,
                              const numbering& n, const projected_field& field, FEM_real& rhs, unsigned first)
{
    nodal_rhs_assembler into(n, field, rhs, first);
    pass.results = &into;
    return model.run_element_results(kind, result, pass);
}

} // namespace kelt::core
