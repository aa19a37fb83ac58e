#pragma once
// Small models for the compare tests: a plate of quads with node and element ids, results per
// node and per element, and a few report facts, written as Zol bytes. Tests plant differences
// in a copy and reorder its nodes or elements.
#include <cstdint>
#include <string>
#include <vector>

#include "ZolFileBuilder.h"

namespace ZolTest {

struct DiffResult {
    std::string name;  // result, 0x1E, instance
    std::vector<float> values;
    uint8_t components = 1;
    bool perElement = false;  // else per node, or neither when `loose`
    bool loose = false;
};

struct DiffModel {
    std::vector<float> nodeIds;      // as the file stores them
    std::vector<float> coordinates;  // x, y, z per node
    std::vector<float> elementIds;   // none: the geometry has no element ids
    std::vector<uint32_t> lengths;
    std::vector<uint32_t> connectivity;  // node ids, element after element
    std::vector<DiffResult> results;
    std::string comment = "first run";
    std::string date = "2024-01-01";
    bool compressed = false;

    size_t Nodes() const { return nodeIds.size(); }
    DiffResult& Result(const std::string& name);
    Bytes Build() const;
};

// A plate of 4 x 3 nodes (ids 101 to 112) and 6 quads (ids 1 to 6) with "Stress" at
// "Step 1" (a value per node), "Displacement" at "Step 1" (3 per node), "Energy" at "Step 1"
// (one per element) and "Load" (5 values, neither per node nor per element).
DiffModel Plate();

// The same mesh with its nodes in `nodeOrder` (position k holds the old node nodeOrder[k])
// and its elements in `elementOrder`; every array of nodes or elements follows.
DiffModel Reordered(const DiffModel& model, const std::vector<size_t>& nodeOrder,
                    const std::vector<size_t>& elementOrder);

// The position of the node with this id.
size_t NodeAt(const DiffModel& model, float id);

}  // namespace ZolTest
