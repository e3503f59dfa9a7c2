// The extension module qimg._qimg; the package qimg re-exports everything.
#include <pybind11/pybind11.h>
#include <qimg/qimg.h>

#include "errors.h"

namespace py = pybind11;

namespace qimg_python {
void add_gif(py::module_& m);
void add_quantize(py::module_& m);
void add_draw(py::module_& m);
void add_encode(py::module_& m);
}  // namespace qimg_python

PYBIND11_MODULE(_qimg, m) {
    m.doc() = "The C++ side of the qimg package; import qimg instead.";
    qimg_python::add_exceptions(m);
    m.def(
        "status_text", [](int status) { return std::string(status_text(status)); },
        py::arg("status"), "A short English description of a library status code.");
    qimg_python::add_gif(m);
    qimg_python::add_quantize(m);
    qimg_python::add_draw(m);
    qimg_python::add_encode(m);
}
