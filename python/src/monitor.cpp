#include "monitor.h"

#include "errors.h"

namespace py = pybind11;

namespace qimg_python {

namespace {
constexpr std::chrono::milliseconds kCallInterval{20};
}

PythonMonitor::PythonMonitor(py::object progress) : callback_(std::move(progress)) {}

bool PythonMonitor::progress(int done, int total, int, int) {
    if (declined_ || error_) return false;
    // Taking the GIL for every row would cost more than some rows; a clock read does not.
    const auto now = std::chrono::steady_clock::now();
    if (called_ && now < next_call_ && done < total) return true;
    called_ = true;
    next_call_ = now + kCallInterval;

    py::gil_scoped_acquire gil;
    try {
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        if (callback_.is_none()) return true;
        const py::object answer = callback_(done, total);
        declined_ = !answer.is_none() && !py::bool_(answer);
    } catch (py::error_already_set& error) {
        error_ = std::move(error);
    }
    return !declined_ && !error_;
}

void PythonMonitor::finish(int status, const char* what) {
    if (error_) {
        py::error_already_set error = std::move(*error_);
        error_.reset();
        throw error;
    }
    check_status(declined_ ? ST_CANCELLED : status, what);
}

}  // namespace qimg_python
