#pragma once
// Models that the end-to-end cases name.
#include <string>

#include "ZolFileBuilder.h"

namespace ZolTest {

// The bytes of the model called `name`; std::invalid_argument for an unknown name.
Bytes NamedModel(const std::string& name);

}  // namespace ZolTest
