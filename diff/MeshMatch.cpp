#include "diff/MeshMatch.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace ZolDiff {

namespace {

constexpr uint64_t kChunk = uint64_t{1} << 20;

// Values [first, first + count) of an array of ids, counts or references as integers; false
// when one of them is not a finite number (ids stored as floats are cut toward zero, as the
// dump prints them).
bool ReadIntegerRange(const Mrl::Array& array, uint64_t first, uint64_t count, int64_t* out) {
    if (array.IsFloat()) {
        std::vector<float> floats(count);
        array.Read(first, count, floats.data());
        // 2^63: a float past it, an infinity or a NaN has no integer.
        constexpr float kLimit = 9223372036854775808.0f;
        for (uint64_t k = 0; k < count; ++k) {
            if (!(floats[k] > -kLimit && floats[k] < kLimit)) return false;
            out[k] = static_cast<int64_t>(floats[k]);
        }
    } else {
        std::vector<uint32_t> words(count);
        array.Read(first, count, words.data());
        std::copy(words.begin(), words.end(), out);
    }
    return true;
}

// The whole array as integers, or nothing. Grown as reads succeed: the size is the file's
// claim, the payload may not be there.
std::optional<std::vector<int64_t>> ReadIntegers(const Mrl::Array& array) {
    std::vector<int64_t> values;
    for (uint64_t first = 0; first < array.Size(); first += kChunk) {
        const uint64_t count = std::min(kChunk, array.Size() - first);
        values.resize(first + count);
        if (!ReadIntegerRange(array, first, count, values.data() + first)) return std::nullopt;
    }
    return values;
}

// Whether two arrays hold the same integers, read a chunk at a time: the common case of the
// same ids in the same order needs neither model's ids in memory.
bool SameIntegers(const Mrl::Array& a, const Mrl::Array& b) {
    // Small ranges: their buffers come from the heap again and again instead of fresh pages.
    constexpr uint64_t kRange = uint64_t{1} << 16;
    if (a.Size() != b.Size()) return false;
    std::vector<int64_t> chunkA(std::min(a.Size(), kRange)), chunkB(chunkA.size());
    for (uint64_t first = 0; first < a.Size(); first += kRange) {
        const uint64_t count = std::min(kRange, a.Size() - first);
        if (!ReadIntegerRange(a, first, count, chunkA.data()) ||
            !ReadIntegerRange(b, first, count, chunkB.data()) ||
            !std::equal(chunkA.begin(), chunkA.begin() + static_cast<ptrdiff_t>(count),
                        chunkB.begin())) {
            return false;
        }
    }
    return true;
}

// Where each element's references start in the connectivity, and where the last one ends.
std::shared_ptr<const std::vector<uint64_t>> Offsets(const Mrl::Array& polylength) {
    const std::optional<std::vector<int64_t>> lengths = ReadIntegers(polylength);
    if (!lengths) return nullptr;
    auto offsets = std::make_shared<std::vector<uint64_t>>(lengths->size() + 1, 0);
    // No array holds 2^32 values: lengths that add up past that can't be an element list.
    constexpr int64_t kMost = int64_t{1} << 32;
    for (size_t e = 0; e < lengths->size(); ++e) {
        if ((*lengths)[e] < 0 || (*lengths)[e] > kMost) return nullptr;
        (*offsets)[e + 1] = (*offsets)[e] + static_cast<uint64_t>((*lengths)[e]);
        if ((*offsets)[e + 1] > static_cast<uint64_t>(kMost)) return nullptr;
    }
    return offsets;
}

// The items of `offsets` that lie whole within an array of `size` values.
Items VariableItems(const std::shared_ptr<const std::vector<uint64_t>>& offsets, uint64_t size) {
    const auto end = std::upper_bound(offsets->begin(), offsets->end(), size);
    return {static_cast<uint64_t>(end - offsets->begin()) - 1, 1, offsets};
}

bool IsElementArray(const std::string& result) {
    return result == "Polylength" || result == "Element Ids" || result == "Element IDs";
}

std::string Place(const std::string& analysis, const std::string& geometry) {
    return analysis + "/" + geometry;
}

}  // namespace

bool Items::SameLayout(const Items& other) const {
    if (!offsets && !other.offsets) return width == other.width;
    if (!offsets || !other.offsets) return false;
    const uint64_t common = std::min(count, other.count);
    return offsets == other.offsets ||
           std::equal(offsets->begin(), offsets->begin() + static_cast<ptrdiff_t>(common + 1),
                      other.offsets->begin());
}

uint64_t Items::ItemOf(uint64_t index) const {
    if (!offsets) return index / width;
    const auto after = std::upper_bound(offsets->begin(), offsets->end(), index);
    return static_cast<uint64_t>(after - offsets->begin()) - 1;
}

std::optional<int64_t> ItemMatch::IdOf(uint64_t item) const {
    if (idsA) return item < idsA->size() ? std::optional((*idsA)[item]) : std::nullopt;
    int64_t id = 0;
    if (!idArrayA || item >= idArrayA->Size() || !ReadIntegerRange(*idArrayA, item, 1, &id)) {
        return std::nullopt;
    }
    return id;
}

MeshMatcher::MeshMatcher(const Mrl::Model& a, const Mrl::Model& b, const Options& options,
                         DiffReport& report)
    : options_(options), report_(report) {
    for (const Mrl::Model* model : {&a, &b}) {
        auto& meshes = model == &a ? meshesA_ : meshesB_;
        for (const Mrl::Array& array : model->Arrays()) {
            MeshArrays& mesh = meshes[{array.Analysis(), array.Geometry()}];
            // A later array of a name stands for the geometry, as in the dump.
            if (array.Result() == "Node Ids" && array.Instance().empty()) {
                mesh.nodeIds = array;
            } else if (array.Result() == "Element Ids" || array.Result() == "Element IDs") {
                mesh.elementIds = array;
            } else if (array.Result() == "Polylength") {
                mesh.polylength = array;
            }
        }
    }
}

ItemMatch MeshMatcher::MatchItems(const std::optional<Mrl::Array>& a,
                                  const std::optional<Mrl::Array>& b, const GeometryKey& key,
                                  const std::string& what) {
    ItemMatch match;
    if (!a) return match;
    match.idArrayA = *a;
    if (!b || options_.match == Match::Order || SameIntegers(*a, *b)) return match;
    std::optional<std::vector<int64_t>> idsA = ReadIntegers(*a);
    const std::optional<std::vector<int64_t>> idsB = ReadIntegers(*b);
    if (!idsA || !idsB) return match;
    match.idsA = std::make_shared<const std::vector<int64_t>>(std::move(*idsA));
    const std::vector<int64_t>& ids = *match.idsA;

    // B's items in the order of their ids, for a binary search per item of A.
    std::vector<uint32_t> order(idsB->size());
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(),
              [&](uint32_t x, uint32_t y) { return (*idsB)[x] < (*idsB)[y]; });
    for (size_t k = 1; k < order.size(); ++k) {
        if ((*idsB)[order[k]] == (*idsB)[order[k - 1]]) {
            report_.notes.push_back(Place(key.first, key.second) + ": B has duplicate " + what +
                                    " ids; its " + what + "s are matched by position");
            return match;
        }
    }
    std::vector<uint32_t> toB(ids.size(), kNoItem);
    std::vector<bool> hit(idsB->size(), false);
    IdDiff diff{key.first, key.second, what, 0, 0, {}, {}};
    for (size_t i = 0; i < ids.size(); ++i) {
        const int64_t id = ids[i];
        const auto found = std::lower_bound(order.begin(), order.end(), id,
                                            [&](uint32_t j, int64_t v) { return (*idsB)[j] < v; });
        if (found == order.end() || (*idsB)[*found] != id) {
            if (diff.onlyInA.size() < options_.maxReport) diff.onlyInA.push_back(id);
            ++diff.onlyInACount;
            continue;
        }
        if (hit[*found]) {
            report_.notes.push_back(Place(key.first, key.second) + ": A has duplicate " + what +
                                    " ids; its " + what + "s are matched by position");
            return match;
        }
        hit[*found] = true;
        toB[i] = *found;
    }
    for (size_t j = 0; j < idsB->size(); ++j) {
        if (hit[j]) continue;
        if (diff.onlyInB.size() < options_.maxReport) diff.onlyInB.push_back((*idsB)[j]);
        ++diff.onlyInBCount;
    }
    if ((diff.onlyInACount != 0 || diff.onlyInBCount != 0) &&
        reported_.insert({key, what}).second) {
        report_.ids.push_back(std::move(diff));
    }
    match.toB = std::move(toB);
    match.byIds = true;
    return match;
}

void MeshMatcher::Build(const GeometryKey& key) {
    const MeshArrays& a = meshesA_[key];
    const MeshArrays& b = meshesB_[key];
    match_ = GeometryMatch{};
    match_.nodes = MatchItems(a.nodeIds, b.nodeIds, key, "node");
    match_.nodes.countA = a.nodeIds ? a.nodeIds->Size() : 0;
    match_.nodes.countB = b.nodeIds ? b.nodeIds->Size() : 0;
    match_.elements = MatchItems(a.elementIds, b.elementIds, key, "element");
    auto elementCount = [](const MeshArrays& mesh) {
        return mesh.polylength   ? mesh.polylength->Size()
               : mesh.elementIds ? mesh.elementIds->Size()
                                 : 0;
    };
    match_.elements.countA = elementCount(a);
    match_.elements.countB = elementCount(b);
    if (a.polylength && b.polylength) {
        match_.offsetsA = Offsets(*a.polylength);
        match_.offsetsB = Offsets(*b.polylength);
    }
    current_ = key;
}

Plan MeshMatcher::PlanFor(const Mrl::Array& a, const Mrl::Array& b) {
    const GeometryKey key{a.Analysis(), a.Geometry()};
    if (current_ != key) Build(key);
    Plan plan;
    const uint64_t sizeA = a.Size(), sizeB = b.Size();
    // Fixed items over a counted set of nodes or elements, when the sizes fit them.
    auto perItem = [&](const ItemMatch& match, const char* kind) {
        if (match.countA == 0 || match.countB == 0 || sizeA == 0) return false;
        if (sizeA % match.countA != 0 || sizeB % match.countB != 0) return false;
        const uint64_t width = sizeA / match.countA;
        if (sizeB / match.countB != width) return false;
        plan.itemsA = {match.countA, width, nullptr};
        plan.itemsB = {match.countB, width, nullptr};
        plan.toB = match.toB.empty() ? nullptr : &match.toB;
        plan.ids = match.idArrayA ? &match : nullptr;
        plan.idKind = kind;
        return true;
    };
    const std::string& result = a.Result();
    if (result == "Connectivity" && match_.offsetsA && match_.offsetsB) {
        plan.itemsA = VariableItems(match_.offsetsA, sizeA);
        plan.itemsB = VariableItems(match_.offsetsB, sizeB);
        const ItemMatch& elements = match_.elements;
        plan.toB = elements.toB.size() == plan.itemsA.count ? &elements.toB : nullptr;
        plan.ids = elements.idArrayA && elements.countA == plan.itemsA.count ? &elements : nullptr;
        plan.idKind = "element";
        return plan;
    }
    if (IsElementArray(result)
            ? perItem(match_.elements, "element")
            : perItem(match_.nodes, "node") || perItem(match_.elements, "element")) {
        return plan;
    }
    const uint64_t width = std::max(1u, a.Components());
    plan.itemsA = {sizeA / width, width, nullptr};
    plan.itemsB = {sizeB / width, width, nullptr};
    return plan;
}

}  // namespace ZolDiff
