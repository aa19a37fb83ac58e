#include "Mrl/Util/Exception.h"

#include <cstdio>
#include <ctime>

#include "Mrl/Log/LogManager.h"

namespace Mrl::Util {

const char* KindName(uint32_t kind) {
    static const char* const names[] = {
        "Memory Allocation Error",
        "Out of Bounds",
        "Unknown Version",
        "Not Initialized",
        "Element Exists",
        "Element Not Found",
        "Invalid Method",
        "Invalid Enumeration",
        "Invalid Object",
        "Read Error",
        "Write Error",
        "Format Not Supported",
        "Bad Casting",
        "Not Implemented",
        "Mis-match Error",
        "System Error",
        "Miscelleneous Error",
        "Zero Length",
        "Model Error",
        "State Error",
    };
    if (kind < sizeof(names) / sizeof(names[0])) return names[kind];
    return "Invalid Exception";
}

Exception::Exception(uint32_t kind, const char* description, const char* file, uint32_t line,
                     const char* method)
    : kind(kind), record(2000, file, line, method), rendered{} {
    record.Append(description != nullptr ? description : KindName(kind));
    Render();
}

Exception::Exception(uint32_t kind, const char* file, uint32_t line, const char* method)
    : Exception(kind, nullptr, file, line, method) {}

void Exception::Render() {
    time_t when = static_cast<time_t>(record.time);
    char timeText[64] = "";
    struct tm local {};
    if (localtime_r(&when, &local) != nullptr) {
        // The fixed 24-character form with its own line end, as ctime gives it.
        std::strftime(timeText, sizeof timeText, "%a %b %e %H:%M:%S %Y\n", &local);
    }
    std::snprintf(rendered, sizeof rendered,
                  "Exception \"%s\" raised. \n%11s : %s \n%11s : %s \n%11s : %lu \n%11s : %s "
                  "\n%11s : %s \n",
                  KindName(kind), "Description", record.text, "File", record.file, "Line",
                  static_cast<unsigned long>(record.line), "Method", record.method, "Time",
                  timeText);
}

void Raise(uint32_t kind, const char* description, const char* file, uint32_t line,
           const char* method) {
    LogRecord logged(2000, file, line, method);
    logged.Append(description != nullptr ? description : KindName(kind));
    Log::LogManager::Instance().Publish(logged);
    throw Exception(kind, description, file, line, method);
}

}  // namespace Mrl::Util
