#pragma once
#include <pybind11/pybind11.h>

namespace ZolPython {

// Defines _zolfile._diff, ZolDiff's whole run for zolfile.diff and `python3 -m zolfile diff`.
void RegisterDiff(pybind11::module_& module);

}  // namespace ZolPython
