#pragma once
#include <ostream>

#include "Mrl/Zol/Attributes.h"
#include "Mrl/Zol/Tree.h"
#include "ReportWriter.h"

namespace ZolInfo {

// Copies the root group's attributes; a failure is reported on err and the run goes on.
void CollectRootAttributes(MrlZol::Tree& tree, MrlZol::AttributeMap& rootAttributes,
                           std::ostream& err);
// The model and results files with their formats and sizes, and the model's counts.
void WriteRootEntries(ReportWriter& writer, const MrlZol::AttributeMap& rootAttributes);

}  // namespace ZolInfo
