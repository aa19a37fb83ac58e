#pragma once
// Number text for the report and the dump. Every function writes exactly what a default-configured
// std::ostream prints for the value (general notation, six significant digits), which is also what
// printf("%g") prints, but without a stream, a locale or an allocation.
#include <cstddef>
#include <cstdint>
#include <string>

namespace ZolInfo {

// Room that one number may need; the longest text is that of INT64_MIN or of a double such as
// "-1.79769e+308".
constexpr size_t kNumberTextMax = 32;

// Each writes the text at out, which must have kNumberTextMax bytes, and returns one past its end.
// No terminating zero is written.
//
// FormatFloat: general notation with precision 6, no trailing zeros, an exponent of at least two
// digits, and "inf", "-inf", "nan", "-nan" for the special values (the sign of a NaN is shown).
// A float passed here widened to double gives the same text as the float itself.
char* FormatFloat(char* out, double v);
// The same text for a float, computed with exact integer arithmetic on its bits: several
// times faster than the general conversion for the values of a dump.
char* FormatFloat(char* out, float v);
char* FormatUnsigned(char* out, uint64_t v);
char* FormatSigned(char* out, int64_t v);

// The text of FormatFloat as a string, for code that is not on a hot path.
std::string FloatText(double v);

}  // namespace ZolInfo
