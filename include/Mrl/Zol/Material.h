#pragma once
#include <string>

#include "Mrl/Zol/Node.h"

namespace MrlZol {

class Material : public Node {
public:
    std::string GetClassName() const override { return "Material"; }
    std::string GetVersion() const override { return "0.3"; }
    virtual std::string GetMaterialVersion() const { return GetVersion(); }

    float diffuse[4] = {0.8f, 0.8f, 0.8f, 1.0f};
    float specular[4] = {0, 0, 0, 1.0f};
    float emissive[3] = {0, 0, 0};
    float ambient[4] = {0.8f * 0.2f, 0.8f * 0.2f, 0.8f * 0.2f, 1.0f * 0.2f};
    float shininess = 0;
    float ambientFactor = 0.2f;
    uint8_t materialFlag = 1;
};

}  // namespace MrlZol
