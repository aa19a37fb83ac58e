#include <utility>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/DataLoader.h"
#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Group.h"
#include "Mrl/Zol/ModelSummary.h"
#include "Mrl/Zol/Tree.h"

namespace MrlZol {

namespace {

using TreeEntry = Tree::Entry;
using RecordOfItem = std::map<std::pair<uint32_t, uint32_t>, size_t>;

const Group* GroupOf(const TreeEntry& entry) {
    return dynamic_cast<const Group*>(entry.data);
}

// The payload of the entry with this id as a group; null for id 0 or another class.
const Group* GroupAt(Tree& tree, uint32_t id, const TreeEntry** entry = nullptr) {
    if (id == 0) return nullptr;
    const TreeEntry& found = tree.GetReqNode(id);
    if (entry != nullptr) *entry = &found;
    return GroupOf(found);
}

void ClassifyShape(Tree& tree, const TreeEntry& parent, const std::string& shapeName,
                   GroupShapes& groupShapes) {
    const Group* group = GroupOf(parent);
    if (group == nullptr) return;
    groupShapes[group->name].push_back(shapeName);
    if (group->name == "Geometry") return;
    // A shape in a subgroup of "Geometry" is a part too, if "Geometry" has a group above it.
    const TreeEntry* grandEntry = nullptr;
    const Group* grand = GroupAt(tree, parent.parent, &grandEntry);
    if (grand == nullptr || grand->name != "Geometry") return;
    if (GroupAt(tree, grandEntry->parent) != nullptr) {
        groupShapes["Geometry"].push_back(shapeName);
    }
}

// The analysis of a shape: the group above its "Geometry" group.
std::string AnalysisName(Tree& tree, const TreeEntry& parent) {
    const Group* group = GroupOf(parent);
    std::string name = group != nullptr ? group->name : std::string();
    const TreeEntry* upEntry = nullptr;
    const Group* up = GroupAt(tree, parent.parent, &upEntry);
    if (name == "Geometry") return up != nullptr ? up->name : name;
    if (up == nullptr) return name;
    name = up->name;
    if (name == "Geometry") {
        if (const Group* top = GroupAt(tree, upEntry->parent)) name = top->name;
    }
    return name;
}

bool IsResult(const GeometryData& item, const std::string& resultName) {
    return item.kind > 11 && resultName != "Node Ids" && resultName != "Element IDs";
}

void CollectResultAttributes(const GeometryData& item, std::vector<AttributeMap>& results) {
    std::string resultName, instanceName;
    SplitDataName(item.name, resultName, instanceName);
    if (!IsResult(item, resultName)) return;
    AttributeMap attributes = item.attributes;
    attributes["Result Name"] = AttributeValue::Text(resultName);
    if (!instanceName.empty()) attributes["Instance Name"] = AttributeValue::Text(instanceName);
    results.push_back(std::move(attributes));
}

// Makes the record of one item, its load checked here where a failure ends the pass unless
// the check is left to the load; the values themselves are read when asked for. Links only
// add their element set to their target.
void CollectRecord(const GeometryData& item, uint32_t index, uint32_t geometryId,
                   const Geometry& geometry, const std::string& analysis,
                   std::vector<ArrayRecord>& arrays, RecordOfItem& recordOfItem, bool checkLoads) {
    if (item.linked) {
        auto target = recordOfItem.find({item.linkedGeometryId, item.linkedDataIndex});
        if (target != recordOfItem.end())
            arrays[target->second].elementSets.push_back(geometry.name);
        return;
    }
    ArrayRecord record;
    record.analysis = analysis;
    record.geometryName = geometry.name;
    record.itemName = item.name;
    SplitDataName(item.name, record.resultName, record.instanceName);
    record.kind = item.kind;
    record.isFloat = !IsConnectivityKind(item.kind);
    if (const DataLoader* loader = item.array.GetLoader()) {
        record.count = static_cast<uint32_t>(loader->byteSize >> 2);
        if (checkLoads) {
            // Only the blocks around this payload stay in memory while the pass goes on.
            loader->file.GetIndex().ReleaseBlocksOutside(loader->blockName, loader->position);
            record.count = loader->CheckLoad(record.isFloat ? FloatElementTag : UnsignedElementTag);
        }
        record.loader = item.array.loader;
    }
    record.elementSets.push_back(geometry.name);
    arrays.push_back(std::move(record));
    recordOfItem[{geometryId, index}] = arrays.size() - 1;
}

void CollectShape(Tree& tree, const TreeEntry& shapeEntry, GroupShapes& groupShapes,
                  std::vector<AttributeMap>& resultAttributes, std::vector<ArrayRecord>* arrays,
                  RecordOfItem& recordOfItem, bool checkLoads) {
    const TreeEntry& parent = tree.GetReqNode(shapeEntry.parent);
    ClassifyShape(tree, parent, shapeEntry.data->name, groupShapes);
    std::string analysis = AnalysisName(tree, parent);
    const TreeEntry& geometryEntry = tree.GetReqNode(shapeEntry.firstChild);
    const auto* geometry = dynamic_cast<const Geometry*>(geometryEntry.data);
    if (geometry == nullptr) return;  // no arrays to take from a shape without a Geometry
    for (uint32_t i = 0; i < geometry->data.size(); ++i) {
        const GeometryData& item = geometry->data[i];
        CollectResultAttributes(item, resultAttributes);
        if (arrays != nullptr) {
            CollectRecord(item, i, geometryEntry.id, *geometry, analysis, *arrays, recordOfItem,
                          checkLoads);
        }
    }
}

}  // namespace

void CollectModelData(Tree& tree, GroupShapes& groupShapes,
                      std::vector<AttributeMap>& resultAttributes, std::vector<ArrayRecord>* arrays,
                      bool checkLoads) {
    RecordOfItem recordOfItem;
    for (auto& [id, entry] : tree.GetEntries()) {
        if (entry.data == nullptr || entry.data->GetClassName() != "Shape") continue;
        CollectShape(tree, entry, groupShapes, resultAttributes, arrays, recordOfItem, checkLoads);
    }
}

}  // namespace MrlZol
