// What a run tells of its solution columns: norms and the extremes of a field.
#pragma once

#include "kelt/core/vector_fast.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

double two_norm(const dense1D<double, 8>& v) noexcept;

// The extremes over the rows of a column whose DOF place lies in [first_place,
// last_place]; both 0 when there is none.
void field_range(const dense1D<double, 8>& col, const vector_fast& rows, unsigned first_place, unsigned last_place,
                 double& lo, double& hi) noexcept;

class run_state;

// The two report lines of a field's extremes over column i, "%3d max NAME : ..."
// and "%3d min NAME : ...", the name padded to line up the colons: the extremes
// over the rows whose DOF place lies in [first_place, last_place], both 0 when
// there is none.
void log_field_extremes(const run_state& run, unsigned i, const char* name, const dense1D<double, 8>& col,
                        const vector_fast& rows, unsigned first_place, unsigned last_place);

} // namespace kelt::core
