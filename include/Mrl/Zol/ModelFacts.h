#pragma once
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Mrl/Zol/ArrayRecord.h"
#include "Mrl/Zol/ModelSummary.h"
#include "Mrl/Zol/ReportEntry.h"
#include "Mrl/Zol/TranslationRecord.h"

namespace MrlZol {

class Tree;

// The source files and sizes the translator left on the root group, as report texts; each
// is missing when its attribute is. A file's type is there whenever the file is.
struct RootFacts {
    std::optional<std::string> modelFile;
    std::optional<std::string> modelFileType;
    std::optional<std::string> modelFileSize;
    std::optional<std::string> resultsFile;
    std::optional<std::string> resultsFileType;
    std::optional<std::string> resultsFileSize;
    std::optional<std::string> nodeCount;
    std::optional<std::string> elementCount;
};

// Everything the reports and the dump present about one loaded model.
struct ModelFacts {
    std::vector<TranslationRecord> translations;
    RootFacts root;
    std::string fileSizeText;
    ModelSummary summary;
    std::vector<ArrayRecord> arrays;  // empty unless collected with arrays
};

using FailureHandler = std::function<void(const std::exception&)>;

// Gathers the facts of a loaded tree: the root attributes, then one pass over the shapes.
// A failure in either step goes to onFailure and the step ends there; the facts hold what
// was gathered. With withArrays the pass also makes the records of the arrays, their loads
// checked unless checkLoads is false (see CollectModelData).
ModelFacts CollectModelFacts(Tree& tree, const std::string& fileSizeText, bool withArrays,
                             const FailureHandler& onFailure, bool checkLoads = true);

// The report's entries in their order: history, root facts, file size, summary.
std::vector<ReportEntry> ReportEntries(const ModelFacts& facts);

// The file's size as a report gives it: "1024 B", "1.5 KB", "4.76837 MB"; or the platform's
// text of the failure if the size can't be had.
std::string FileSizeText(const std::string& path);

}  // namespace MrlZol
