#pragma once
#include <ostream>

namespace Mrl::Util {

// The stream that the few direct error messages of the library go to, or null for none (the
// default: a library never prints unless its caller asks). Each thread has its own, so that
// a run in one thread doesn't send its messages into another's stream.
std::ostream* ErrorStream();
void SetErrorStream(std::ostream* stream);

}  // namespace Mrl::Util
