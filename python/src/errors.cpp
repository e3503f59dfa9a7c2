#include "errors.h"

#include <qimg/qimg.h>

#include <string>

namespace py = pybind11;

namespace qimg_python {
namespace {

PyObject* g_format_error = nullptr;
PyObject* g_cancelled = nullptr;

py::handle exception_type(int status) {
    switch (status) {
        case ST_CANCELLED:
            return g_cancelled;
        case ST_NO_MEMORY:
            return PyExc_MemoryError;
        case ST_READ_ERROR:
            return PyExc_OSError;
        case ST_BAD_ARGUMENT:
        case ST_UNSUPPORTED:
        case ST_UNMAPPABLE:
            return PyExc_ValueError;
        case ST_BAD_FORMAT:
        case ST_UNDECODABLE:
            return g_format_error;
        case ST_NOT_IMPLEMENTED:
            return PyExc_NotImplementedError;
        default:
            return PyExc_RuntimeError;
    }
}

}  // namespace

void add_exceptions(py::module_& module) {
    g_format_error = PyErr_NewExceptionWithDoc(
        "qimg.FormatError",
        "GIF data that break the format or cannot be decoded (a ValueError). Attributes:\n"
        "status (the library's status code) and status_text (its description).",
        PyExc_ValueError, nullptr);
    g_cancelled = PyErr_NewExceptionWithDoc(
        "qimg.Cancelled", "The progress callback answered False and the work stopped (status 1).",
        nullptr, nullptr);
    if (!g_format_error || !g_cancelled) throw py::error_already_set();
    module.add_object("FormatError", py::handle(g_format_error));
    module.add_object("Cancelled", py::handle(g_cancelled));
}

py::handle format_error() {
    return g_format_error;
}

void raise_status_as(py::handle type, int status, const char* what) {
    const char* text = status_text(status);
    const std::string message =
        std::string(what) + ": " + text + " (status " + std::to_string(status) + ")";
    py::object error = type(message);
    error.attr("status") = status;
    error.attr("status_text") = text;
    PyErr_SetObject(type.ptr(), error.ptr());
    throw py::error_already_set();
}

void raise_status(int status, const char* what) {
    raise_status_as(exception_type(status), status, what);
}

void check_status(int status, const char* what) {
    if (status != ST_OK) raise_status(status, what);
}

}  // namespace qimg_python
