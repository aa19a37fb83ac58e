#pragma once
#include <pybind11/pybind11.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Mrl/Zol/ModelFacts.h"
#include "Mrl/Zol/Tree.h"

namespace ZolPython {

// One opened Zol file: the loaded tree, kept open for reading arrays, and its facts. The
// report's facts are gathered at opening, the arrays' records when first asked for.
class Model {
public:
    explicit Model(const std::string& path);
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    const MrlZol::ModelFacts& GetFacts() const { return facts; }
    const std::string& GetVersion() const { return tree.version; }
    const std::vector<MrlZol::ArrayRecord>& GetArrays();
    // A read-only numpy view of the array's values; its memory is the view's own.
    pybind11::object LoadValues(size_t index);

private:
    std::string path;
    MrlZol::Tree tree;
    MrlZol::ModelFacts facts;
    std::optional<std::vector<MrlZol::ArrayRecord>> arrays;
    std::vector<pybind11::object> views;  // weak references to the views handed out
};

// A file's bytes as a Python text; bytes that are not UTF-8 survive as surrogate escapes.
pybind11::str ToText(const std::string& bytes);

}  // namespace ZolPython
