#include "diff/NumberText.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace ZolDiff {

namespace {

template <class T>
std::string Shortest(T value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    char text[64];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

}  // namespace

std::string ValueText(double value, bool isFloat) {
    if (isFloat) return Shortest(static_cast<float>(value));
    return std::to_string(static_cast<uint64_t>(value));
}

std::string DoubleText(double value) {
    return Shortest(value);
}

}  // namespace ZolDiff
