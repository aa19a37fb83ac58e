#pragma once
#include <string>
#include <vector>

#include "Mrl/Zol/TranslationRecord.h"
#include "ReportWriter.h"

namespace ZolInfo {

// The first and the last translation, with " (Original Modification)" and
// " (Latest Translation)" behind their keys.
void WriteTranslationHistory(ReportWriter& writer,
                             const std::vector<MrlZol::TranslationRecord>& translations);
void WriteTranslationRecord(ReportWriter& writer, const MrlZol::TranslationRecord& record,
                            const std::string& suffix);

}  // namespace ZolInfo
