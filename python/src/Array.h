#pragma once
#include <pybind11/pybind11.h>

namespace ZolPython {

// _zolfile.Array: one array's description and the read of a range of its values.
void BindArray(pybind11::module_& module);

}  // namespace ZolPython
