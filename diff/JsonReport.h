#pragma once
// The report as one JSON document (docs/diff.md describes it).
#include <string>

#include "diff/Report.h"

namespace ZolDiff {

std::string FormatJson(const DiffReport& report);

// A JSON string literal. Bytes that are not UTF-8 become the escapes \udc80 to \udcff, which
// Python reads back as its surrogate escapes of those bytes.
std::string JsonString(const std::string& text);

}  // namespace ZolDiff
