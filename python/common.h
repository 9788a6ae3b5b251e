// The module's generic bindings: calls that report an `error_type` raise
// kelt.Error, handles get their class in one line, and every solver's `run`
// goes through one function that releases the GIL, relays the log, turns a
// SIGINT into the solver's interrupt and its record's status into exceptions.
#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <memory>
#include <type_traits>
#include <string>
#include <utility>
#include <vector>

#include "arrays.h"

namespace kelt::py {

// A call's error code, titled by its name (the GIL is held in a bound call).
inline void check(error_type e)
{
    if (is_error(e))
        raise(e, pyb::str(pyb::cast(e).attr("name")).cast<std::string>(),
              "the call returned " + std::to_string(int(e)));
}

// A member returning `error_type`, as a Python method that raises on an error code.
// H names the bound class when the member comes from a base Python does not see.
template <class H = void, class C, class... A>
auto checked(error_type (C::*f)(A...))
{
    using Self = std::conditional_t<std::is_void_v<H>, C, H>;
    return [f](Self& self, A... a) { check((self.*f)(std::forward<A>(a)...)); };
}
template <class H = void, class C, class... A>
auto checked(error_type (C::*f)(A...) const)
{
    using Self = std::conditional_t<std::is_void_v<H>, C, H>;
    return [f](const Self& self, A... a) { check((self.*f)(std::forward<A>(a)...)); };
}

// A handle class: copies share the object, like the C++ ones.
template <class H, class... Bases>
pyb::class_<H, Bases...> handle_class(pyb::module_& m, const char* name, const char* doc)
{
    pyb::class_<H, Bases...> c(m, name, doc);
    c.def_property_readonly("attached", [](const H& h) { return h.attached(); },
                            "True when the handle is attached to an object.");
    return c;
}

// What one run carries between the Python thread that called it and the
// callbacks the solver makes from its own code.
struct run_relay {
    pyb::object log;           // a callable (level, text) or a logging.Logger; None: silent
    unsigned sigint_mark = 0;  // SIGINTs counted before the run
    bool failed_callback = false;
    std::unique_ptr<pyb::error_already_set> pending; // what the log raised, raised again after the run
};

// Counts SIGINTs while at least one run is going; a run compares with its mark.
unsigned sigint_count();
void begin_sigint_watch();
void end_sigint_watch();

// The SIGINT handler of the runs in place for the life of one.
struct sigint_watch {
    sigint_watch() { begin_sigint_watch(); }
    ~sigint_watch() { end_sigint_watch(); }
    sigint_watch(const sigint_watch&) = delete;
    sigint_watch& operator=(const sigint_watch&) = delete;
};

void relay_log(void* user, unsigned level, const char* text);
bool relay_interrupt(void* user);
// Raises what the run's record and relay say: KeyboardInterrupt, kelt.Error, a warning.
void raise_status(const fem::run_status& s, run_relay& relay, bool sigint);

template <class S>
void run_solver(pyb::object self, typename S::data_type& data)
{
    S solver = self.cast<S&>(); // a copy, so the callbacks set here stay ours
    run_relay relay;
    relay.log = pyb::getattr(self, "log", pyb::none());
    solver.settings.log_hdl = relay.log.is_none() ? nullptr : relay_log;
    solver.settings.interrupt_hdl = relay_interrupt;
    solver.settings.user_data = &relay;
    bool sigint = false;
    {
        sigint_watch watch;
        relay.sigint_mark = sigint_count();
        pyb::gil_scoped_release unlocked;
        solver.run(data);
        sigint = sigint_count() != relay.sigint_mark;
    }
    raise_status(data, relay, sigint);
}

// The solver class: its settings record as a property, `log` settable, `run`.
template <class S>
pyb::class_<S> solver_class(pyb::module_& m, const char* name, const char* doc)
{
    pyb::class_<S> c(m, name, doc, pyb::dynamic_attr());
    c.def(pyb::init<>());
    return c;
}

// Its settings and run, once their records are bound (for the signatures).
template <class S>
void solver_run(pyb::class_<S>& c)
{
    c.def_readwrite("settings", &S::settings, "The solver's options; callbacks are set by run.");
    c.def("run", &run_solver<S>, pyb::arg("data"),
          "Runs on the record with the GIL released. The attribute `log` (a callable taking (level, text), or a "
          "logging.Logger) receives the log lines. Raises KeyboardInterrupt on Ctrl-C, kelt.Error on an error "
          "code, and a RuntimeWarning on a warning code.");
}

// A data record: built on a problem, which it shares.
template <class Rec>
pyb::class_<Rec, fem::problem_data> record_class(pyb::handle scope, const char* name)
{
    pyb::class_<Rec, fem::problem_data> c(scope, name);
    c.def(pyb::init<const fem::problem_data&>(), pyb::arg("problem"));
    c.def("error_raised", [](const Rec& r) { return r.error_raised(); });
    c.def("warning_raised", [](const Rec& r) { return r.warning_raised(); });
    c.def("clear_data_out", [](Rec& r) { r.clear_data_out(); });
    c.def_property_readonly("error_code", [](const Rec& r) { return r.error_code; });
    c.def_property_readonly("warning_code", [](const Rec& r) { return r.warning_code; });
    c.def_property_readonly("msg_title", [](const Rec& r) { return std::string(r.msg_title); });
    c.def_property_readonly("msg_detail", [](const Rec& r) { return std::string(r.msg_detail); });
    return c;
}

} // namespace kelt::py

// Record fields as Python properties, readable and writable, by name.
#define KELT_FIELD(cls, Type, name) cls.def_readwrite(#name, &Type::name)
