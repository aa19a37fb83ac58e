#include "SizeText.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "NumberFormat.h"

namespace ZolInfo {

std::string FormatFileSize(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
    // Single precision throughout, as the report has always been computed. Sizes of 2 GiB
    // and more use the real size rather than a wrapped 32-bit one.
    int64_t bytes = status.st_size;
    float size = bytes < INT64_C(2147483648) ? static_cast<float>(static_cast<int32_t>(bytes))
                                             : static_cast<float>(bytes);
    float megabytes = size / 1048576.0f;
    if (megabytes > 1.0f) return FloatText(megabytes) + " MB";
    float kilobytes = size / 1024.0f;
    if (kilobytes > 1.0f) return FloatText(kilobytes) + " KB";
    return FloatText(size) + " B";
}

std::string FormatPeakMemory() {
    struct rusage usage {};
    if (getrusage(RUSAGE_SELF, &usage) != 0) return std::string();
    // ru_maxrss is in KiB here.
    uint64_t bytes = static_cast<uint64_t>(usage.ru_maxrss) * 1024;
    return std::to_string(bytes >> 20) + " Mb";
}

}  // namespace ZolInfo
