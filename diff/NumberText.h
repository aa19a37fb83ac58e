#pragma once
// Numbers as the reports write them: the shortest text that reads back as the same value.
#include <string>

namespace ZolDiff {

// A value of an array: float text for float arrays, an integer for integer arrays.
std::string ValueText(double value, bool isFloat);
// A difference or a tolerance.
std::string DoubleText(double value);

}  // namespace ZolDiff
