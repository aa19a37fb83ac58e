#include "Mrl/Zol/Geometry.h"

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Util/Exception.h"

namespace MrlZol {

bool IsConnectivityKind(int32_t kind) {
    return kind == 4 || kind == 5 || kind == 6 || kind == 9;
}

void Geometry::Load(MrlHbf::HbFile& file, const std::string& lightBlock,
                    const std::string& heavyBlock, const std::string& attributesBlock,
                    const std::string& version, uint32_t idOffset) {
    if (version != "0.5" && version != "0.6" && version != "0.7") {
        LoadLegacy(file, lightBlock, heavyBlock, attributesBlock, version);
        return;
    }
    uint32_t count = 0;
    file.CopyFromBlock(lightBlock, count);
    for (uint32_t i = 0; i < count; ++i) {
        std::string name;
        uint32_t storedKind = 0xFFFFFFFF;
        uint8_t link = 0;
        file.CopyFromBlock(lightBlock, name);
        file.CopyFromBlock(lightBlock, storedKind);
        file.CopyFromBlock(lightBlock, link);
        int32_t kind = storedKind == 0xFFFFFFFF ? -1 : static_cast<int32_t>(storedKind & 0xFF);

        NumericArray array;
        uint32_t linkedGeometryId = 0;
        uint32_t linkedDataIndex = 0;
        if (link != 0) {
            file.CopyFromBlock(lightBlock, linkedGeometryId);
            file.CopyFromBlock(lightBlock, linkedDataIndex);
            linkedGeometryId += idOffset;
        } else {
            uint32_t byteSize = 0;
            file.CopyFromBlock(lightBlock, byteSize);
            file.CopyFromBlock(lightBlock, array.components);
            array.byteSize = byteSize;
            array.hasData = byteSize != 0 ? 1 : 0;
            file.CopyFromBlock(lightBlock, array.flag1);
            file.CopyFromBlock(lightBlock, array.flag2);
            file.CopyFromBlock(lightBlock, array.value1);
            file.CopyFromBlock(lightBlock, array.value2);
            file.CopyFromBlock(lightBlock, array.flag3);
            uint64_t position = 0;
            if (version == "0.7") {
                file.CopyFromBlock(lightBlock, position);
            } else {
                uint32_t narrow = 0;
                file.CopyFromBlock(lightBlock, narrow);
                position = narrow;
            }
            if (version != "0.5") {
                positions[name] = position;
            } else {
                // These payloads are stored plain; the loader reads them like any other.
                file.GetIndex().SetPosition(heavyBlock, position, file.GetStream());
                array.AttachLoader(file, heavyBlock, position, false);
            }
        }
        uint8_t reserved = 0;
        file.CopyFromBlock(lightBlock, reserved);
        AttributeMap attributes;
        LoadAttributes(file, attributesBlock, attributes);

        GeometryData& item = data[AddData(name, kind, array, attributes)];
        if (link != 0) {
            item.linkedGeometryId = linkedGeometryId;
            item.linkedDataIndex = linkedDataIndex;
            item.linked = true;
            item.attributes.clear();
        }
    }
}

void Geometry::LoadLegacy(MrlHbf::HbFile& file, const std::string& lightBlock,
                          const std::string& heavyBlock, const std::string& attributesBlock,
                          const std::string& version) {
    bool bare = version == "0.1" || version == "0.0a";
    bool hasReserved = !bare && version != "0.2";
    bool hasMap = hasReserved && version != "0.3";
    uint32_t count = 0;
    file.CopyFromBlock(lightBlock, count);
    for (uint32_t i = 0; i < count; ++i) {
        std::string name;
        uint32_t kind = 0;
        uint32_t byteSize = 0;
        NumericArray array;
        file.CopyFromBlock(lightBlock, name);
        file.CopyFromBlock(lightBlock, kind);
        file.CopyFromBlock(lightBlock, byteSize);
        file.CopyFromBlock(lightBlock, array.components);
        array.byteSize = byteSize;
        array.hasData = byteSize != 0 ? 1 : 0;
        if (!bare) {
            file.CopyFromBlock(lightBlock, array.flag1);
            file.CopyFromBlock(lightBlock, array.flag2);
            file.CopyFromBlock(lightBlock, array.value1);
            file.CopyFromBlock(lightBlock, array.value2);
            file.CopyFromBlock(lightBlock, array.flag3);
        }
        if (hasReserved) {
            uint8_t reserved = 0;
            file.CopyFromBlock(lightBlock, reserved);
        }
        AttributeMap attributes;
        if (hasMap) LoadAttributes(file, attributesBlock, attributes);
        uint32_t position = 0;
        file.CopyFromBlock(lightBlock, position);
        file.GetIndex().SetPosition(heavyBlock, position, file.GetStream());
        array.AttachLoader(file, heavyBlock, position, false);
        AddData(name, static_cast<int32_t>(kind), array, attributes);
    }
}

int32_t Geometry::AddData(const std::string& name, int32_t kind, const NumericArray& array,
                          const AttributeMap& attributes) {
    GeometryData& item = data.emplace_back();
    item.name = name;
    item.kind = kind;
    item.array = array;
    SetDataAttributes(item, attributes);
    return static_cast<int32_t>(data.size() - 1);
}

void Geometry::SetDataAttributes(GeometryData& item, const AttributeMap& attributes) {
    item.isVibration = false;
    auto category = attributes.find("Category");
    if (category != attributes.end() && category->second.tag == TextTag &&
        AttributesToText(category->second) == "Vibration") {
        item.isVibration = true;
    }
    for (const auto& [key, value] : attributes) {
        if (key == "Complex" || key == "Contents" || key == "DataSource" || key == "DataType" ||
            key == "Structure" || key.compare(0, 5, "Link.") == 0) {
            continue;
        }
        item.attributes[key] = value;
    }
}

void Geometry::AttachPlanarLoaders(MrlHbf::HbFile& file, const std::string& heavyBlock,
                                   bool connectivity, const char* method) {
    if (positions.empty()) return;
    for (GeometryData& item : data) {
        if (IsConnectivityKind(item.kind) != connectivity || item.linked) continue;
        auto found = positions.find(item.name);
        if (found == positions.end()) {
            MRL_THROW(Mrl::Util::Kind::ElementNotFound, nullptr, "Mrl/Zol/Geometry", method);
        }
        item.array.AttachLoader(file, heavyBlock, found->second, true);
    }
}

void Geometry::LoadConnectivityBlocks(MrlHbf::HbFile& file, const std::string& heavyBlock) {
    AttachPlanarLoaders(file, heavyBlock, true, "MrlZol::Geometry::LoadConnectivityBlocks");
}

void Geometry::LoadOtherBlocks(MrlHbf::HbFile& file, const std::string& heavyBlock) {
    AttachPlanarLoaders(file, heavyBlock, false, "MrlZol::Geometry::LoadOtherBlocks");
}

}  // namespace MrlZol
