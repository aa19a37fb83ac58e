#include <optional>

#include "Mrl/Zol/ModelFacts.h"

namespace MrlZol {

namespace {

using Entries = std::vector<ReportEntry>;

void AddTranslation(Entries& entries, const TranslationRecord& record, const std::string& suffix) {
    const std::pair<const char*, const std::string*> rows[] = {
        {"Application name", &record.applicationName},
        {"Application version", &record.applicationVersion},
        {"Zol version", &record.zolVersion},
        {"User name", &record.userName},
        {"Date", &record.date},
        {"Comment", &record.comment},
    };
    for (const auto& [key, value] : rows) {
        if (!value->empty()) entries.push_back({key + suffix, *value});
    }
}

// Where the file came from and where it was last touched: the first and the last record.
void AddTranslations(Entries& entries, const std::vector<TranslationRecord>& translations) {
    size_t n = translations.size();
    if (n > 1) AddTranslation(entries, translations.front(), " (Original Modification)");
    if (n > 0) AddTranslation(entries, translations.back(), " (Latest Translation)");
}

void AddIf(Entries& entries, const char* key, const std::optional<std::string>& value) {
    if (value) entries.push_back({key, *value});
}

void AddRoot(Entries& entries, const RootFacts& root) {
    AddIf(entries, "Model File", root.modelFile);
    AddIf(entries, "Model File Type", root.modelFileType);
    AddIf(entries, "Native Model File Size", root.modelFileSize);
    AddIf(entries, "Results File", root.resultsFile);
    AddIf(entries, "Results File Type", root.resultsFileType);
    AddIf(entries, "Native Results File Size", root.resultsFileSize);
    AddIf(entries, "Number of Nodes", root.nodeCount);
    AddIf(entries, "Number of Elements", root.elementCount);
}

void AddCount(Entries& entries, const char* key, size_t count) {
    entries.push_back({key, std::to_string(count)});
}

// A list with values but no text (a lone empty value) is left out.
void AddList(Entries& entries, const char* key, const std::vector<std::string>& values) {
    std::string text = JoinValues(values);
    if (!text.empty()) entries.push_back({key, std::move(text)});
}

void AddSummary(Entries& entries, const ModelSummary& summary) {
    AddIf(entries, "Title", summary.title);
    entries.push_back({"Category", summary.category});
    AddCount(entries, "Number of Parts", summary.partCount);
    AddCount(entries, "Number of Cut-sections", summary.cutSectionCount);
    AddCount(entries, "Number of Iso-surfaces", summary.isoSurfaceCount);
    AddCount(entries, "Number of Iso-volumes", summary.isoVolumeCount);
    AddCount(entries, "Number of Flow-lines", summary.flowLineCount);
    if (!summary.results.empty()) AddCount(entries, "Number of Results", summary.results.size());
    if (!summary.instances.empty()) {
        AddCount(entries, "Number of Instances", summary.instances.size());
    }
    if (!summary.parts.empty()) entries.push_back({"Parts", JoinValues(summary.parts)});
    AddList(entries, "Results", summary.results);
    AddList(entries, "Instances", summary.instances);
    AddList(entries, "Time Steps", summary.timeSteps);
    AddList(entries, "Frequencies", summary.frequencies);
}

}  // namespace

std::vector<ReportEntry> ReportEntries(const ModelFacts& facts) {
    Entries entries;
    AddTranslations(entries, facts.translations);
    AddRoot(entries, facts.root);
    entries.push_back({"Zol File Size", facts.fileSizeText});
    AddSummary(entries, facts.summary);
    return entries;
}

}  // namespace MrlZol
