#include "kelt/fem/FEM_states.h"

#include "kelt/core/FEM_states.h"
#include "kelt/core/stress_mgr.h"
#include "kelt/fem/handle_call.h"

namespace kelt::fem {

namespace {

using states = core::FEM_real_states;
using detail::held;
using detail::run;

// The matrix of a handle seen as states: a plain matrix gets a states object
// sharing its data.
Ptr<states> as_states(const FEM_matrix& m)
{
    core::FEM_real* c = static_cast<core::FEM_real*>(core_of(m));
    if (!c) return Ptr<states>(new states);
    if (auto* s = dynamic_cast<states*>(c)) return Ptr<states>(new states(*s));
    return Ptr<states>(new states(*c));
}

} // namespace

FEM_states::FEM_states() : FEM_matrix(no_object{})
{
    try {
        attach(*this, new states);
    } catch (...) {
        attach(*this, nullptr);
    }
}

FEM_states::FEM_states(const FEM_matrix& m) : FEM_matrix(no_object{})
{
    try {
        Ptr<states> s = as_states(m);
        attach(*this, s.get());
    } catch (...) {
        attach(*this, nullptr);
    }
}

FEM_states::FEM_states(const FEM_states& src, unsigned first, unsigned n) : FEM_matrix(no_object{})
{
    try {
        Ptr<states> from = as_states(src);
        attach(*this, new states(*from, first, n));
    } catch (...) {
        attach(*this, nullptr);
    }
}

void FEM_states::copy(const FEM_states& src)
{
    if (core_of(*this) == core_of(src)) return;
    try {
        Ptr<states> from = as_states(src);
        run<states>(*this, [&](states& s) { (void)s.copy(*from); });
    } catch (...) {
    }
}

void FEM_states::clear() { run<states>(*this, [](states& s) { s.clear(); }); }

unsigned FEM_states::size() const { return cols(); }

FEM_states FEM_states::get_state(unsigned i) const
{
    // A window out of range is empty.
    return FEM_states(*this, i, i < size() ? 1 : 0xFFFFFFFFu);
}

FEM_states FEM_states::front() const { return get_state(0); }

FEM_states FEM_states::back() const { return get_state(size() - 1); }

int FEM_states::set_stress_mgr(unsigned i, const stress_mgr& mgr)
{
    Ptr<states> s = held<states>(*this);
    if (!s || i >= s->size()) return -1;
    try {
        return s->set_stress_mgr(i, static_cast<core::stress_super_mgr*>(core_of(mgr))) ? 0 : -1;
    } catch (...) {
        return -1;
    }
}

int FEM_states::get_stress_mgr(unsigned i, stress_mgr& mgr) const
{
    if (i >= size()) return -1;
    // The handle's own object goes back into it: the column's manager stays with
    // the core.
    attach(mgr, core_of(mgr));
    return 0;
}

} // namespace kelt::fem
