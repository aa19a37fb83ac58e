#pragma once
// The text summary: what differs, and one line when nothing does.
#include <string>

#include "diff/Report.h"

namespace ZolDiff {

std::string FormatText(const DiffReport& report);

}  // namespace ZolDiff
