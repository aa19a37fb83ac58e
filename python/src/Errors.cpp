#include "Errors.h"

#include <exception>

#include "Model.h"
#include "Mrl/Util/Exception.h"

namespace py = pybind11;

namespace ZolPython {

namespace {

// The Python class; the module that defines it lives as long as the interpreter.
PyObject* errorType = nullptr;

// The texts may hold a path's bytes, which need not be UTF-8.
void RaiseError(const char* text, py::object kind, const char* description) {
    py::object error = py::reinterpret_borrow<py::object>(errorType)(ToText(text));
    error.attr("kind") = std::move(kind);
    error.attr("description") = ToText(description);
    PyErr_SetObject(errorType, error.ptr());
}

void Translate(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const py::error_already_set&) {
        throw;  // Python's own errors and pybind11's pass on unchanged
    } catch (const py::builtin_exception&) {
        throw;
    } catch (const Mrl::Util::Exception& error) {
        RaiseError(error.what(), py::int_(error.GetKind()), error.GetDescription());
    } catch (const std::exception& error) {
        RaiseError(error.what(), py::none(), error.what());
    }
}

}  // namespace

void RegisterErrors(py::module_& module) {
    py::exception<Mrl::Util::Exception> error(module, "Error");
    error.attr("kind") = py::none();
    error.attr("description") = "";
    errorType = error.release().ptr();
    py::register_exception_translator(Translate);
}

}  // namespace ZolPython
