#pragma once
#include <cstdint>

namespace Mrl::Util {

// One log record. It lives on the stack of the code that logs, so that logging needs no heap.
struct LogRecord {
    static constexpr unsigned kTextMax = 5120;

    uint16_t level = 0;
    char text[kTextMax + 1] = {};
    const char* file = "";
    uint32_t line = 0;
    const char* method = "";
    int64_t time = 0;

    LogRecord() = default;
    LogRecord(uint16_t level, const char* file, uint32_t line, const char* method);

    // Bounded concatenation: whatever would pass kTextMax characters in all is dropped.
    void Append(const char* more);
};

// Fills a record at the call site and publishes it to the process-wide log.
void PublishLog(uint16_t level, const char* text, const char* file, uint32_t line,
                const char* method);

}  // namespace Mrl::Util

#define MRL_LOG(level, text, source, method) \
    ::Mrl::Util::PublishLog((level), (text), (source), __LINE__, (method))
