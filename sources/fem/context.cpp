#include "kelt/fem/context.h"

#include "kelt/core/context.h"
#include "kelt/core/OOC_mgr.h"

namespace kelt::fem {

namespace {
core::context_type& ctx(const base_class& h) { return *static_cast<core::context_type*>(core_of(h)); }
} // namespace

context::context() { set_w(new core::context_type); }

double context::get_raw_penalty_factor() const { return ctx(*this).raw_penalty_factor; }
void context::set_raw_penalty_factor(double f) { ctx(*this).raw_penalty_factor = f; }
double context::get_min_penalty_factor() const { return ctx(*this).min_penalty_factor; }
void context::set_min_penalty_factor(double f) { ctx(*this).min_penalty_factor = f; }
double context::get_shell_drilling_factor() const { return ctx(*this).shell_drilling_factor; }
void context::set_shell_drilling_factor(double f) { ctx(*this).shell_drilling_factor = f; }

unsigned context::get_max_threads() const
{
    Ptr<core::process_mgr> p = hold<core::context_type>()->process_mgr;
    return p->max_threads;
}

void context::set_max_threads(unsigned n)
{
    Ptr<core::process_mgr> p = hold<core::context_type>()->process_mgr;
    p->set_max_threads(n);
}

unsigned context::get_LLC_size() const
{
    Ptr<core::process_mgr> p = hold<core::context_type>()->process_mgr;
    return p->LLC_size;
}

void context::set_LLC_size(unsigned bytes)
{
    Ptr<core::process_mgr> p = hold<core::context_type>()->process_mgr;
    p->set_LLC_size(bytes);
}

void context::set_max_total_size(unsigned mb)
{
    Ptr<core::process_mgr> p = hold<core::context_type>()->process_mgr;
    p->max_total_size = mb;
}

error_type context::set_max_incore_size(unsigned mb, const char* path, const char* name)
{
    Ptr<core::context_type> c = hold<core::context_type>();
    return core::set_max_incore_size(*c, mb, path, name);
}

error_type context::memory_management(unsigned mb, const char* path, const char* name)
{
    return set_max_incore_size(mb, path, name);
}

numerical_models_mgr context::the_NM_mgr() const
{
    numerical_models_mgr h;
    attach(h, hold<core::context_type>()->numerical_models_mgr.get());
    return h;
}

bases_mgr context::the_bases_mgr() const
{
    bases_mgr h;
    attach(h, hold<core::context_type>()->bases_mgr.get());
    return h;
}

evolution_funcs_mgr context::the_evol_funcs_mgr() const
{
    evolution_funcs_mgr h;
    attach(h, hold<core::context_type>()->evolution_funcs_mgr.get());
    return h;
}

const char* version() { return "4.4.0.0"; }

} // namespace kelt::fem
