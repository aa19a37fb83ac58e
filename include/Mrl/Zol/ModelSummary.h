#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Mrl/Zol/ArrayRecord.h"
#include "Mrl/Zol/Attributes.h"

namespace MrlZol {

class Tree;

// Group name to the names of its shapes, in the order of the pass; groups of one name pool.
using GroupShapes = std::map<std::string, std::vector<std::string>>;

// What a model consists of, read off the names and attributes of its shapes and arrays.
// Value lists are sorted as texts and free of repeats; a list is empty when no array has
// the attribute.
struct ModelSummary {
    std::optional<std::string> title;  // the smallest title of any array
    std::string category = "Unknown";
    uint32_t partCount = 0;
    uint32_t cutSectionCount = 0;
    uint32_t isoSurfaceCount = 0;
    uint32_t isoVolumeCount = 0;
    uint32_t flowLineCount = 0;
    std::vector<std::string> parts;  // in the order of the pass, repeats kept
    std::vector<std::string> results;
    std::vector<std::string> instances;
    std::vector<std::string> timeSteps;
    std::vector<std::string> frequencies;
};

// One pass over the shapes in id order: classifies them by their groups, copies the
// attributes of every result array and, if `arrays` is given, makes a record of every array
// that is not a link, its load checked. A failure raises; what was gathered before stays.
// Without checkLoads nothing of the arrays is read: a record's count is the one its item
// claims, and a bad payload fails when its values are read.
void CollectModelData(Tree& tree, GroupShapes& groupShapes,
                      std::vector<AttributeMap>& resultAttributes, std::vector<ArrayRecord>* arrays,
                      bool checkLoads = true);

ModelSummary SummarizeModel(const GroupShapes& groupShapes,
                            const std::vector<AttributeMap>& resultAttributes);

// A data name splits at its first 0x1E into result name and instance name.
void SplitDataName(const std::string& name, std::string& resultName, std::string& instanceName);

// The values with ", " between them.
std::string JoinValues(const std::vector<std::string>& values);

}  // namespace MrlZol
