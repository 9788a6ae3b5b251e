// The `kelt` module: the library from Python. Thin: conversions only.
#include <csignal>
#include <mutex>

#include "common.h"

namespace kelt::py {

void bind_model(pyb::module_& m);
void bind_solvers(pyb::module_& m);
void bind_io(pyb::module_& m);

namespace {

// SIGINT while runs go: counted here, read by each run's interrupt check, which
// holds no lock and needs no GIL.
std::atomic<unsigned> sigints{0};
std::mutex watch_mutex;
unsigned watchers = 0;
struct sigaction previous_action;

extern "C" void on_sigint(int) { sigints.fetch_add(1, std::memory_order_relaxed); }

PyObject* error_class = nullptr;

} // namespace

unsigned sigint_count() { return sigints.load(std::memory_order_relaxed); }

void begin_sigint_watch()
{
    std::lock_guard<std::mutex> lock(watch_mutex);
    if (watchers++ > 0) return;
    struct sigaction a = {};
    a.sa_handler = on_sigint;
    sigemptyset(&a.sa_mask);
    sigaction(SIGINT, &a, &previous_action);
}

void end_sigint_watch()
{
    std::lock_guard<std::mutex> lock(watch_mutex);
    if (--watchers == 0) sigaction(SIGINT, &previous_action, nullptr);
}

// Log lines come from the thread that runs; the GIL is taken for the call.
void relay_log(void* user, unsigned level, const char* text)
{
    auto& relay = *static_cast<run_relay*>(user);
    pyb::gil_scoped_acquire gil;
    if (relay.failed_callback) return;
    try {
        std::string line(text);
        while (!line.empty() && line.back() == '\n') line.pop_back();
        pyb::object logging = pyb::module_::import("logging");
        if (pyb::isinstance(relay.log, logging.attr("Logger")))
            relay.log.attr("info")("%s%s", std::string(2 * level, ' '), line);
        else
            relay.log(level, line);
    } catch (pyb::error_already_set& e) {
        relay.failed_callback = true;
        relay.pending = std::make_unique<pyb::error_already_set>(std::move(e));
    }
}

bool relay_interrupt(void* user)
{
    const auto& relay = *static_cast<const run_relay*>(user);
    return relay.failed_callback || sigint_count() != relay.sigint_mark;
}

void raise_status(const fem::run_status& s, run_relay& relay, bool sigint)
{
    if (relay.pending) {
        pyb::error_already_set e = std::move(*relay.pending);
        relay.pending.reset();
        throw e;
    }
    if (sigint && s.warning_code == interrupted_warning) {
        PyErr_SetNone(PyExc_KeyboardInterrupt);
        throw pyb::error_already_set();
    }
    if (is_error(s.error_code)) raise(s.error_code, s.msg_title, s.msg_detail);
    if (s.warning_code != no_error) {
        const std::string text = "kelt warning " + std::to_string(int(s.warning_code)) + ": " + s.msg_title;
        if (PyErr_WarnEx(PyExc_RuntimeWarning, text.c_str(), 1) < 0) throw pyb::error_already_set();
    }
}

} // namespace kelt::py

PYBIND11_MODULE(_kelt, m)
{
    namespace pyb = pybind11;
    m.doc() = "kelt FEM: finite elements for structures and steady heat conduction.";

    // kelt.Error(code, title, detail), its fields also as attributes.
    kelt::py::error_class = PyErr_NewExceptionWithDoc(
        "kelt.Error", "A failed call or run: code (an error_type below -100), title, detail.", PyExc_RuntimeError,
        nullptr);
    m.attr("Error") = pyb::handle(kelt::py::error_class);
    pyb::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const kelt::py::error& e) {
            pyb::object exc = pyb::handle(kelt::py::error_class)(int(e.code), e.title, e.detail);
            exc.attr("code") = pyb::cast(e.code);
            exc.attr("title") = e.title;
            exc.attr("detail") = e.detail;
            PyErr_SetObject(kelt::py::error_class, exc.ptr());
        }
    });

    kelt::py::bind_model(m);
    kelt::py::bind_solvers(m);
    kelt::py::bind_io(m);
}
