#include "ModelSummary.h"

#include <algorithm>

#include "Mrl/Zol/DataLoader.h"
#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Group.h"
#include "RecordValues.h"

namespace ZolInfo {

using MrlZol::AttributeMap;
using MrlZol::AttributeValue;
using MrlZol::Geometry;
using MrlZol::GeometryData;
using MrlZol::Group;
using TreeEntry = MrlZol::Tree::Entry;

namespace {

const Group* GroupOf(const TreeEntry& entry) {
    return dynamic_cast<const Group*>(entry.data);
}

// The payload of the entry with this id as a group; null for id 0 or another class.
const Group* GroupAt(MrlZol::Tree& tree, uint32_t id, const TreeEntry** entry = nullptr) {
    if (id == 0) return nullptr;
    const TreeEntry& found = tree.GetReqNode(id);
    if (entry != nullptr) *entry = &found;
    return GroupOf(found);
}

void ClassifyShape(MrlZol::Tree& tree, const TreeEntry& parent, const std::string& shapeName,
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
std::string AnalysisName(MrlZol::Tree& tree, const TreeEntry& parent) {
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

// Reads one item into a new record; links only add their element set to their target.
void CollectRecord(ReportWriter& writer, const GeometryData& item, uint32_t index,
                   uint32_t geometryId, const Geometry& geometry, const std::string& analysis,
                   std::map<std::pair<uint32_t, uint32_t>, size_t>& recordOfItem) {
    if (item.linked) {
        auto target = recordOfItem.find({item.linkedGeometryId, item.linkedDataIndex});
        if (target != recordOfItem.end()) {
            writer.dataRecords[target->second].elementSets.push_back(geometry.name);
        }
        return;
    }
    DataRecord record;
    record.analysis = analysis;
    SplitDataName(item.name, record.resultName, record.instanceName);
    record.isFloat = MrlZol::IsConnectivityKind(item.kind) ? 0 : 1;
    if (item.array.GetLoader() != nullptr) {
        // The read is checked here, where a failure ends the pass; the values themselves are
        // read when the dump prints them.
        record.count = CheckLoad(*item.array.GetLoader(), record.isFloat != 0);
        record.source = item.array.loader;
    }
    record.elementSets.push_back(geometry.name);
    writer.dataRecords.push_back(std::move(record));
    recordOfItem[{geometryId, index}] = writer.dataRecords.size() - 1;
}

void CollectShape(MrlZol::Tree& tree, ReportWriter& writer, const TreeEntry& shapeEntry,
                  GroupShapes& groupShapes, std::vector<AttributeMap>& resultAttributes,
                  std::map<std::pair<uint32_t, uint32_t>, size_t>& recordOfItem) {
    const TreeEntry& parent = tree.GetReqNode(shapeEntry.parent);
    ClassifyShape(tree, parent, shapeEntry.data->name, groupShapes);
    std::string analysis = AnalysisName(tree, parent);
    const TreeEntry& geometryEntry = tree.GetReqNode(shapeEntry.firstChild);
    const auto* geometry = dynamic_cast<const Geometry*>(geometryEntry.data);
    if (geometry == nullptr) return;  // no arrays to take from a shape without a Geometry
    bool dump = writer.GetMode() == ReportMode::ExtractData;
    for (uint32_t i = 0; i < geometry->data.size(); ++i) {
        const GeometryData& item = geometry->data[i];
        std::string resultName, instanceName;
        SplitDataName(item.name, resultName, instanceName);
        if (IsResult(item, resultName)) {
            AttributeMap attributes = item.attributes;
            attributes["Result Name"] = AttributeValue::Text(resultName);
            if (!instanceName.empty()) {
                attributes["Instance Name"] = AttributeValue::Text(instanceName);
            }
            resultAttributes.push_back(std::move(attributes));
        }
        if (dump)
            CollectRecord(writer, item, i, geometryEntry.id, *geometry, analysis, recordOfItem);
    }
}

}  // namespace

void SplitDataName(const std::string& name, std::string& resultName, std::string& instanceName) {
    size_t separator = name.find('\x1E');
    if (separator == std::string::npos) {
        resultName = name;
        instanceName.clear();
        return;
    }
    resultName = name.substr(0, separator);
    instanceName = name.substr(separator + 1);
}

void CollectModelData(MrlZol::Tree& tree, ReportWriter& writer, GroupShapes& groupShapes,
                      std::vector<AttributeMap>& resultAttributes, std::ostream& err) {
    try {
        std::map<std::pair<uint32_t, uint32_t>, size_t> recordOfItem;
        for (auto& [id, entry] : tree.GetEntries()) {
            if (entry.data == nullptr || entry.data->GetClassName() != "Shape") continue;
            CollectShape(tree, writer, entry, groupShapes, resultAttributes, recordOfItem);
        }
    } catch (const std::exception& failure) {
        err << "Exception: " << failure.what() << '\n';
    }
}

std::string JoinValues(const std::vector<std::string>& values) {
    std::string joined;
    for (size_t i = 0; i < values.size(); ++i) {
        if (i != 0) joined += ", ";
        joined += values[i];
    }
    return joined;
}

void WriteModelSummary(ReportWriter& writer, const GroupShapes& groupShapes,
                       const std::vector<AttributeMap>& resultAttributes) {
    static const char* const kGathered[] = {"Result Name", "Instance Name", "Title", "Category",
                                            "Frequency",   "Time",          "Mode",  "LoadCase"};
    std::map<std::string, std::vector<std::string>> collected;
    for (const AttributeMap& attributes : resultAttributes) {
        for (const char* name : kGathered) {
            auto found = attributes.find(name);
            if (found == attributes.end()) continue;
            std::string text = MrlZol::AttributesToText(found->second);
            if (std::string(name) == "Instance Name")
                std::replace(text.begin(), text.end(), '\x1E', ' ');
            collected[name].push_back(std::move(text));
        }
    }
    for (auto& [name, values] : collected) {
        std::sort(values.begin(), values.end());
        values.erase(std::unique(values.begin(), values.end()), values.end());
    }
    auto has = [&](const char* name) { return collected.count(name) != 0; };

    if (has("Title")) writer.AddAttribute("Title", collected["Title"].front());
    std::string category = has("Category")    ? collected["Category"].front()
                           : has("LoadCase")  ? "Structural"
                           : has("Mode")      ? "Modal"
                           : has("Frequency") ? "Frequency"
                           : has("Time")      ? "Transient"
                                              : "Unknown";
    writer.AddAttribute("Category", category);

    static const std::pair<const char*, const char*> kCounts[] = {
        {"Number of Parts", "Geometry"},
        {"Number of Cut-sections", "Cut-Sections"},
        {"Number of Iso-surfaces", "Iso-Surfaces"},
        {"Number of Iso-volumes", "Iso-Volumes"},
        {"Number of Flow-lines", "Flow Lines"},
    };
    for (const auto& [key, group] : kCounts) {
        auto found = groupShapes.find(group);
        uint32_t count =
            found == groupShapes.end() ? 0 : static_cast<uint32_t>(found->second.size());
        writer.AddAttribute(key, uint64_t{count});
    }
    if (has("Result Name")) {
        writer.AddAttribute("Number of Results",
                            uint64_t{static_cast<uint32_t>(collected["Result Name"].size())});
    }
    if (has("Instance Name")) {
        writer.AddAttribute("Number of Instances",
                            uint64_t{static_cast<uint32_t>(collected["Instance Name"].size())});
    }
    auto parts = groupShapes.find("Geometry");
    if (parts != groupShapes.end()) writer.AddAttribute("Parts", JoinValues(parts->second));

    static const std::pair<const char*, const char*> kLists[] = {
        {"Result Name", "Results"},
        {"Instance Name", "Instances"},
        {"Time", "Time Steps"},
        {"Frequency", "Frequencies"},
    };
    for (const auto& [name, key] : kLists) {
        if (!has(name)) continue;
        std::string text = JoinValues(collected[name]);
        if (!text.empty()) writer.AddAttribute(key, text);
    }
}

}  // namespace ZolInfo
