#pragma once
#include <string>

#include "Mrl/Zol/Attributes.h"
#include "Mrl/Zol/Node.h"

namespace MrlHbf {
class HbFile;
}

namespace MrlZol {

// A folder of the model: a transform (kept, never applied) and an attribute map.
class Group : public Node {
public:
    Group(std::string name, const AttributeMap& attributes)
        : Node(std::move(name)), attributes(attributes) {}
    ~Group() override = default;
    std::string GetClassName() const override { return "Group"; }
    std::string GetVersion() const override { return "0.4"; }

    void Load(MrlHbf::HbFile& file, const std::string& lightBlock,
              const std::string& attributesBlock, const std::string& objectVersion);

    float translation[3] = {0, 0, 0};
    float rotation[4] = {0, 0, 1, 0};
    float scale[3] = {1, 1, 1};
    AttributeMap attributes;
    uint8_t mergeable = 0;
};

}  // namespace MrlZol
