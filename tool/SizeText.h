#pragma once
#include <string>

namespace ZolInfo {

// The Zol file's size as the report gives it: "1024 B", "1.5 KB", "4.76837 MB".
std::string FormatFileSize(const std::string& path);
// The process's peak resident memory in whole mebibytes, "<n> Mb"; empty if unknown.
std::string FormatPeakMemory();

}  // namespace ZolInfo
