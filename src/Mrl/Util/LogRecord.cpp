#include "Mrl/Util/LogRecord.h"

#include <cstring>
#include <ctime>

#include "Mrl/Log/LogManager.h"

namespace Mrl::Util {

LogRecord::LogRecord(uint16_t level, const char* file, uint32_t line, const char* method)
    : level(level), file(file), line(line), method(method), time(std::time(nullptr)) {}

void LogRecord::Append(const char* more) {
    if (more == nullptr) return;
    size_t used = std::strlen(text);
    size_t room = kTextMax - used;
    size_t add = strnlen(more, room);
    std::memcpy(text + used, more, add);
    text[used + add] = '\0';
}

void PublishLog(uint16_t level, const char* text, const char* file, uint32_t line,
                const char* method) {
    LogRecord record(level, file, line, method);
    record.Append(text);
    Log::LogManager::Instance().Publish(record);
}

}  // namespace Mrl::Util
