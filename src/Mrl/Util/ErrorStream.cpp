#include "Mrl/Util/ErrorStream.h"

namespace Mrl::Util {

namespace {
thread_local std::ostream* current = nullptr;
}

std::ostream* ErrorStream() {
    return current;
}

void SetErrorStream(std::ostream* stream) {
    current = stream;
}

}  // namespace Mrl::Util
