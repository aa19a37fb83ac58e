#pragma once
#include <cstdint>
#include <exception>

#include "Mrl/Util/LogRecord.h"

namespace Mrl::Util {

// The kinds of failure. There is no kind 20.
enum Kind : uint32_t {
    MemoryAllocationError = 0,
    OutOfBounds = 1,
    UnknownVersion = 2,
    NotInitialized = 3,
    ElementExists = 4,
    ElementNotFound = 5,
    InvalidMethod = 6,
    InvalidEnumeration = 7,
    InvalidObject = 8,
    ReadError = 9,
    WriteError = 10,
    FormatNotSupported = 11,
    BadCasting = 12,
    NotImplemented = 13,
    MisMatchError = 14,
    SystemError = 15,
    MiscelleneousError = 16,
    ZeroLength = 17,
    ModelError = 18,
    StateError = 19,
    InvalidException = 21,
};

const char* KindName(uint32_t kind);

// The one exception class of the system. Fixed-size members only: making, copying and
// throwing it never touches the heap.
class Exception : public std::exception {
public:
    static constexpr unsigned kRenderedMax = 5632;

    Exception(uint32_t kind, const char* description, const char* file, uint32_t line,
              const char* method);
    Exception(uint32_t kind, const char* file, uint32_t line, const char* method);
    ~Exception() override = default;

    const char* what() const noexcept override { return rendered; }
    virtual uint32_t GetKind() const noexcept { return kind; }
    virtual const char* GetDescription() const noexcept { return record.text; }

private:
    void Render();

    uint32_t kind;
    LogRecord record;
    char rendered[kRenderedMax];
};

// Logs the failure at level 2000, then throws it. Every throw site goes through here.
[[noreturn]] void Raise(uint32_t kind, const char* description, const char* file, uint32_t line,
                        const char* method);

}  // namespace Mrl::Util

// description may be nullptr: the kind's name stands in for it.
#define MRL_THROW(kind, description, source, method) \
    ::Mrl::Util::Raise((kind), (description), (source), __LINE__, (method))
