#include "kelt/fem/phases/problem.h"

#include <algorithm>
#include <new>

namespace kelt::core {

numerical_model_base* take_problem(run_state& run, problem_data* problem)
{
    if (!problem || problem->nbr_load_cases() == 0) return nullptr;
    run.set_problem(problem, true);
    return problem->model();
}

FEM_real_states& output_states(fem::FEM_states& handle)
{
    auto* U = static_cast<FEM_real_states*>(fem::core_of(handle));
    if (!U) {
        U = new FEM_real_states;
        fem::attach(handle, U);
    }
    U->clear();
    return *U;
}

FEM_real& output_matrix(fem::FEM_matrix& handle)
{
    auto* U = static_cast<FEM_real*>(fem::core_of(handle));
    if (!U) {
        U = new FEM_real;
        fem::attach(handle, U);
    }
    U->clear();
    return *U;
}

FEM_real_states* input_states(const fem::FEM_states& handle) noexcept
{
    return static_cast<FEM_real_states*>(fem::core_of(handle));
}

prescribed_set collect_prescribed(const problem_data& problem)
{
    prescribed_set s;
    const unsigned n = problem.nbr_load_cases();
    s.offsets.assign(1, 0);
    std::vector<unsigned> list;
    for (unsigned i = 0; i < n; ++i) {
        dense1D<unsigned, 8> ids;
        if (const loads_mgr* loads = problem.loads[i].get()) loads->prescribed_IDs(ids);
        list.assign(ids.begin(), ids.end());
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        if (!s.IDs.reserve(s.IDs.size() + unsigned(list.size()), 2)) throw std::bad_alloc();
        for (unsigned id : list) s.IDs.push_back(id);
        s.offsets.push_back(s.IDs.size());
    }
    if (n == 0) return s;
    // The intersection, kept in place by a merge with each further case.
    std::vector<unsigned> common(s.begin(0), s.end(0));
    for (unsigned i = 1; i < n && !common.empty(); ++i) {
        const unsigned *b = s.begin(i), *e = s.end(i);
        std::size_t kept = 0;
        for (unsigned id : common) {
            while (b != e && *b < id) ++b;
            if (b != e && *b == id) common[kept++] = id;
        }
        common.resize(kept);
    }
    if (!s.common.reserve(unsigned(common.size()), 1)) throw std::bad_alloc();
    for (unsigned id : common) s.common.push_back(id);
    return s;
}

FEM_real* output_matrix(fem::FEM_matrix& handle, const dense1D<unsigned, 8>& IDs, unsigned cols)
{
    Ptr<FEM_real> m = new FEM_real(IDs, cols);
    fem::attach(handle, m.get());
    if (m->rows() != IDs.size() || m->cols() != cols) {
        m->clear();
        return nullptr;
    }
    return m.get();
}

} // namespace kelt::core
