#include "Array.h"

#include <Mrl/Model.h>
#include <pybind11/numpy.h>

#include <cstdint>

#include "Text.h"

namespace py = pybind11;

namespace ZolPython {

namespace {

// Values [first, first + count) in a new numpy array, decoded without the GIL. The range is
// checked before anything is allocated.
template <class T>
py::array ReadAs(const Mrl::Array& array, std::uint64_t first, std::uint64_t count) {
    if (first > array.Size() || count > array.Size() - first) {
        throw py::index_error("values past the array's " + std::to_string(array.Size()));
    }
    py::array_t<T> values(static_cast<py::ssize_t>(count));
    T* out = values.mutable_data();
    {
        py::gil_scoped_release unlocked;
        array.Read(first, count, out);
    }
    return values;
}

py::array Read(const Mrl::Array& array, std::uint64_t first, std::uint64_t count) {
    return array.IsFloat() ? ReadAs<float>(array, first, count)
                           : ReadAs<std::uint32_t>(array, first, count);
}

}  // namespace

void BindArray(py::module_& module) {
    using A = Mrl::Array;
    py::class_<A>(module, "Array", "One array of a model, as the library holds it.")
        .def_property_readonly("analysis", [](const A& a) { return ToText(a.Analysis()); })
        .def_property_readonly("geometry", [](const A& a) { return ToText(a.Geometry()); })
        .def_property_readonly("name", [](const A& a) { return ToText(a.Name()); })
        .def_property_readonly("result", [](const A& a) { return ToText(a.Result()); })
        .def_property_readonly("instance", [](const A& a) { return ToText(a.Instance()); })
        .def_property_readonly("element_sets", [](const A& a) { return Texts(a.ElementSets()); })
        .def_property_readonly("kind", &A::Kind)
        .def_property_readonly("components", &A::Components)
        .def_property_readonly("size", &A::Size)
        .def_property_readonly("is_float", &A::IsFloat)
        .def("read", &Read, py::arg("first"), py::arg("count"),
             "Values [first, first + count) as a new 1-d numpy array (float32 or uint32); the "
             "GIL is released while they are decoded.");
}

}  // namespace ZolPython
