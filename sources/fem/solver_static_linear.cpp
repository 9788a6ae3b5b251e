// The records and handles of the static linear solvers, and the one instance of
// each working class.
#include "kelt/fem/solver_static_linear.h"

#include <cstring>

namespace kelt::core {

template class solver_static_linear<OOC_matrix_types, fem::solver_static_linear::settings_type,
                                    fem::solver_static_linear::data_type>;
template class solver_static_linear<OOC_matrix_types, fem::solver_thermal_static_linear::settings_type,
                                    fem::solver_thermal_static_linear::data_type>;

} // namespace kelt::core

namespace kelt::fem {

using data_type = solver_static_linear::data_type;

data_type::data_type(const problem_data& p) : problem_data(p), U_ref(U), RHS_size_ref(RHS_size_MB)
{
    clear_data_out();
}

data_type::data_type(const data_type& o) : problem_data(o), U_ref(U), RHS_size_ref(RHS_size_MB) { copy_fields(o); }

data_type& data_type::operator=(const data_type& o)
{
    if (&o == this) return *this;
    problem_data::operator=(o);
    copy_fields(o);
    return *this;
}

// Every field but the two aliases, which stay on this record's own fields.
void data_type::copy_fields(const data_type& o)
{
    U_start = o.U_start;
    U = o.U;
    nbr_free_DOFs = o.nbr_free_DOFs;
    nbr_prescribed_in_K = o.nbr_prescribed_in_K;
    nbr_prescribed_out_K = o.nbr_prescribed_out_K;
    nbr_rows = o.nbr_rows;
    energies = o.energies;
    bad_IDs = o.bad_IDs;
    nbr_bad = o.nbr_bad;
    pivot_min = o.pivot_min;
    pivot_max = o.pivot_max;
    bad_pivot_ID = o.bad_pivot_ID;
    K_size_MB = o.K_size_MB;
    RHS_size_MB = o.RHS_size_MB;
    total_size_MB = o.total_size_MB;
    uses_disk = o.uses_disk;
    error_code = o.error_code;
    warning_code = o.warning_code;
    std::memcpy(msg_title, o.msg_title, sizeof msg_title);
    std::memcpy(msg_detail, o.msg_detail, sizeof msg_detail);
    time_numbering = o.time_numbering;
    time_K_assembly = o.time_K_assembly;
    time_RHS_assembly = o.time_RHS_assembly;
    time_factorization = o.time_factorization;
    time_resolution = o.time_resolution;
    time_total = o.time_total;
}

void data_type::clear_data_out()
{
    U.clear();
    nbr_free_DOFs = nbr_prescribed_in_K = nbr_prescribed_out_K = nbr_rows = 0;
    energies.clear();
    bad_IDs.clear();
    nbr_bad = 0;
    pivot_min = pivot_max = 0.0;
    bad_pivot_ID = 0xFFFFFFFFu;
    K_size_MB = RHS_size_MB = total_size_MB = 0.0;
    uses_disk = false;
    error_code = warning_code = no_error;
    msg_title[0] = msg_detail[0] = 0;
    time_numbering = time_K_assembly = time_RHS_assembly = time_factorization = time_resolution = time_total = 0.0;
}

bool data_type::valid() const { return has_numerical_model(); }

void solver_static_linear::run(data_type& data) const
{
    core::solver_static_linear<core::OOC_matrix_types, settings_type, data_type> solver(settings, data);
    core::run_frame(solver, nullptr, "KELT solver_static_linear: invalid data.\n", [&] {
        solver.run();
        solver.compact_solution();
    });
}

void solver_thermal_static_linear::run(data_type& data) const
{
    core::solver_static_linear<core::OOC_matrix_types, settings_type, data_type> solver(settings, data,
                                                                                       core::static_family::thermal);
    core::run_frame(solver, nullptr, "KELT solver_thermal_static_linear: invalid data.\n", [&] {
        solver.run();
        solver.compact_solution();
    });
}

} // namespace kelt::fem
