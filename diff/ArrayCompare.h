#pragma once
// The values of one array in both models, compared pair by pair as a plan pairs them. Values
// stream through in ranges of at most a million per model, so memory stays bounded whatever
// the array's size.
#include <Mrl/Model.h>

#include <cstdint>
#include <type_traits>
#include <vector>

#include "diff/MeshMatch.h"
#include "diff/Report.h"
#include "diff/Tolerance.h"

namespace ZolDiff {

// Buffers kept from array to array, so that their pages are faulted in once per run rather
// than once per array.
struct Scratch {
    template <class T>
    struct Values {
        std::vector<T> a, b, run;
    };
    Values<float> floats;
    Values<uint32_t> words;
    std::vector<uint64_t> placed, order;

    template <class T>
    Values<T>& For() {
        if constexpr (std::is_same_v<T, float>) {
            return floats;
        } else {
            return words;
        }
    }
};

// Compares the values of a and b (of one value type) and fills `diff`'s counts, largest
// differences and first differences. Integer arrays compare exactly whatever the tolerance.
// Throws Mrl::Error when a payload can't be read.
void CompareValues(const Mrl::Array& a, const Mrl::Array& b, const Plan& plan,
                   const Tolerance& tolerance, uint64_t maxReport, ArrayDiff& diff,
                   Scratch& scratch);

}  // namespace ZolDiff
