#pragma once
#include <cstddef>

#include "Mrl/Zol/DataLoader.h"
#include "ReportWriter.h"

namespace ZolInfo {

// Does what DataLoader::LoadTo does up to the copy (element tag, positioning, the bounds of
// the payload in its block), so that it fails exactly where LoadTo would, and returns the
// number of elements LoadTo would give.
size_t CheckLoad(const MrlZol::DataLoader& loader, bool asFloat);

// Reads a record's values through its source if they are not in memory. Call it before sizing
// anything by Size(): a read that fails now leaves the record empty, with size 0.
void Materialize(DataRecord& record);
// Gives the memory of values that can be read again back.
void Release(DataRecord& record);

}  // namespace ZolInfo
