#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace MrlZol {

class DataLoader;

// One array of one Geometry as the data dump sees it. Its values are read through `loader`
// on demand and can be given back, so that a caller holds only the arrays it is using.
struct ArrayRecord {
    std::string analysis;      // the group above the shape's "Geometry" group
    std::string geometryName;  // the Geometry that owns the array
    std::string itemName;      // the full data name
    std::string resultName;
    std::string instanceName;
    int32_t kind = 0;
    bool isFloat = true;  // false for connectivity kinds: the values are in intValues
    std::vector<std::string> elementSets;  // the owner first, then the Geometries linking to it
    std::shared_ptr<const DataLoader> loader;
    size_t count = 0;  // the number of values a load gives, checked when the record was made

    std::vector<float> floatValues;
    std::vector<uint32_t> intValues;  // connectivity kinds

    // The number of values, whether or not they are in memory.
    size_t Size() const;
    // Reads the values unless they are in memory. A read that fails leaves the record empty,
    // with size 0; call it before sizing anything by Size().
    void LoadValues();
    // Gives the memory of values that can be read again back.
    void ReleaseValues();
    // Values [first, first + n) as 32-bit patterns, from memory if they are there, else
    // decoded from the payload with only its block of the name kept in memory.
    void ReadRange(size_t first, size_t n, uint32_t* destination) const;
    // The bytes the values take once read.
    size_t ByteSize() const { return Size() * 4; }
    // The index entry of the block that holds the payload, or kNoEntry when the values are in
    // memory, there are none, or the block is not known yet.
    uint64_t BlockEntry() const;
    bool InMemory() const { return !floatValues.empty() || !intValues.empty(); }
};

}  // namespace MrlZol
