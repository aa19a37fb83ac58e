#include "Diff.h"

#include <pybind11/stl.h>

#include <sstream>
#include <string>
#include <vector>

#include "diff/Run.h"

namespace py = pybind11;

namespace ZolPython {

void RegisterDiff(py::module_& module) {
    module.def(
        "_diff",
        [](const std::vector<py::bytes>& args) {
            std::vector<std::string> all = {"ZolDiff"};
            for (const py::bytes& arg : args) all.emplace_back(arg);
            std::ostringstream out, err;
            ZolDiff::Trouble trouble = ZolDiff::Trouble::None;
            int status = 0;
            {
                // The comparison reads no Python object; other threads may run meanwhile.
                py::gil_scoped_release release;
                status = ZolDiff::Run(all, out, err, trouble);
            }
            return py::make_tuple(status, py::bytes(out.str()), py::bytes(err.str()),
                                  trouble == ZolDiff::Trouble::Arguments);
        },
        py::arg("args"),
        "ZolDiff's run over its arguments (bytes, without the program name): the status, "
        "standard output and standard error as bytes, and whether a status of 2 was about "
        "the arguments.");
}

}  // namespace ZolPython
