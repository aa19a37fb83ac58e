#pragma once
#include <string>

#include "Mrl/Zol/Material.h"
#include "Mrl/Zol/Node.h"

namespace MrlHbf {
class HbFile;
}

namespace MrlZol {

// A part of the model; its first child in the tree is its Geometry.
class Shape : public Node {
public:
    explicit Shape(std::string name) : Node(std::move(name)) {}
    ~Shape() override = default;
    std::string GetClassName() const override { return "Shape"; }
    std::string GetVersion() const override { return "0.2"; }

    void Load(MrlHbf::HbFile& file, const std::string& resourcesBlock,
              const std::string& objectVersion);

    Material material;
};

}  // namespace MrlZol
