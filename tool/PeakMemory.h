#pragma once
#include <string>

namespace ZolInfo {

// The process's peak resident memory in whole mebibytes, "<n> Mb"; empty if unknown.
std::string FormatPeakMemory();

}  // namespace ZolInfo
