#pragma once
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "Mrl/Zol/Attributes.h"
#include "Mrl/Zol/Tree.h"
#include "ReportWriter.h"

namespace ZolInfo {

using GroupShapes = std::map<std::string, std::vector<std::string>>;

// One pass over the shapes in id order: classifies them by their groups, copies the
// attributes of every result array and, in the dump mode, reads the arrays into the
// writer's records. A failure ends the pass, is reported on err, and the run goes on.
void CollectModelData(MrlZol::Tree& tree, ReportWriter& writer, GroupShapes& groupShapes,
                      std::vector<MrlZol::AttributeMap>& resultAttributes, std::ostream& err);

// Category, counts and value lists of the model.
void WriteModelSummary(ReportWriter& writer, const GroupShapes& groupShapes,
                       const std::vector<MrlZol::AttributeMap>& resultAttributes);

std::string JoinValues(const std::vector<std::string>& values);

// A data name splits at its first 0x1E into result name and instance name.
void SplitDataName(const std::string& name, std::string& resultName, std::string& instanceName);

}  // namespace ZolInfo
