#pragma once
#include <pybind11/pybind11.h>

namespace ZolPython {

// Defines zolfile.Error and turns every failure of the library into it: str() is the text
// ZolInfo prints after "Exception: ", .kind the failure's kind (None for a failure that is not
// the library's own, such as a block that doesn't inflate) and .description its description.
void RegisterErrors(pybind11::module_& module);

}  // namespace ZolPython
