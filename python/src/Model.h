#pragma once
#include <pybind11/pybind11.h>

namespace ZolPython {

// _zolfile.Model, the library's model as it is, and _zolfile.open; zolfile/model.py gives
// them their Python manners.
void BindModel(pybind11::module_& module);

}  // namespace ZolPython
