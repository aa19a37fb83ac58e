#pragma once
// Two models compared whole: report entries, the lists of arrays, and every value.
#include <Mrl/Model.h>

#include "diff/Options.h"
#include "diff/Report.h"

namespace ZolDiff {

// Throws Mrl::Error when a payload can't be read.
DiffReport CompareModels(const Mrl::Model& a, const Mrl::Model& b, const Options& options);

}  // namespace ZolDiff
