#pragma once
#include <ostream>

namespace Mrl::Util {

// The stream that the few direct error messages of the library go to (standard error unless
// a caller that runs the tool in-process points it elsewhere).
std::ostream& ErrorStream();
void SetErrorStream(std::ostream* stream);

}  // namespace Mrl::Util
