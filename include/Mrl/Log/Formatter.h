#pragma once
#include <string>

#include "Mrl/Util/LogRecord.h"

namespace Mrl::Log {

// Turns a record into the text of one log line.
class Formatter {
public:
    virtual ~Formatter() = default;
    virtual std::string operator()(const Util::LogRecord& record) const = 0;
};

// "<last path component> : <line> @ <text>\n"; neither time nor level nor method.
class DefaultFormatter : public Formatter {
public:
    std::string operator()(const Util::LogRecord& record) const override;
};

}  // namespace Mrl::Log
