#include "kelt/fem/context.h"

#include "kelt/core/context.h"
#include "kelt/core/OOC_mgr.h"
#include "kelt/fem/phases/estimate.h"

namespace kelt::fem {

namespace {

core::context_type& ctx(const base_class& h) { return *static_cast<core::context_type*>(core_of(h)); }

// The process manager, held for the time of a call.
Ptr<core::process_mgr> process(const base_class& h) { return ctx(h).process_mgr; }

// `h`, an empty handle, attached to one of the context's managers.
template <class H, class M>
H on_mgr(H h, const Ptr<M>& mgr)
{
    attach(h, mgr.get());
    return h;
}

} // namespace

context::context() { set_w(new core::context_type); }

double context::get_raw_penalty_factor() const { return ctx(*this).raw_penalty_factor; }
void context::set_raw_penalty_factor(double f) { ctx(*this).raw_penalty_factor = f; }
double context::get_min_penalty_factor() const { return ctx(*this).min_penalty_factor; }
void context::set_min_penalty_factor(double f) { ctx(*this).min_penalty_factor = f; }
double context::get_shell_drilling_factor() const { return ctx(*this).shell_drilling_factor; }
void context::set_shell_drilling_factor(double f) { ctx(*this).shell_drilling_factor = f; }

unsigned context::get_max_threads() const { return process(*this)->max_threads; }
void context::set_max_threads(unsigned n) { process(*this)->set_max_threads(n); }
unsigned context::get_LLC_size() const { return process(*this)->LLC_size; }
void context::set_LLC_size(unsigned bytes) { process(*this)->set_LLC_size(bytes); }
void context::set_max_total_size(unsigned mb) { process(*this)->max_total_size = mb; }

error_type context::set_max_incore_size(unsigned mb, const char* path, const char* name)
{
    Ptr<core::context_type> c = hold<core::context_type>();
    return core::set_max_incore_size(*c, mb, path, name);
}

error_type context::memory_management(unsigned mb, const char* path, const char* name)
{
    return set_max_incore_size(mb, path, name);
}

void context::set_progress_handler(progress_handler handler, void* user_data, double interval)
{
    core::context_type& c = ctx(*this);
    c.progress_hdl = handler;
    c.progress_user_data = user_data;
    c.progress_interval = interval >= 0.0 ? interval : 0.0;
}

double context::measure_factor_rate()
{
    Ptr<core::context_type> c = hold<core::context_type>();
    return core::factor_rate(*c);
}

numerical_models_mgr context::the_NM_mgr() const
{
    return on_mgr(numerical_models_mgr(), ctx(*this).numerical_models_mgr);
}

bases_mgr context::the_bases_mgr() const { return on_mgr(bases_mgr(), ctx(*this).bases_mgr); }

evolution_funcs_mgr context::the_evol_funcs_mgr() const
{
    return on_mgr(evolution_funcs_mgr(), ctx(*this).evolution_funcs_mgr);
}

const char* version() { return "4.4.0.0"; }

} // namespace kelt::fem
