// errors.h: library status codes as Python exceptions.
#pragma once

#include <pybind11/pybind11.h>

namespace qimg_python {

// Adds qimg.FormatError and qimg.Cancelled to the module.
void add_exceptions(pybind11::module_& module);

// Returns for status 0; otherwise raises the exception that stands for `status` (MemoryError,
// OSError, ValueError, qimg.FormatError, qimg.Cancelled, NotImplementedError), its message
// naming `what` and the status text, its attributes `status` and `status_text` set.
void check_status(int status, const char* what);
[[noreturn]] void raise_status(int status, const char* what);
// The same with the exception class chosen by the caller (a cut-short GIF is a format error
// even though the library calls it a read error).
[[noreturn]] void raise_status_as(pybind11::handle type, int status, const char* what);

// qimg.FormatError, for callers that pick it themselves.
pybind11::handle format_error();

}  // namespace qimg_python
