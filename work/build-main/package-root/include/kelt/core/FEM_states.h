// A matrix whose columns are system states, each with the thermal loads and the
// internal states of the laws that go with it.
#pragma once

#include <vector>

#include "kelt/core/FEM_matrix.h"
#include "kelt/core/stress_mgr.h"

namespace kelt::core {

template <class Matrix>
class FEM_states : public Matrix {
public:
    FEM_states() = default;
    // Shares the data and rows of `m`; no column has its managers yet.
    explicit FEM_states(const Matrix& m) : Matrix(m) { fit_pointers(); }
    FEM_states(const FEM_states& o) : Matrix(o), stress_mgrs(o.stress_mgrs), internal_states(o.internal_states) {}
    // A window of columns with their managers.
    FEM_states(const FEM_states& src, unsigned first, unsigned n) : Matrix(src, first, n)
    {
        if (this->cols() != n) {
            fit_pointers();
            return;
        }
        for (unsigned j = 0; j < n; ++j) {
            stress_mgrs.push_back(src.stress_mgr(first + j));
            internal_states.push_back(src.internal_state(first + j));
        }
    }

    unsigned size() const noexcept { return this->cols(); }

    // Deep copy of the values; the managers are shared.
    [[nodiscard]] bool copy(const FEM_states& src)
    {
        if (&src == this) return true;
        if (!Matrix::copy(src)) return false;
        stress_mgrs = src.stress_mgrs;
        internal_states = src.internal_states;
        fit_pointers();
        return true;
    }
    void clear()
    {
        Matrix::clear();
        stress_mgrs.clear();
        internal_states.clear();
    }

    stress_super_mgr* stress_mgr(unsigned i) const noexcept
    {
        return i < stress_mgrs.size() ? stress_mgrs[i].get() : nullptr;
    }
    ref_counted* internal_state(unsigned i) const noexcept
    {
        return i < internal_states.size() ? internal_states[i].get() : nullptr;
    }
    // False out of range.
    bool set_stress_mgr(unsigned i, stress_super_mgr* mgr)
    {
        if (i >= size()) return false;
        fit_pointers();
        stress_mgrs[i] = mgr;
        return true;
    }
    bool set_internal_state(unsigned i, ref_counted* states)
    {
        if (i >= size()) return false;
        fit_pointers();
        internal_states[i] = states;
        return true;
    }

    // One entry per column. The internal states are `internal_states` stores,
    // held by their counted base.
    std::vector<Ptr<stress_super_mgr>> stress_mgrs;
    std::vector<Ptr<ref_counted>> internal_states;

private:
    void fit_pointers()
    {
        stress_mgrs.resize(this->cols());
        internal_states.resize(this->cols());
    }
};

using FEM_real_states = FEM_states<FEM_real>;

extern template class FEM_states<FEM_real>;

} // namespace kelt::core
