#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "Mrl/Zol/ModelFacts.h"

namespace MrlZol {

namespace {

std::string SizeText(float value, const char* unit) {
    char text[64];
    std::snprintf(text, sizeof text, "%g%s", static_cast<double>(value), unit);
    return text;
}

}  // namespace

std::string FileSizeText(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
    // Single precision throughout, as the report has always been computed. Sizes of 2 GiB
    // and more use the real size rather than a wrapped 32-bit one.
    int64_t bytes = status.st_size;
    float size = bytes < INT64_C(2147483648) ? static_cast<float>(static_cast<int32_t>(bytes))
                                             : static_cast<float>(bytes);
    float megabytes = size / 1048576.0f;
    if (megabytes > 1.0f) return SizeText(megabytes, " MB");
    float kilobytes = size / 1024.0f;
    if (kilobytes > 1.0f) return SizeText(kilobytes, " KB");
    return SizeText(size, " B");
}

}  // namespace MrlZol
