#include "TranslationHistory.h"

namespace ZolInfo {

void WriteTranslationHistory(ReportWriter& writer,
                             const std::vector<MrlZol::TranslationRecord>& translations) {
    size_t n = translations.size();
    if (n == 0) return;
    std::vector<std::string> suffixes(n);
    suffixes[n - 1] = " (Latest Translation)";
    if (n > 1) suffixes[0] = " (Original Modification)";
    for (size_t i = 0; i < n; ++i) {
        if (!suffixes[i].empty()) WriteTranslationRecord(writer, translations[i], suffixes[i]);
    }
}

void WriteTranslationRecord(ReportWriter& writer, const MrlZol::TranslationRecord& record,
                            const std::string& suffix) {
    const std::pair<const char*, const std::string*> rows[] = {
        {"Application name", &record.applicationName},
        {"Application version", &record.applicationVersion},
        {"Zol version", &record.zolVersion},
        {"User name", &record.userName},
        {"Date", &record.date},
        {"Comment", &record.comment},
    };
    for (const auto& [key, value] : rows) {
        if (!value->empty()) writer.AddAttribute(key + suffix, *value);
    }
}

}  // namespace ZolInfo
