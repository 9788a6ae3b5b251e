// The concrete assemblers: they turn element matrices and vectors, given with the
// DOF identifiers of their rows, into additions at positions of a global matrix or
// vector, scaled by a factor. A DOF that the target's row table does not hold is
// dropped with its row and column, which is how prescribed DOFs leave the system.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <new>
#include <vector>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/assembler_base.h"
#include "kelt/core/vector_fast.h"
#include "kelt/engine/skyline.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

inline constexpr unsigned no_rank = 0xFFFFFFFFu;

// A dense vector whose entry r belongs to the DOF of rank r in a shared row table.
template <class ID_list, class Vector>
struct indexed1D {
    using value_type = typename Vector::value_type;

    Vector values;
    Ptr<ID_list> IDs;

    unsigned size() const noexcept { return values.size(); }
    bool empty() const noexcept { return values.empty() || !IDs; }
    // Position of a DOF, no_rank when the vector has no entry for it.
    unsigned row_pos(unsigned ID) const noexcept
    {
        const unsigned r = IDs ? IDs->rank(ID) : no_rank;
        return r < values.size() ? r : no_rank;
    }
    value_type& operator[](unsigned r) noexcept { return values[r]; }
    const value_type& operator[](unsigned r) const noexcept { return values[r]; }

    // One zero entry per row of the table, the table shared. False, empty, when
    // memory fails.
    [[nodiscard]] bool create(const Ptr<ID_list>& rows)
    {
        values.clear_hard();
        IDs = rows;
        if (!rows || values.resize(rows->size(), value_type())) return true;
        values.clear_hard();
        return false;
    }
};

using indexed_vector = indexed1D<vector_fast, dense1D<double, 8>>;
using indexed_zvector = indexed1D<vector_fast, dense1D<std::complex<double>, 8>>;

namespace assembly_detail {

template <class T>
bool is_nan(const T& v) noexcept
{
    return v != v;
}

// Packed entry (i, j) of a symmetric element matrix, in either order.
inline double packed(const double* Ke, unsigned i, unsigned j) noexcept
{
    return i <= j ? Ke[std::size_t(j) * (j + 1) / 2 + i] : Ke[std::size_t(i) * (i + 1) / 2 + j];
}

// Entry (i, j) of the full matrix that a packed one stands for: itself, or with
// `symmetric` false the skew matrix whose upper triangle is stored.
inline double full_entry(const double* Ke, unsigned i, unsigned j, bool symmetric) noexcept
{
    if (symmetric) return packed(Ke, i, j);
    if (i == j) return 0.0;
    return i < j ? packed(Ke, i, j) : -packed(Ke, i, j);
}

} // namespace assembly_detail

// Assembles into the upper triangle of a symmetric block matrix. `Target` is an
// indexed_sym: `matrix` offers empty(), nbr_rows() and proxy() (with block_of_row,
// set_read_mode and add_values), `IDs` a row table with rank().
template <class Target>
class matrix_sym_assembler : public matrix_assembler_base {
public:
    matrix_sym_assembler(Target& target_, double factor_ = 1.0) : factor(factor_), target(target_)
    {
        // Room for an ordinary element, so that assembly allocates nothing; an
        // element beyond grows the scratch once, with a report if that fails.
        (void)reserve_scratch(64);
    }

    bool is_null() const override
    {
        return factor == 0.0 || assembly_detail::is_nan(factor) || target.matrix.empty() || !target.IDs;
    }

    error_type add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) override
    {
        return add_diagonal_values(values, IDs);
    }
    error_type add_general(const dense2D<double>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_symmetric(const symmetric_full<double>& values, const dense1D<unsigned, 8>& IDs,
                             bool symmetric) override
    {
        if (!symmetric) return no_error;
        return add_rows(values, IDs, false);
    }

    double factor;

protected:
    struct position_pair {
        unsigned rank;  // matrix position
        unsigned local; // index in the element
    };

    [[nodiscard]] bool reserve_scratch(unsigned n) noexcept
    {
        if (n <= pairs_.size()) return true;
        try {
            pairs_.resize(n);
            values_.resize(n);
            columns_.resize(n);
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    // The element's DOFs that the table holds, as (rank, local) in matrix order.
    // Local order breaks ties, which makes the sort stable without a buffer.
    [[nodiscard]] error_type gather_pairs(const dense1D<unsigned, 8>& IDs, unsigned& count)
    {
        count = 0;
        const unsigned m = IDs.size(), n = target.matrix.nbr_rows();
        if (!reserve_scratch(m)) return memory_error;
        for (unsigned l = 0; l < m; ++l) {
            const unsigned r = target.IDs->rank(IDs[l]);
            if (r < n) pairs_[count++] = {r, l};
        }
        std::sort(pairs_.begin(), pairs_.begin() + count, [](const position_pair& a, const position_pair& b) {
            return a.rank < b.rank || (a.rank == b.rank && a.local < b.local);
        });
        return no_error;
    }

    // One addition per row of the element, the values from the pair itself on (from
    // the next one with `skew`), exact zeros skipped.
    [[nodiscard]] error_type add_rows(const symmetric_full<double>& Ke, const dense1D<unsigned, 8>& IDs, bool skew)
    {
        if (is_null() || IDs.empty() || Ke.order() != IDs.size()) return no_error;
        unsigned count = 0;
        if (auto e = gather_pairs(IDs, count); e != no_error) return e;
        if (count == 0) return no_error;
        auto* data = target.matrix.proxy();
        if (auto e = data->set_read_mode(false); e != no_error) return e;
        const double* packed = Ke.data();
        for (unsigned i = 0; i < count; ++i) {
            const unsigned row = pairs_[i].rank, li = pairs_[i].local;
            unsigned k = 0;
            for (unsigned j = skew ? i + 1 : i; j < count; ++j) {
                const unsigned lj = pairs_[j].local;
                double v = factor * assembly_detail::packed(packed, li, lj);
                if (pairs_[j].rank == row && j != i) {
                    // A DOF repeated in the element: entries (i, j) and (j, i) both land
                    // on the diagonal; for a skew matrix they cancel.
                    if (skew) continue;
                    v += v;
                } else if (skew && lj < li) {
                    v = -v; // the stored triangle holds entry (lj, li)
                }
                if (v == 0.0) continue;
                values_[k] = v;
                columns_[k++] = pairs_[j].rank;
            }
            if (k == 0) continue;
            if (auto e = data->add_values(data->block_of_row(row), row, values_.data(), columns_.data(), k, false);
                e != no_error)
                return e;
        }
        return no_error;
    }

    [[nodiscard]] error_type add_diagonal_values(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs)
    {
        if (is_null() || IDs.empty() || values.size() != IDs.size()) return no_error;
        unsigned count = 0;
        if (auto e = gather_pairs(IDs, count); e != no_error) return e;
        auto* data = target.matrix.proxy();
        if (count)
            if (auto e = data->set_read_mode(false); e != no_error) return e;
        for (unsigned i = 0; i < count; ++i) {
            const double v = factor * values[pairs_[i].local];
            if (v == 0.0) continue;
            const unsigned row = pairs_[i].rank;
            if (auto e = data->add_values(data->block_of_row(row), row, &v, &row, 1, false); e != no_error) return e;
        }
        return no_error;
    }

    Target& target;

private:
    std::vector<position_pair> pairs_;
    std::vector<double> values_;
    std::vector<unsigned> columns_;
};

// The skew part of packed element matrices, above the diagonal only.
template <class Target>
class matrix_skew_assembler : public matrix_sym_assembler<Target> {
public:
    using matrix_sym_assembler<Target>::matrix_sym_assembler;

    error_type add_diagonal(const dense1D<double, 8>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_symmetric(const symmetric_full<double>& values, const dense1D<unsigned, 8>& IDs,
                             bool symmetric) override
    {
        if (symmetric) return no_error;
        return this->add_rows(values, IDs, true);
    }
};

// Element diagonals into a diagonal held as an indexed1D.
template <class Target>
class matrix_diag_assembler : public matrix_assembler_base {
public:
    matrix_diag_assembler(Target& target_, double factor_ = 1.0) : factor(factor_), target(target_) {}

    bool is_null() const override
    {
        return factor == 0.0 || assembly_detail::is_nan(factor) || target.empty();
    }
    error_type add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) override
    {
        if (is_null() || values.size() != IDs.size()) return no_error;
        for (unsigned l = 0; l < IDs.size(); ++l) {
            const double v = factor * values[l];
            const unsigned r = target.row_pos(IDs[l]);
            if (v != 0.0 && r != no_rank) target[r] += v;
        }
        return no_error;
    }
    error_type add_general(const dense2D<double>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_symmetric(const symmetric_full<double>&, const dense1D<unsigned, 8>&, bool) override
    {
        return no_error;
    }

    double factor;
    Target& target;
};

// Picks DOFs by their place (identifier modulo 9), and with `mode` 1 only those in
// `bits`, with `mode` 0 only those out of it; another mode tests no bit. A bit
// beyond the set's size counts as clear.
struct DOF_selector {
    unsigned component = 0;
    unsigned mode = 2;
    packed_bits bits;

    bool selects(unsigned ID) const noexcept
    {
        if (ID % DOFs_mgr::nbr_places != component) return false;
        if (mode > 1) return true;
        const bool in = ID < bits.size && bits.get(ID);
        return mode == 1 ? in : !in;
    }
};

// Sums the entries of element matrices between selected DOFs, both triangles:
// with the indicator u of the selection, uᵀ M u, which for a mass matrix and the
// DOFs of one translation is the mass. Nothing is dropped: there is no row table.
template <class DOF_selector_type>
class matrix_sym_assembler_projection : public matrix_assembler_base {
public:
    explicit matrix_sym_assembler_projection(const DOF_selector_type& selector_, bool symmetric_ = true)
        : selector(selector_), symmetric(symmetric_)
    {
    }

    bool is_null() const override { return false; }
    error_type add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) override
    {
        if (values.size() != IDs.size()) return no_error;
        for (unsigned l = 0; l < IDs.size(); ++l)
            if (selector.selects(IDs[l])) sum += values[l];
        return no_error;
    }
    error_type add_general(const dense2D<double>&, const dense1D<unsigned, 8>&) override { return no_error; }
    // Only elements whose flag is this assembler's own count.
    error_type add_symmetric(const symmetric_full<double>& values, const dense1D<unsigned, 8>& IDs,
                             bool symmetric_) override
    {
        if (symmetric_ != symmetric || values.order() != IDs.size()) return no_error;
        const double* Ke = values.data();
        double s = 0.0;
        for (unsigned j = 0; j < IDs.size(); ++j) {
            if (!selector.selects(IDs[j])) continue;
            for (unsigned i = 0; i < IDs.size(); ++i)
                if (selector.selects(IDs[i])) s += assembly_detail::full_entry(Ke, i, j, symmetric);
        }
        sum += s;
        return no_error;
    }

    const DOF_selector_type& selector;
    bool symmetric;
    double sum = 0.0;
};

// Assembly into a general matrix whose rows and columns are both addressed by DOF
// identifier. `Target` offers value_type, rows(), cols(), row_pos(ID) (no_rank
// when absent) and col(j): a writable dense1D window of the rows() values of
// column j, empty when the column cannot be had. Column j belongs to the DOF whose
// row is j.
template <class Target>
class matrix_general_assembly : public matrix_assembler_base {
public:
    using value_type = typename Target::value_type;

    matrix_general_assembly(Target& target_, value_type factor_) : factor(factor_), target(target_) {}

    bool is_null() const override
    {
        return factor == value_type(0) || assembly_detail::is_nan(factor) || target.rows() == 0 ||
               target.cols() == 0;
    }

    value_type factor;
    Target& target;

protected:
    // Rows of the element's DOFs, no_rank for those that the target lacks.
    [[nodiscard]] bool gather_rows(const dense1D<unsigned, 8>& IDs)
    {
        try {
            rows_.resize(IDs.size());
        } catch (const std::bad_alloc&) {
            return false;
        }
        for (unsigned l = 0; l < IDs.size(); ++l) rows_[l] = target.row_pos(IDs[l]);
        return true;
    }

    // Column after column: one window per element column. `entry(i, j)` gives the
    // element's value.
    template <class Entry>
    [[nodiscard]] error_type add_columns(const dense1D<unsigned, 8>& IDs, Entry&& entry)
    {
        if (!gather_rows(IDs)) return memory_error;
        const unsigned m = IDs.size();
        for (unsigned j = 0; j < m; ++j) {
            const unsigned c = rows_[j];
            if (c == no_rank || c >= target.cols()) continue;
            dense1D<value_type, 8> column = target.col(c);
            if (column.size() != target.rows()) return internal_error;
            for (unsigned i = 0; i < m; ++i) {
                const double v = entry(i, j);
                if (rows_[i] != no_rank && v != 0.0) column[rows_[i]] += factor * v;
            }
        }
        return no_error;
    }

    [[nodiscard]] error_type add_general_values(const dense2D<double>& Ke, const dense1D<unsigned, 8>& IDs)
    {
        if (is_null() || Ke.rows() != IDs.size() || Ke.cols() != IDs.size()) return no_error;
        return add_columns(IDs, [&](unsigned i, unsigned j) { return Ke(i, j); });
    }
    [[nodiscard]] error_type add_symmetric_values(const symmetric_full<double>& Ke, const dense1D<unsigned, 8>& IDs,
                                                  bool symmetric)
    {
        if (is_null() || Ke.order() != IDs.size()) return no_error;
        const double* packed = Ke.data();
        return add_columns(IDs,
                           [&](unsigned i, unsigned j) { return assembly_detail::full_entry(packed, i, j, symmetric); });
    }
    [[nodiscard]] error_type add_diagonal_values(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs)
    {
        if (is_null() || values.size() != IDs.size()) return no_error;
        for (unsigned l = 0; l < IDs.size(); ++l) {
            const unsigned r = target.row_pos(IDs[l]);
            if (r == no_rank || r >= target.cols() || values[l] == 0.0) continue;
            dense1D<value_type, 8> column = target.col(r);
            if (column.size() != target.rows()) return internal_error;
            column[r] += factor * values[l];
        }
        return no_error;
    }

private:
    std::vector<unsigned> rows_;
};

// Everything into a general matrix, typically complex, with a factor of its type.
template <class Target>
class matrix_gen_assembler : public matrix_general_assembly<Target> {
public:
    using value_type = typename Target::value_type;

    matrix_gen_assembler(Target& target_, value_type factor_ = value_type(1))
        : matrix_general_assembly<Target>(target_, factor_)
    {
    }

    error_type add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) override
    {
        return this->add_diagonal_values(values, IDs);
    }
    error_type add_general(const dense2D<double>& values, const dense1D<unsigned, 8>& IDs) override
    {
        return this->add_general_values(values, IDs);
    }
    error_type add_symmetric(const symmetric_full<double>& values, const dense1D<unsigned, 8>& IDs,
                             bool symmetric) override
    {
        return this->add_symmetric_values(values, IDs, symmetric);
    }
};

// General element matrices only, into a real matrix.
template <class Target>
class matrix_indexed2d_assembler : public matrix_general_assembly<Target> {
public:
    matrix_indexed2d_assembler(Target& target_, double factor_ = 1.0) : matrix_general_assembly<Target>(target_, factor_)
    {
    }

    error_type add_diagonal(const dense1D<double, 8>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_general(const dense2D<double>& values, const dense1D<unsigned, 8>& IDs) override
    {
        return this->add_general_values(values, IDs);
    }
    error_type add_symmetric(const symmetric_full<double>&, const dense1D<unsigned, 8>&, bool) override
    {
        return no_error;
    }
};

// Element vectors into an indexed1D of double or complex, with a factor of the
// vector's type.
template <class Target>
class vector_assembler : public vector_assembler_base {
public:
    using value_type = typename Target::value_type;

    vector_assembler(Target& target_, value_type factor_ = value_type(1)) : factor(factor_), target(target_) {}

    bool is_null() const override
    {
        return factor == value_type(0) || assembly_detail::is_nan(factor) || target.empty();
    }
    error_type add(unsigned ID, double value) override
    {
        if (is_null()) return no_error;
        add_one(ID, value);
        return no_error;
    }
    error_type add_vector(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) override
    {
        if (is_null() || values.size() != IDs.size()) return no_error;
        for (unsigned l = 0; l < IDs.size(); ++l) add_one(IDs[l], values[l]);
        return no_error;
    }

    value_type factor;
    Target& target;

private:
    void add_one(unsigned ID, double value) noexcept
    {
        const value_type v = factor * value;
        if (v == value_type(0) || assembly_detail::is_nan(v)) return;
        const unsigned r = target.row_pos(ID);
        if (r != no_rank) target[r] += v;
    }
};

// One entry of a coupling block K_im: interior rank, master rank, value.
struct coupling_entry {
    unsigned row;
    unsigned master;
    double value;
};

// Splits element matrices between interior and master DOFs in one sweep: the
// interior block into the symmetric matrix (whose table holds the interior DOFs
// only), the coupling block as entries (repeats summed later by the caller), the
// master block into a dense symmetric matrix. `masters` ranks the master DOFs as
// rows of K_mm; a DOF in neither table is dropped.
class matrix_split_assembler final : public matrix_sym_assembler<indexed_sym_matrix> {
public:
    matrix_split_assembler(indexed_sym_matrix& interior, const vector_fast& masters_, symmetric_full<double>& Kmm_,
                           std::vector<coupling_entry>& Kim_)
        : matrix_sym_assembler<indexed_sym_matrix>(interior), masters(masters_), Kmm(Kmm_), Kim(Kim_)
    {
    }

    bool is_null() const override { return false; }
    error_type add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) override;
    error_type add_symmetric(const symmetric_full<double>& values, const dense1D<unsigned, 8>& IDs,
                             bool symmetric) override;

    const vector_fast& masters;
    symmetric_full<double>& Kmm;
    std::vector<coupling_entry>& Kim;
};

using sym_assembler = matrix_sym_assembler<indexed_sym_matrix>;
using skew_assembler = matrix_skew_assembler<indexed_sym_matrix>;

extern template class matrix_sym_assembler<indexed_sym_matrix>;
extern template class matrix_skew_assembler<indexed_sym_matrix>;
extern template class matrix_diag_assembler<indexed_vector>;
extern template class matrix_sym_assembler_projection<DOF_selector>;
extern template class vector_assembler<indexed_vector>;
extern template class vector_assembler<indexed_zvector>;

// Element matrices times DOF values, added to a vector over the same rows:
// y[r_i] += factor * sum_j Ke(i, j) x[r_j], for rows r_i in [y_first, y_end) and
// r_j in [x_first, x_end) of the row table; other DOFs drop out. This is how the
// model gives K_ab x_b without an assembled K_ab.
class matrix_product_assembler final : public matrix_assembler_base {
public:
    struct row_range {
        unsigned first;
        unsigned end;
        bool holds(unsigned r) const noexcept { return r >= first && r < end; }
    };

    matrix_product_assembler(const vector_fast& rows, const double* x, row_range x_rows, double* y, row_range y_rows,
                             double factor);

    bool is_null() const override;
    error_type add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) override;
    error_type add_general(const dense2D<double>& values, const dense1D<unsigned, 8>& IDs) override;
    error_type add_symmetric(const symmetric_full<double>& values, const dense1D<unsigned, 8>& IDs,
                             bool symmetric) override;

private:
    // Rows of the element's DOFs, and the values of x there (0 outside its range).
    [[nodiscard]] bool gather(const dense1D<unsigned, 8>& IDs);
    // y += factor values x over the element's rows that lie in the y range.
    template <class Matrix>
    [[nodiscard]] error_type add_product(const Matrix& values, const dense1D<unsigned, 8>& IDs);

    const vector_fast& rows_;
    const double* x_;
    row_range x_rows_;
    double* y_;
    row_range y_rows_;
    double factor_;
    std::vector<unsigned> local_rows_;
    std::vector<double> local_x_;
};

} // namespace kelt::core
