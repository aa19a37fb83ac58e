#include "Mrl/Log/Formatter.h"

#include <cstring>

namespace Mrl::Log {

std::string DefaultFormatter::operator()(const Util::LogRecord& record) const {
    const char* file = record.file != nullptr ? record.file : "";
    const char* base = file;
    for (const char* p = file; *p != '\0'; ++p) {
        if (*p == '/' || *p == '\\') base = p + 1;
    }
    std::string line;
    line.reserve(std::strlen(base) + std::strlen(record.text) + 24);
    line += base;
    line += " : ";
    line += std::to_string(record.line);
    line += " @ ";
    line += record.text;
    line += '\n';
    return line;
}

}  // namespace Mrl::Log
