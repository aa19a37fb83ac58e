#include "diff/ModelCompare.h"

#include <map>
#include <tuple>

#include "diff/ArrayCompare.h"
#include "diff/MeshMatch.h"

namespace ZolDiff {

namespace {

// A fact of the file rather than of the model: another block layout or compression of the
// same model changes it.
const char* const kFileSizeEntry = "Zol File Size";

using Entries = std::vector<std::pair<std::string, std::string>>;

// The first value of each name, names in their first order.
std::vector<std::pair<std::string, std::string>> Kept(const Entries& entries,
                                                      const Options& options) {
    std::vector<std::pair<std::string, std::string>> kept;
    std::map<std::string, bool> seen;
    for (const auto& [name, value] : entries) {
        if (name == kFileSizeEntry || options.EntryIgnored(name)) continue;
        if (seen.emplace(name, true).second) kept.emplace_back(name, value);
    }
    return kept;
}

void CompareEntries(const Entries& a, const Entries& b, const Options& options,
                    DiffReport& report) {
    const auto keptA = Kept(a, options), keptB = Kept(b, options);
    const std::map<std::string, std::string> inB(keptB.begin(), keptB.end());
    std::map<std::string, bool> inA;
    for (const auto& [name, value] : keptA) {
        inA[name] = true;
        const auto found = inB.find(name);
        if (found == inB.end()) {
            report.entries.push_back({name, value, std::nullopt});
        } else if (found->second != value) {
            report.entries.push_back({name, value, found->second});
        }
    }
    for (const auto& [name, value] : keptB) {
        if (inA.count(name) == 0) report.entries.push_back({name, std::nullopt, value});
    }
}

ArrayKey KeyOf(const Mrl::Array& array) {
    return {array.Analysis(), array.Geometry(), array.Result(), array.Name(), array.Instance()};
}

// Arrays by analysis, geometry and name; a repeated key is told apart by its occurrence.
using Slot = std::tuple<std::string, std::string, std::string, size_t>;

std::vector<Slot> Slots(const std::vector<Mrl::Array>& arrays) {
    std::map<std::tuple<std::string, std::string, std::string>, size_t> occurrences;
    std::vector<Slot> slots;
    for (const Mrl::Array& array : arrays) {
        const size_t n = occurrences[{array.Analysis(), array.Geometry(), array.Name()}]++;
        slots.emplace_back(array.Analysis(), array.Geometry(), array.Name(), n);
    }
    return slots;
}

// Ids and counts, whatever their value type, must match exactly.
bool ExactByName(const std::string& result) {
    return result == "Node Ids" || result == "Element Ids" || result == "Element IDs" ||
           result == "Element Indices" || result == "Polylength" || result == "Connectivity";
}

ArrayDiff CompareArrays(const Mrl::Array& a, const Mrl::Array& b, MeshMatcher& matcher,
                        const Options& options, Scratch& scratch) {
    ArrayDiff diff;
    diff.key = KeyOf(a);
    diff.isFloat = a.IsFloat();
    diff.sizeA = a.Size();
    diff.sizeB = b.Size();
    diff.componentsA = a.Components();
    diff.componentsB = b.Components();
    diff.typesDiffer = a.IsFloat() != b.IsFloat();
    if (diff.typesDiffer) return diff;
    const Tolerance tolerance = ExactByName(a.Result()) ? Tolerance{} : options.For(a.Result());
    CompareValues(a, b, matcher.PlanFor(a, b), tolerance, options.maxReport, diff, scratch);
    return diff;
}

}  // namespace

DiffReport CompareModels(const Mrl::Model& a, const Mrl::Model& b, const Options& options) {
    DiffReport report;
    report.pathA = a.Path();
    report.pathB = b.Path();
    CompareEntries(a.Report(), b.Report(), options, report);

    const std::vector<Mrl::Array>& arraysA = a.Arrays();
    const std::vector<Mrl::Array>& arraysB = b.Arrays();
    const std::vector<Slot> slotsA = Slots(arraysA), slotsB = Slots(arraysB);
    std::map<Slot, size_t> inB;
    for (size_t j = 0; j < slotsB.size(); ++j) inB.emplace(slotsB[j], j);
    std::vector<bool> paired(arraysB.size(), false);
    MeshMatcher matcher(a, b, options, report);
    Scratch scratch;
    for (size_t i = 0; i < arraysA.size(); ++i) {
        if (options.Ignored(arraysA[i].Result())) continue;
        const auto found = inB.find(slotsA[i]);
        if (found == inB.end()) {
            report.onlyInA.push_back(KeyOf(arraysA[i]));
            continue;
        }
        paired[found->second] = true;
        ArrayDiff diff =
            CompareArrays(arraysA[i], arraysB[found->second], matcher, options, scratch);
        ++report.arraysCompared;
        report.valuesCompared += diff.compared;
        if (diff.Differs()) report.arrays.push_back(std::move(diff));
    }
    for (size_t j = 0; j < arraysB.size(); ++j) {
        if (!paired[j] && !options.Ignored(arraysB[j].Result())) {
            report.onlyInB.push_back(KeyOf(arraysB[j]));
        }
    }
    return report;
}

}  // namespace ZolDiff
