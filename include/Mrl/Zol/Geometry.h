#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Mrl/Zol/Attributes.h"
#include "Mrl/Zol/Node.h"
#include "Mrl/Zol/NumericArray.h"

namespace MrlHbf {
class HbFile;
}

namespace MrlZol {

// One named array of a Geometry: a result name, optionally 0x1E and an instance name.
struct GeometryData {
    std::string name;
    int32_t kind = 0;
    bool isVibration = false;
    AttributeMap attributes;
    NumericArray array;
    bool linked = false;
    uint32_t linkedGeometryId = 0;
    uint32_t linkedDataIndex = 0;
};

// Kinds 4, 5, 6 and 9 hold unsigned connectivity; every other kind holds floats.
bool IsConnectivityKind(int32_t kind);

// The mesh and result arrays of one element set. Their values stay in "Heavy Data" until
// a loader is asked for them.
class Geometry : public Node {
public:
    explicit Geometry(std::string name) : Node(std::move(name)) {}
    ~Geometry() override = default;
    std::string GetClassName() const override { return "Geometry"; }
    std::string GetVersion() const override { return "0.7"; }

    void Load(MrlHbf::HbFile& file, const std::string& lightBlock, const std::string& heavyBlock,
              const std::string& attributesBlock, const std::string& version, uint32_t idOffset);
    void LoadLegacy(MrlHbf::HbFile& file, const std::string& lightBlock,
                    const std::string& heavyBlock, const std::string& attributesBlock,
                    const std::string& version);
    int32_t AddData(const std::string& name, int32_t kind, const NumericArray& array,
                    const AttributeMap& attributes);
    void SetDataAttributes(GeometryData& item, const AttributeMap& attributes);
    void LoadConnectivityBlocks(MrlHbf::HbFile& file, const std::string& heavyBlock);
    void LoadOtherBlocks(MrlHbf::HbFile& file, const std::string& heavyBlock);

    std::vector<GeometryData> data;
    std::map<std::string, uint64_t> positions;

private:
    void AttachPlanarLoaders(MrlHbf::HbFile& file, const std::string& heavyBlock, bool connectivity,
                             const char* method);
};

}  // namespace MrlZol
