#pragma once
// What a comparison found: the data behind the text and the JSON reports.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ZolDiff {

// An array's key in both models.
struct ArrayKey {
    std::string analysis, geometry, result, name, instance;
};

// One pair of values: where it is in A's array and what the two values are.
struct ValueDiff {
    uint64_t index = 0;         // the value's position in A's array
    std::optional<int64_t> id;  // node or element id, for arrays of nodes or elements
    uint64_t component = 0;     // position within the node or element (or in the array's
                                // items of Components() values)
    double a = 0, b = 0;
    double abs = 0, rel = 0;
};

struct ArrayDiff {
    ArrayKey key;
    bool isFloat = true;
    std::string idKind;  // "node" or "element": what the values' ids are of
    uint64_t sizeA = 0, sizeB = 0;
    unsigned componentsA = 0, componentsB = 0;
    bool typesDiffer = false;  // float in one model, integer in the other
    uint64_t compared = 0;     // pairs of values compared
    uint64_t differing = 0;    // pairs out of tolerance
    uint64_t unpaired = 0;     // references of paired elements that the other one lacks
    std::optional<ValueDiff> maxAbs, maxRel;
    std::vector<ValueDiff> first;  // the first differences, up to --max-report

    bool ShapeDiffers() const {
        return typesDiffer || sizeA != sizeB || componentsA != componentsB;
    }
    bool Differs() const { return differing != 0 || unpaired != 0 || ShapeDiffers(); }
};

// Node or element ids that only one model's geometry has.
struct IdDiff {
    std::string analysis, geometry;
    std::string what;  // "node" or "element"
    uint64_t onlyInACount = 0, onlyInBCount = 0;
    std::vector<int64_t> onlyInA, onlyInB;  // the first ones, up to --max-report
};

struct EntryDiff {
    std::string name;
    std::optional<std::string> a, b;  // nothing: the model has no such entry
};

struct DiffReport {
    std::string pathA, pathB;
    std::vector<EntryDiff> entries;
    std::vector<ArrayKey> onlyInA, onlyInB;
    std::vector<IdDiff> ids;
    std::vector<ArrayDiff> arrays;   // only those that differ
    std::vector<std::string> notes;  // how matching fell back, say
    uint64_t arraysCompared = 0;
    uint64_t valuesCompared = 0;

    bool Equal() const {
        return entries.empty() && onlyInA.empty() && onlyInB.empty() && ids.empty() &&
               arrays.empty();
    }
};

}  // namespace ZolDiff
