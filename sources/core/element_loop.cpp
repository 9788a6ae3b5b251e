// The element loops of every model: the range of elements, the evolution factor,
// the thread rule, and the parallel loop in which elements are computed
// concurrently and assembled one at a time in element order, so that sums do not
// depend on the number of threads. Also the defaults of the element operations.
#include <algorithm>
#include <exception>
#include <memory>
#include <vector>

#include <omp.h>

#include "kelt/core/context.h"
#include "kelt/core/element_catalogue.h"
#include "kelt/core/element_records.h"
#include "kelt/core/elementary_load.h"
#include "kelt/core/load_pass.h"

namespace kelt::core {

namespace {

struct element_range {
    unsigned first;
    unsigned last;
};

element_range range_of(unsigned selector, unsigned n) noexcept
{
    if (selector == all_elements) return {0, n};
    if (selector >= n) return {0, 0};
    return {selector, selector + 1};
}

unsigned thread_count(const context_type* context) noexcept
{
    if (!context || !context->process_mgr) return 1;
    return std::max(1u, context->process_mgr->max_threads);
}

double load_evolution(const context_type* context, unsigned func, double t)
{
    if (!context || !context->evolution_funcs_mgr) return 1.0;
    const evolution_func_base* f = context->evolution_funcs_mgr->get(func);
    return f ? f->value(t) : 1.0;
}

// Global number of the first element of a model, none when the registry has none.
unsigned global_first_element(const context_type* context, unsigned model) noexcept
{
    if (!context || !context->numerical_models_mgr) return numerical_models_mgr::none;
    return context->numerical_models_mgr->global_FE_ID(model);
}

// One element into the assemblers and totals. The order of the tests decides which
// matrix form an element delivers when it has filled more than one.
error_type accumulate(const element_work_type& w, element_pass_type& pass, unsigned global_first)
{
    if (matrix_assembler_base* m = pass.matrix; m && !m->is_null()) {
        error_type e = no_error;
        if (w.Ke.order() != 0) {
            e = m->add_symmetric(w.Ke, w.DOFs, true);
        } else if (!w.Kdiag.empty()) {
            e = m->add_diagonal(w.Kdiag, w.DOFs);
        } else if (!w.Kblocks.empty()) {
            for (const element_block& b : w.Kblocks)
                if (e = m->add_symmetric(b.K, b.DOFs, true); e != no_error) break;
        } else if (w.Kgen.rows() * w.Kgen.cols() != 0) {
            e = m->add_general(w.Kgen, w.DOFs);
        }
        if (e != no_error) return e;
    }
    if (vector_assembler_base* v = pass.vector; v && !v->is_null() && !w.Fe.empty())
        if (auto e = v->add_vector(w.Fe, w.DOFs); e != no_error) return e;
    if (w.energy != 0.0 && pass.element_energies && pass.energy_map && global_first != numerical_models_mgr::none) {
        const unsigned r = pass.energy_map->rank(global_first + w.element);
        if (r != vector_fast::none && std::uint64_t(pass.energy_offset) + r < pass.element_energies->size())
            (*pass.element_energies)[pass.energy_offset + r] += w.energy;
    }
    pass.total_energy += w.energy;
    for (unsigned k = 0; k < 4; ++k) pass.sums4[k] += w.sums4[k];
    for (unsigned k = 0; k < 6; ++k) pass.sums6[k] += w.sums6[k];
    return no_error;
}

void keep_first(std::exception_ptr& failure)
{
#pragma omp critical(kelt_element_loop_failure)
    {
        if (!failure) failure = std::current_exception();
    }
}

// compute(work) for each element of the range, then accumulate(work) in element
// order, so that results do not depend on the thread count. Elements are computed
// concurrently a chunk at a time, each into a work record of its own, and the chunk
// is then accumulated in order by this thread: a thread that the system puts aside
// delays one chunk, not every element after it. Serial when the range is no longer
// than the thread count. The first failure in element order is returned; nothing
// after it is accumulated.
template <class Compute, class Accumulate>
error_type element_loop(element_range r, unsigned nt, element_work_type& work, const Compute& compute,
                        const Accumulate& accumulate, loop_progress* progress = nullptr)
{
    const unsigned n = r.last > r.first ? r.last - r.first : 0;
    if (n <= nt || nt < 2) {
        for (unsigned e = r.first; e < r.last; ++e) {
            work.element = e;
            if (auto err = compute(work); err != no_error) return err;
            if (auto err = accumulate(work); err != no_error) return err;
            if (progress && !progress->elements_done(1)) return interrupted_warning;
        }
        return no_error;
    }
    const unsigned chunk = std::min(n, 16 * nt);
    std::vector<std::unique_ptr<element_work_type>> slots(chunk);
    for (auto& l : slots) l = work.private_copy();
    std::vector<error_type> errors(chunk);
    std::exception_ptr failure;
    for (unsigned c0 = r.first; c0 < r.last; c0 += chunk) {
        const int count = int(std::min(chunk, r.last - c0));
#pragma omp parallel for num_threads(int(nt)) schedule(dynamic, 1)
        for (int k = 0; k < count; ++k) {
            element_work_type& local = *slots[unsigned(k)];
            try {
                local.element = c0 + unsigned(k);
                errors[unsigned(k)] = compute(local);
            } catch (...) {
                keep_first(failure);
                errors[unsigned(k)] = internal_error;
            }
        }
        if (failure) std::rethrow_exception(failure);
        for (unsigned k = 0; k < unsigned(count); ++k) {
            if (errors[k] != no_error) return errors[k];
            if (auto err = accumulate(*slots[k]); err != no_error) return err;
        }
        if (progress && !progress->elements_done(unsigned(count))) return interrupted_warning;
    }
    return no_error;
}

} // namespace

unsigned numerical_model_base::element_dim() const { return ::kelt::element_dim(get_FE_type()); }

error_type numerical_model_base::compute_element(pass_kind, element_work_type& work) const
{
    work.clear_outputs();
    work.DOFs.clear();
    return no_error;
}

error_type numerical_model_base::compute_element_load(const elementary_load&, element_work_type& work) const
{
    work.clear_outputs();
    work.DOFs.clear();
    return no_error;
}

error_type numerical_model_base::compute_element_results(pass_kind, unsigned, element_work_type& work) const
{
    work.clear_outputs();
    work.DOFs.clear();
    return no_error;
}

error_type numerical_model_base::run_elements(pass_kind kind, element_pass_type& pass)
{
    const element_range r = range_of(pass.element, nbr_elements());
    element_work_type work;
    work.start(pass, ID);
    work.factor *= evolution_factor(pass.time);
    if (work.factor == 0.0 || !handles_field_family(kind)) return no_error;
    if (pass.has_thermal && pass.thermal) work.thermal = pass.thermal->get_thermal(ID);
    const unsigned global_first = global_first_element(context, ID);
    const error_type e = element_loop(
        r, thread_count(context), work, [&](element_work_type& w) { return compute_element(kind, w); },
        [&](element_work_type& w) { return accumulate(w, pass, global_first); }, pass.progress);
    if (e != no_error || !pass.commit) return e;
    return commit_states();
}

error_type numerical_model_base::run_element_loads(const elementary_load& load, load_pass_type& pass)
{
    if (pass.assembler.is_null() || pass.factor == 0.0) return no_error;
    const element_range r = range_of(pass.element, nbr_elements());
    element_work_type work;
    if (pass.element_pass) work.start(*pass.element_pass, ID);
    work.model = ID;
    work.matrix_mode = matrix_none;
    work.vector_mode = 1;
    work.thermal = nullptr;
    work.time = pass.time;
    work.factor = pass.factor * evolution_factor(pass.time) * load_evolution(context, load.func, pass.time);
    if (work.factor == 0.0) return no_error;
    return element_loop(
        r, thread_count(context), work, [&](element_work_type& w) { return compute_element_load(load, w); },
        [&](element_work_type& w) {
            return w.Fe.empty() ? no_error : pass.assembler.add_vector(w.Fe, w.DOFs);
        });
}

error_type numerical_model_base::run_element_results(pass_kind kind, unsigned result, element_pass_type& pass)
{
    if (!pass.results) return no_error;
    const element_range r = range_of(pass.element, nbr_elements());
    element_work_type work;
    work.start(pass, ID);
    work.matrix_mode = matrix_none;
    work.vector_mode = 0;
    work.factor *= evolution_factor(pass.time);
    if (work.factor == 0.0 || !handles_field_family(kind)) return no_error;
    if (pass.has_thermal && pass.thermal) work.thermal = pass.thermal->get_thermal(ID);
    return element_loop(
        r, thread_count(context), work, [&](element_work_type& w) { return compute_element_results(kind, result, w); },
        [&](element_work_type& w) {
            if (w.results.cols() == 0) return no_error;
            return pass.results->add_element_results(w);
        });
}

} // namespace kelt::core
