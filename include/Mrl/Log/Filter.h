#pragma once
#include "Mrl/Util/LogRecord.h"

namespace Mrl::Log {

// Decides whether a record passes a route.
class Filter {
public:
    virtual ~Filter() = default;
    virtual bool operator()(const Util::LogRecord& record) const = 0;
};

template <unsigned Level>
class LevelFilter : public Filter {
public:
    bool operator()(const Util::LogRecord& record) const override { return record.level >= Level; }
};

}  // namespace Mrl::Log
