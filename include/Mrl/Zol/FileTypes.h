#pragma once
#include <string>

namespace MrlZol {

// The solver format of a model or results file, named from its path alone.
std::string GetFileTypeName(const std::string& path);

}  // namespace MrlZol
