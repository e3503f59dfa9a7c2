// monitor.h: the library's progress monitor in front of a Python callback and of Ctrl-C.
#pragma once

#include <pybind11/pybind11.h>
#include <qimg/qimg.h>

#include <chrono>
#include <optional>

namespace qimg_python {

// Handed to long operations, which run with the GIL released. At the first report, at the last
// one and then at most every 20 ms it takes the GIL, lets Python run its signal handlers (Ctrl-C
// raises KeyboardInterrupt there) and calls progress(done, total) when one was given. A False
// answer, or an exception from the callback or a handler, answers false to the library, which
// stops and returns 1; finish() then raises what stopped it.
class PythonMonitor : public qIMonitor {
public:
    // `progress` may be None.
    explicit PythonMonitor(pybind11::object progress);
    bool progress(int done, int total, int, int) override;
    // After the operation, with the GIL held: raises the exception that stopped it, or
    // qimg.Cancelled when the callback answered False (even for an operation that reports 0
    // because it keeps partial results), or the exception of a non-zero status.
    void finish(int status, const char* what);

private:
    pybind11::object callback_;
    std::chrono::steady_clock::time_point next_call_{};
    bool called_ = false;
    bool declined_ = false;
    std::optional<pybind11::error_already_set> error_;
};

}  // namespace qimg_python
