#include "Errors.h"

#include <exception>
#include <utility>

#include "Text.h"

namespace py = pybind11;

namespace ZolPython {

namespace {

// zolfile.errors.from_library; the module lives as long as the interpreter.
PyObject* fromLibrary = nullptr;

py::object Build(const Mrl::Error& failure) {
    py::object build = py::reinterpret_borrow<py::object>(fromLibrary);
    return build(ToText(failure.what()), failure.Kind(), ToText(failure.Description()),
                 ToText(failure.Where()), ToText(failure.File()), failure.SystemError());
}

void SetError(const Mrl::Error& failure) {
    py::object error = Build(failure);
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
}

void Translate(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const Mrl::Error& error) {
        SetError(error);
    }
}

}  // namespace

void RegisterErrors() {
    py::object build = py::module_::import("zolfile.errors").attr("from_library");
    fromLibrary = build.release().ptr();
    py::register_exception_translator(Translate);
}

void Raise(const Mrl::Error& failure) {
    SetError(failure);
    throw py::error_already_set();
}

void Warn(const Mrl::Error& warning) {
    // Level 2: the caller of zolfile.open, past the package's own wrapper.
    py::module_::import("warnings")
        .attr("warn")(ToText(warning.what()), py::handle(PyExc_RuntimeWarning), 2);
}

}  // namespace ZolPython
