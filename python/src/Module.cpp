#include <pybind11/pybind11.h>

#include <Mrl/Model.h>

#include "Array.h"
#include "Diff.h"
#include "Errors.h"
#include "Model.h"

namespace py = pybind11;

// The library bound as it is; zolfile/model.py makes the package's Model and Array of it.
PYBIND11_MODULE(_zolfile, module) {
    module.doc() = "Reader of Zol model files (the package's extension; use zolfile)";
    module.attr("version") = Mrl::Version();
    ZolPython::RegisterErrors();
    ZolPython::BindArray(module);
    ZolPython::BindModel(module);
    ZolPython::RegisterDiff(module);
}
