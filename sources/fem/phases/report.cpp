#include "kelt/fem/phases/report.h"

#include <cmath>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/fem/solver_frame.h"

namespace kelt::core {

double two_norm(const dense1D<double, 8>& v) noexcept
{
    double s = 0.0;
    for (double x : v) s += x * x;
    return std::sqrt(s);
}

void field_range(const dense1D<double, 8>& col, const vector_fast& rows, unsigned first_place, unsigned last_place,
                 double& lo, double& hi) noexcept
{
    bool any = false;
    lo = hi = 0.0;
    for (unsigned r = 0; r < col.size() && r < rows.size(); ++r) {
        const unsigned place = rows[r] % DOFs_mgr::nbr_places;
        if (place < first_place || place > last_place) continue;
        const double v = col[r];
        if (!any || v < lo) lo = v;
        if (!any || v > hi) hi = v;
        any = true;
    }
}

void log_field_extremes(const run_state& run, unsigned i, const char* name, const dense1D<double, 8>& col,
                        const vector_fast& rows, unsigned first_place, unsigned last_place)
{
    double lo = 0.0, hi = 0.0;
    field_range(col, rows, first_place, last_place, lo, hi);
    run.log(2, "%3d max %-17s: %+E \n", int(i), name, hi);
    run.log(2, "%3d min %-17s: %+E \n", int(i), name, lo);
}

} // namespace kelt::core
