#pragma once
// The values of one array in both models, compared pair by pair as a plan pairs them. Values
// stream through in ranges of at most a million per model, so memory stays bounded whatever
// the array's size.
#include <Mrl/Model.h>

#include <cstdint>

#include "diff/MeshMatch.h"
#include "diff/Report.h"
#include "diff/Tolerance.h"

namespace ZolDiff {

// Compares the values of a and b (of one value type) and fills `diff`'s counts, largest
// differences and first differences. Integer arrays compare exactly whatever the tolerance.
// Throws Mrl::Error when a payload can't be read.
void CompareValues(const Mrl::Array& a, const Mrl::Array& b, const Plan& plan,
                   const Tolerance& tolerance, uint64_t maxReport, ArrayDiff& diff);

}  // namespace ZolDiff
