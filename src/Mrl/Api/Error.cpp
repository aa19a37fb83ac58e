#include <cstdio>

#include "Details.h"
#include "Mrl/Hbf/BlockZlibUnCompressor.h"
#include "Mrl/Util/Exception.h"

namespace Mrl {

struct Error::Details {
    std::uint32_t kind;
    std::string file;
    std::string description;
    std::string where;
    int systemError;
};

namespace {

// One line, whatever the names hold: control bytes become \xHH.
std::string OneLine(const std::string& text) {
    std::string line;
    line.reserve(text.size());
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7F) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            line += escaped;
        } else {
            line += static_cast<char>(c);
        }
    }
    return line;
}

std::string Message(const std::string& file, const std::string& description,
                    const std::string& where) {
    std::string message = OneLine(file) + ": ";
    if (!where.empty()) message += OneLine(where) + ": ";
    return message + OneLine(description);
}

}  // namespace

Error::Error(std::uint32_t kind, const std::string& file, const std::string& description,
             const std::string& where, int systemError)
    : std::runtime_error(Message(file, description, where)),
      details(
          std::make_shared<const Details>(Details{kind, file, description, where, systemError})) {}

std::uint32_t Error::Kind() const noexcept {
    return details->kind;
}

const std::string& Error::File() const noexcept {
    return details->file;
}

const std::string& Error::Description() const noexcept {
    return details->description;
}

const std::string& Error::Where() const noexcept {
    return details->where;
}

int Error::SystemError() const noexcept {
    return details->systemError;
}

Error ToError(const std::exception& failure, const std::string& file, const std::string& where) {
    if (const auto* known = dynamic_cast<const Util::Exception*>(&failure)) {
        return Error(known->GetKind(), file, known->GetDescription(), where);
    }
    if (const auto* inflate = dynamic_cast<const MrlHbf::InflateError*>(&failure)) {
        std::string text =
            "Error " + std::to_string(inflate->Code()) + " while uncompressing block";
        return Error(Util::Kind::ReadError, file, text, where);
    }
    return Error(Util::Kind::MiscelleneousError, file, failure.what(), where);
}

}  // namespace Mrl
