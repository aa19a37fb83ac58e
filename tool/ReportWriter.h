#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "Mrl/Zol/ReportEntry.h"

namespace ZolInfo {

enum class ReportMode : int32_t {
    Metadata = 0,
    ExtractData = 1,
    EkmMetaData = 2,
};

// The report as one XML document, in the vocabulary of the mode: the metadata report, or
// the EKM one with its keys in EKM form.
std::string FormatReport(const std::vector<MrlZol::ReportEntry>& entries, ReportMode mode);

}  // namespace ZolInfo
