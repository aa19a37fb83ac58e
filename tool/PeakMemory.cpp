#include "PeakMemory.h"

#include <sys/resource.h>

#include <cstdint>

namespace ZolInfo {

std::string FormatPeakMemory() {
    struct rusage usage {};
    if (getrusage(RUSAGE_SELF, &usage) != 0) return std::string();
    // ru_maxrss is in KiB here.
    uint64_t bytes = static_cast<uint64_t>(usage.ru_maxrss) * 1024;
    return std::to_string(bytes >> 20) + " Mb";
}

}  // namespace ZolInfo
