#include "kelt/fem/problem_data.h"

#include "kelt/core/context.h"
#include "kelt/core/problem_data.h"
#include "kelt/fem/context.h"
#include "kelt/fem/handle_call.h"

namespace kelt::fem {

namespace {

using pd = core::problem_data;
using detail::held;
using detail::run;

core::context_type* core_context(const context& ctx) { return static_cast<core::context_type*>(core_of(ctx)); }

// A new problem combining the cases of `p`.
void combined(problem_data& h, const problem_data& p, const dense2D<double>& load_factors,
              const dense2D<double>& stress_factors) noexcept
{
    try {
        Ptr<pd> from = held<pd>(p);
        Ptr<pd> made = new pd(from ? from->context.get() : nullptr);
        if (from) (void)made->combine(*from, load_factors, stress_factors);
        attach(h, made.get());
    } catch (...) {
    }
}

// `entry`, an empty handle, attached to entry i of one of the per-case lists when
// there is one.
template <auto list, class H>
H case_entry(H entry, const problem_data& h, unsigned i)
{
    Ptr<pd> p = held<pd>(h);
    if (p && i < ((*p).*list).size()) attach(entry, ((*p).*list)[i].get());
    return entry;
}

// Replaces entry i; out of range, or with an empty handle, nothing happens.
template <class Core, auto list, class H>
void set_case_entry(problem_data& h, unsigned i, const H& entry)
{
    auto* c = static_cast<Core*>(core_of(entry));
    run<pd>(h, [&](pd& p) {
        if (c && i < (p.*list).size()) (p.*list)[i] = c;
    });
}

} // namespace

problem_data::problem_data(context& ctx) { create(ctx); }

problem_data::problem_data(context& ctx, dense2D<double>& pos, DOFs_mgr& DOFs, unsigned NM_ID, unsigned n)
{
    create(ctx);
    init(pos, DOFs, NM_ID, n);
}

problem_data::problem_data(const problem_data& p, const dense2D<double>& load_factors)
{
    combined(*this, p, load_factors, load_factors);
}

problem_data::problem_data(const problem_data& p, const dense2D<double>& load_factors,
                           const dense2D<double>& stress_factors)
{
    combined(*this, p, load_factors, stress_factors);
}

void problem_data::create(context& ctx)
{
    try {
        set_w(new pd(core_context(ctx)));
    } catch (...) {
        clear_w();
    }
}

void problem_data::init(dense2D<double>& pos, DOFs_mgr& DOFs, unsigned NM_ID, unsigned n)
{
    run<pd>(*this, [&](pd& p) { (void)p.init(pos, static_cast<core::DOFs_mgr*>(core_of(DOFs)), NM_ID, n); });
}

unsigned problem_data::NM_ID() const
{
    const pd* p = core<pd>();
    return p ? p->NM_ID : core::no_model;
}

bool problem_data::has_numerical_model() const
{
    Ptr<pd> p = hold<pd>();
    return p && p->model();
}

dense2D<double> problem_data::get_pos_matrix() const
{
    Ptr<pd> p = hold<pd>();
    return p ? p->pos : dense2D<double>();
}

void problem_data::set_pos_matrix(dense2D<double>& pos)
{
    run<pd>(*this, [&](pd& p) { p.set_pos_matrix(pos); });
}

DOFs_mgr problem_data::get_DOFs_mgr() const
{
    DOFs_mgr h;
    if (Ptr<pd> p = hold<pd>()) attach(h, p->DOFs.get());
    return h;
}

unsigned problem_data::nbr_load_cases() const
{
    const pd* p = core<pd>();
    return p ? p->nbr_load_cases() : 0;
}

loads_mgr problem_data::get_loads_mgr(unsigned i) const { return case_entry<&pd::loads>(loads_mgr(), *this, i); }

void problem_data::set_loads_mgr(unsigned i, const loads_mgr& loads)
{
    set_case_entry<core::loads_mgr, &pd::loads>(*this, i, loads);
}

stress_mgr problem_data::get_stress_mgr(unsigned i) const { return case_entry<&pd::stresses>(stress_mgr(), *this, i); }

void problem_data::set_stress_mgr(unsigned i, const stress_mgr& stresses)
{
    set_case_entry<core::stress_super_mgr, &pd::stresses>(*this, i, stresses);
}

double problem_data::get_penalty_factor(field_tag tag) const
{
    Ptr<pd> p = hold<pd>();
    return p ? p->get_penalty_factor(tag) : 1.0;
}

} // namespace kelt::fem
