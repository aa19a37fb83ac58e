#pragma once
// Which node and element of model B stands for each one of model A, per geometry: by their
// ids where both models have them, else by position; and how an array's values group into
// nodes, elements or the references of elements.
#include <Mrl/Model.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "diff/Options.h"
#include "diff/Report.h"

namespace ZolDiff {

constexpr uint32_t kNoItem = 0xFFFFFFFFu;

// How an array's values group into items: `count` items of `width` values, or items that
// run from offsets[i] to offsets[i + 1].
struct Items {
    uint64_t count = 0;
    uint64_t width = 1;
    std::shared_ptr<const std::vector<uint64_t>> offsets;

    uint64_t Begin(uint64_t i) const { return offsets ? (*offsets)[i] : i * width; }
    uint64_t End(uint64_t i) const { return offsets ? (*offsets)[i + 1] : (i + 1) * width; }
    bool SameLayout(const Items& other) const;
    // The item that holds value `index` (which lies within the items).
    uint64_t ItemOf(uint64_t index) const;
};

// The nodes or the elements of one geometry in both models.
struct ItemMatch {
    uint64_t countA = 0, countB = 0;
    std::optional<Mrl::Array> idArrayA;  // A's ids, if it has them
    // A's ids in memory, when they pair items in another order.
    std::shared_ptr<const std::vector<int64_t>> idsA;
    std::vector<uint32_t> toB;  // A's item i is B's item toB[i] (kNoItem: none); empty: i is i
    bool byIds = false;

    // The id of A's item, if A has a finite one for it.
    std::optional<int64_t> IdOf(uint64_t item) const;
};

// How to pair the values of one array of A with those of B.
struct Plan {
    Items itemsA, itemsB;
    const std::vector<uint32_t>* toB = nullptr;  // null: item i pairs with item i
    const ItemMatch* ids = nullptr;              // A's item ids; null: the array has none
    std::string idKind;                          // "node" or "element", with ids
};

// Builds the matches of a geometry when one of its arrays is first compared; keeps those of
// the latest geometry only, since a model's arrays come geometry by geometry.
class MeshMatcher {
public:
    MeshMatcher(const Mrl::Model& a, const Mrl::Model& b, const Options& options,
                DiffReport& report);

    Plan PlanFor(const Mrl::Array& a, const Mrl::Array& b);

private:
    // The mesh arrays of one geometry of one model.
    struct MeshArrays {
        std::optional<Mrl::Array> nodeIds, elementIds, polylength;
    };
    struct GeometryMatch {
        ItemMatch nodes, elements;
        std::shared_ptr<const std::vector<uint64_t>> offsetsA, offsetsB;  // of the references
    };

    using GeometryKey = std::pair<std::string, std::string>;  // analysis, geometry

    void Build(const GeometryKey& key);
    ItemMatch MatchItems(const std::optional<Mrl::Array>& a, const std::optional<Mrl::Array>& b,
                         const GeometryKey& key, const std::string& what);

    const Options& options_;
    DiffReport& report_;
    std::map<GeometryKey, MeshArrays> meshesA_, meshesB_;
    std::optional<GeometryKey> current_;
    GeometryMatch match_;
    // Geometries and kinds of items whose id differences are reported already.
    std::set<std::pair<GeometryKey, std::string>> reported_;
};

}  // namespace ZolDiff
