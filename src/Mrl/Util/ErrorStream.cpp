#include "Mrl/Util/ErrorStream.h"

#include <iostream>

namespace Mrl::Util {

namespace {
std::ostream* current = nullptr;
}

std::ostream& ErrorStream() {
    return current != nullptr ? *current : std::cerr;
}

void SetErrorStream(std::ostream* stream) {
    current = stream;
}

}  // namespace Mrl::Util
