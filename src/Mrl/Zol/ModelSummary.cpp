#include "Mrl/Zol/ModelSummary.h"

#include <algorithm>

namespace MrlZol {

namespace {

using CollectedValues = std::map<std::string, std::vector<std::string>>;

// The texts of the attributes the summary reads, per attribute, sorted and free of repeats.
CollectedValues CollectValues(const std::vector<AttributeMap>& resultAttributes) {
    static const char* const kGathered[] = {"Result Name", "Instance Name", "Title", "Category",
                                            "Frequency",   "Time",          "Mode",  "LoadCase"};
    CollectedValues collected;
    for (const AttributeMap& attributes : resultAttributes) {
        for (const char* name : kGathered) {
            auto found = attributes.find(name);
            if (found == attributes.end()) continue;
            std::string text = AttributesToText(found->second);
            if (std::string(name) == "Instance Name")
                std::replace(text.begin(), text.end(), '\x1E', ' ');
            collected[name].push_back(std::move(text));
        }
    }
    for (auto& [name, values] : collected) {
        std::sort(values.begin(), values.end());
        values.erase(std::unique(values.begin(), values.end()), values.end());
    }
    return collected;
}

std::string Category(const CollectedValues& collected) {
    auto has = [&](const char* name) { return collected.count(name) != 0; };
    if (has("Category")) return collected.at("Category").front();
    return has("LoadCase")    ? "Structural"
           : has("Mode")      ? "Modal"
           : has("Frequency") ? "Frequency"
           : has("Time")      ? "Transient"
                              : "Unknown";
}

uint32_t ShapeCount(const GroupShapes& groupShapes, const char* group) {
    auto found = groupShapes.find(group);
    return found == groupShapes.end() ? 0 : static_cast<uint32_t>(found->second.size());
}

}  // namespace

ModelSummary SummarizeModel(const GroupShapes& groupShapes,
                            const std::vector<AttributeMap>& resultAttributes) {
    CollectedValues collected = CollectValues(resultAttributes);
    ModelSummary summary;
    if (collected.count("Title") != 0) summary.title = collected["Title"].front();
    summary.category = Category(collected);
    summary.partCount = ShapeCount(groupShapes, "Geometry");
    summary.cutSectionCount = ShapeCount(groupShapes, "Cut-Sections");
    summary.isoSurfaceCount = ShapeCount(groupShapes, "Iso-Surfaces");
    summary.isoVolumeCount = ShapeCount(groupShapes, "Iso-Volumes");
    summary.flowLineCount = ShapeCount(groupShapes, "Flow Lines");
    auto parts = groupShapes.find("Geometry");
    if (parts != groupShapes.end()) summary.parts = parts->second;
    summary.results = std::move(collected["Result Name"]);
    summary.instances = std::move(collected["Instance Name"]);
    summary.timeSteps = std::move(collected["Time"]);
    summary.frequencies = std::move(collected["Frequency"]);
    return summary;
}

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

std::string JoinValues(const std::vector<std::string>& values) {
    std::string joined;
    for (size_t i = 0; i < values.size(); ++i) {
        if (i != 0) joined += ", ";
        joined += values[i];
    }
    return joined;
}

}  // namespace MrlZol
