#include "diff/TextReport.h"

#include "diff/NumberText.h"

namespace ZolDiff {

namespace {

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string Label(const ArrayKey& key) {
    std::string label = key.analysis + "/" + key.geometry + "/" + key.result;
    if (!key.instance.empty()) label += " [" + key.instance + "]";
    return label;
}

std::string Ids(const std::vector<int64_t>& ids, uint64_t count) {
    std::string text;
    for (size_t i = 0; i < ids.size(); ++i) text += (i == 0 ? "" : ", ") + std::to_string(ids[i]);
    if (count > ids.size()) text += ids.empty() ? "..." : ", ...";
    return text;
}

std::string Where(const ValueDiff& value, const std::string& idWord) {
    std::string where = "index " + std::to_string(value.index) + " (";
    if (value.id) where += idWord + " " + std::to_string(*value.id) + ", ";
    return where + "component " + std::to_string(value.component) + ")";
}

std::string Pair(const ValueDiff& value, bool isFloat) {
    return ValueText(value.a, isFloat) + " vs " + ValueText(value.b, isFloat);
}

void WriteEntry(const EntryDiff& entry, std::string& text) {
    text += "entry " + Quoted(entry.name) + ": ";
    if (!entry.b) {
        text += "only in A, " + Quoted(*entry.a) + "\n";
    } else if (!entry.a) {
        text += "only in B, " + Quoted(*entry.b) + "\n";
    } else {
        text += Quoted(*entry.a) + " in A, " + Quoted(*entry.b) + " in B\n";
    }
}

void WriteIds(const IdDiff& ids, std::string& text) {
    text += ids.what + " ids of " + ids.analysis + "/" + ids.geometry + ": " +
            std::to_string(ids.onlyInACount) + " only in A";
    if (ids.onlyInACount != 0) text += " (" + Ids(ids.onlyInA, ids.onlyInACount) + ")";
    text += ", " + std::to_string(ids.onlyInBCount) + " only in B";
    if (ids.onlyInBCount != 0) text += " (" + Ids(ids.onlyInB, ids.onlyInBCount) + ")";
    text += "\n";
}

void WriteArray(const ArrayDiff& diff, std::string& text) {
    const std::string& idWord = diff.idKind;
    text += Label(diff.key) + ": ";
    if (diff.typesDiffer) {
        text += std::string("float values in ") + (diff.isFloat ? "A" : "B") +
                ", integer values in " + (diff.isFloat ? "B" : "A") + "\n";
        return;
    }
    text +=
        std::to_string(diff.differing) + " of " + std::to_string(diff.compared) + " values differ";
    if (diff.unpaired != 0) {
        text += ", " + std::to_string(diff.unpaired) + " references without a counterpart";
    }
    text += "\n";
    if (diff.ShapeDiffers()) {
        text += "  size: " + std::to_string(diff.sizeA) + " values in items of " +
                std::to_string(diff.componentsA) + " in A, " + std::to_string(diff.sizeB) +
                " in items of " + std::to_string(diff.componentsB) + " in B\n";
    }
    if (diff.differing == 0) return;
    if (diff.maxAbs) {
        text += "  largest absolute difference " + DoubleText(diff.maxAbs->abs) + " at " +
                Where(*diff.maxAbs, idWord) + ": " + Pair(*diff.maxAbs, diff.isFloat) + "\n";
    }
    if (diff.maxRel) {
        text += "  largest relative difference " + DoubleText(diff.maxRel->rel) + " at " +
                Where(*diff.maxRel, idWord) + ": " + Pair(*diff.maxRel, diff.isFloat) + "\n";
    }
    for (const ValueDiff& value : diff.first) {
        text += "  " + Where(value, idWord) + ": " + Pair(value, diff.isFloat) + "\n";
    }
    if (diff.differing > diff.first.size()) {
        text += "  ... " + std::to_string(diff.differing - diff.first.size()) + " more\n";
    }
}

}  // namespace

std::string FormatText(const DiffReport& report) {
    std::string text;
    if (report.Equal()) {
        text = report.pathA + " and " + report.pathB +
               " are equal: " + std::to_string(report.arraysCompared) + " arrays, " +
               std::to_string(report.valuesCompared) + " values compared\n";
    } else {
        text = report.pathA + " and " + report.pathB + " differ\n";
    }
    for (const std::string& note : report.notes) text += "note: " + note + "\n";
    for (const EntryDiff& entry : report.entries) WriteEntry(entry, text);
    for (const ArrayKey& key : report.onlyInA) text += "only in A: " + Label(key) + "\n";
    for (const ArrayKey& key : report.onlyInB) text += "only in B: " + Label(key) + "\n";
    for (const IdDiff& ids : report.ids) WriteIds(ids, text);
    for (const ArrayDiff& diff : report.arrays) WriteArray(diff, text);
    return text;
}

}  // namespace ZolDiff
