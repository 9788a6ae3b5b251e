#include "kelt/fem/phases/numbering.h"

#include <new>
#include <vector>

#include "kelt/core/DOFs_mgr.h"

namespace kelt::core {

namespace {

bool number_kinds(run_state& run, const numerical_model_base& model, const pass_kind* kinds, unsigned nbr_kinds,
                  const dense1D<unsigned, 8>& excluded, bool order_only, numbering& out, double& timer)
{
    {
        phase_timer t(timer);
        const problem_data& problem = *run.problem;
        dense1D<unsigned, 8> model_DOFs, kept;
        std::vector<unsigned> ends, element_DOFs;
        error_type e = no_error;
        // The rows of every kind follow one another: an element listed by two
        // kinds makes two rows of the same connectivity.
        vector_fast all_DOFs;
        for (unsigned k = 0; k < nbr_kinds && e == no_error; ++k) {
            e = model.get_model_DOFs(kinds[k], problem.pos, all_fields, model_DOFs);
            for (unsigned id : model_DOFs)
                if (e == no_error && all_DOFs.push_back(id) == vector_fast::none) e = memory_error;
            if (e == no_error)
                e = model.get_elements_DOFs(all_elements, kinds[k], problem.pos, all_fields, ends, element_DOFs);
        }
        if (e == no_error && !model_DOFs.copy(all_DOFs.IDs())) e = memory_error;
        if (e == no_error) {
            if (!kept.reserve(model_DOFs.size(), 1)) throw std::bad_alloc();
            for (unsigned id : model_DOFs) {
                bool free_DOF = false;
                if (problem.DOFs) (void)problem.DOFs->get(id, free_DOF);
                if (free_DOF) kept.push_back(id);
            }
            e = number_and_profile(kept, ends, element_DOFs, excluded, order_only, *out.free_IDs, out.profile,
                                   out.K_bytes, out.index_bytes);
            out.K_size_MB = profile_megabytes(out.K_bytes, out.index_bytes);
        }
        if (e != no_error) KELT_RAISE(run, e, "Model error.");
    }
    run.log(1, "Nbr free DOFs            : %10llu \n", (unsigned long long)out.size());
    return !run.stop_requested();
}

} // namespace

bool number_DOFs(run_state& run, const numerical_model_base& model, pass_kind kind,
                 const dense1D<unsigned, 8>& excluded, bool order_only, numbering& out, double& timer)
{
    return number_kinds(run, model, &kind, 1, excluded, order_only, out, timer);
}

bool number_DOFs(run_state& run, const numerical_model_base& model, std::initializer_list<pass_kind> kinds,
                 const dense1D<unsigned, 8>& excluded, numbering& out, double& timer)
{
    return number_kinds(run, model, kinds.begin(), unsigned(kinds.size()), excluded, false, out, timer);
}

void log_K_request(const run_state& run, const numbering& n)
{
    if (n.K_bytes < 0xFFFFFFFFu)
        run.log(2, "Requested memory for K   : %10llu doubles (%.2f MB) \n", (unsigned long long)(n.K_bytes / 8),
                n.K_size_MB);
    else
        run.log(2, "Requested memory for K   : more than %.2f GB ! \n", 3.9999999990686774);
}

void log_states_request(const run_state& run, unsigned long long values, double megabytes)
{
    run.log(2, "Requested memory for RHS : %10llu doubles (%.2f MB) \n", values, megabytes);
}

} // namespace kelt::core
