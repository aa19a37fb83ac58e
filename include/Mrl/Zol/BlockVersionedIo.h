#pragma once
#include <string>
#include <vector>

#include "Mrl/Zol/Material.h"
#include "Mrl/Zol/TranslationRecord.h"

namespace MrlHbf {
class Block;
class HbFile;

// Versioned records: a u32 size that covers the whole record, a version text, the fields
// that the version has, and whatever a newer writer added behind them (skipped).
void CopyFromBlock_Versioned(Block& block, MrlZol::TranslationRecord& record);
void CopyFromBlock_Versioned(Block& block, MrlZol::Material& material);

}  // namespace MrlHbf

namespace MrlZol {

// Reads-by-name of the versioned records; an absent block reads as nothing.
void CopyFromBlock(MrlHbf::HbFile& file, const std::string& name, Material& material);
void CopyFromBlock(MrlHbf::HbFile& file, const std::string& name,
                   std::vector<TranslationRecord>& records);

}  // namespace MrlZol
