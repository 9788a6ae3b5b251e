// Public matrix of system states: a FEM_matrix whose every column carries the
// thermal loads and the internal states of the laws that go with it.
#pragma once

#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/stress_mgr.h"

namespace kelt::fem {

class FEM_states : public FEM_matrix {
public:
    FEM_states();
    // Shares the data and rows of `m`; columns start with no managers, unless `m`
    // is itself a matrix of states.
    explicit FEM_states(const FEM_matrix& m);
    // A window of n columns from `first`, with their managers.
    FEM_states(const FEM_states& src, unsigned first, unsigned n);

    // Deep copy of the values; the managers are shared.
    void copy(const FEM_states& src);
    void clear();
    // The number of states, that is of columns.
    unsigned size() const;
    // A one-column window; empty out of range.
    FEM_states get_state(unsigned i) const;
    FEM_states front() const;
    FEM_states back() const;
    // -1 out of range, else 0.
    int set_stress_mgr(unsigned i, const stress_mgr& mgr);
    // -1 out of range. In range it gives 0 and leaves `mgr` attached as it was:
    // solvers reach the manager of a column through the core.
    int get_stress_mgr(unsigned i, stress_mgr& mgr) const;
};

} // namespace kelt::fem
