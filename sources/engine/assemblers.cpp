// The assemblers that the solvers use on the engine's own matrices and vectors,
// compiled once here.
#include "kelt/engine/assemblers.h"

namespace kelt::core {

template class matrix_sym_assembler<indexed_sym_matrix>;
template class matrix_skew_assembler<indexed_sym_matrix>;
template class matrix_diag_assembler<indexed_vector>;
template class matrix_sym_assembler_projection<DOF_selector>;
template class vector_assembler<indexed_vector>;
template class vector_assembler<indexed_zvector>;

matrix_product_assembler::matrix_product_assembler(const vector_fast& rows, const double* x, row_range x_rows,
                                                   double* y, row_range y_rows, double factor)
    : rows_(rows), x_(x), x_rows_(x_rows), y_(y), y_rows_(y_rows), factor_(factor)
{
}

bool matrix_product_assembler::is_null() const
{
    return factor_ == 0.0 || factor_ != factor_ || x_rows_.first >= x_rows_.end || y_rows_.first >= y_rows_.end;
}

bool matrix_product_assembler::gather(const dense1D<unsigned, 8>& IDs)
{
    try {
        local_rows_.resize(IDs.size());
        local_x_.resize(IDs.size());
    } catch (const std::bad_alloc&) {
        return false;
    }
    for (unsigned l = 0; l < IDs.size(); ++l) {
        const unsigned r = rows_.rank(IDs[l]);
        local_rows_[l] = r;
        local_x_[l] = x_rows_.holds(r) ? x_[r] : 0.0;
    }
    return true;
}

error_type matrix_product_assembler::add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs)
{
    if (is_null() || values.size() != IDs.size()) return no_error;
    if (!gather(IDs)) return memory_error;
    for (unsigned l = 0; l < IDs.size(); ++l)
        if (y_rows_.holds(local_rows_[l])) y_[local_rows_[l]] += factor_ * values[l] * local_x_[l];
    return no_error;
}

template <class Matrix>
error_type matrix_product_assembler::add_product(const Matrix& values, const dense1D<unsigned, 8>& IDs)
{
    const unsigned m = IDs.size();
    if (!gather(IDs)) return memory_error;
    for (unsigned i = 0; i < m; ++i) {
        if (!y_rows_.holds(local_rows_[i])) continue;
        double s = 0.0;
        for (unsigned j = 0; j < m; ++j) s += values(i, j) * local_x_[j];
        y_[local_rows_[i]] += factor_ * s;
    }
    return no_error;
}

error_type matrix_product_assembler::add_general(const dense2D<double>& values, const dense1D<unsigned, 8>& IDs)
{
    const unsigned m = IDs.size();
    if (is_null() || values.rows() != m || values.cols() != m) return no_error;
    return add_product(values, IDs);
}

error_type matrix_product_assembler::add_symmetric(const symmetric_full<double>& values,
                                                   const dense1D<unsigned, 8>& IDs, bool symmetric)
{
    if (!symmetric || is_null() || values.order() != IDs.size()) return no_error;
    return add_product(values, IDs);
}

} // namespace kelt::core

namespace kelt::core {

error_type matrix_split_assembler::add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs)
{
    if (auto e = add_diagonal_values(values, IDs); e != no_error) return e;
    if (values.size() != IDs.size()) return no_error;
    for (unsigned l = 0; l < IDs.size(); ++l)
        if (const unsigned m = masters.rank(IDs[l]); m < Kmm.order()) Kmm(m, m) += factor * values[l];
    return no_error;
}

error_type matrix_split_assembler::add_symmetric(const symmetric_full<double>& values,
                                                 const dense1D<unsigned, 8>& IDs, bool symmetric)
{
    if (!symmetric || values.order() != IDs.size()) return no_error;
    if (auto e = add_rows(values, IDs, false); e != no_error) return e;
    const unsigned n = IDs.size(), nbr_interior = target.matrix.nbr_rows();
    const double* Ke = values.data();
    for (unsigned j = 0; j < n; ++j) {
        const unsigned mj = masters.rank(IDs[j]);
        const unsigned rj = mj < Kmm.order() ? no_rank : target.IDs->rank(IDs[j]);
        for (unsigned i = 0; i <= j; ++i) {
            const double v = factor * assembly_detail::packed(Ke, i, j);
            if (v == 0.0) continue;
            const unsigned mi = masters.rank(IDs[i]);
            if (mi < Kmm.order() && mj < Kmm.order()) {
                // A master repeated in the element takes (i, j) and (j, i) on its diagonal.
                Kmm(mi, mj) += (mi == mj && i != j) ? v + v : v;
            } else if (mi < Kmm.order() && rj < nbr_interior) {
                Kim.push_back({rj, mi, v});
            } else if (mj < Kmm.order()) {
                if (const unsigned ri = target.IDs->rank(IDs[i]); ri < nbr_interior) Kim.push_back({ri, mj, v});
            }
        }
    }
    return no_error;
}

} // namespace kelt::core
