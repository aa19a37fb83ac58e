#pragma once
// Number text for the report and the dump. Every function writes exactly what a default-configured
// std::ostream prints for the value (general notation, six significant digits), which is also what
// printf("%g") prints, but without a stream, a locale or an allocation.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace ZolInfo {

// Room that one number may need; the longest text is that of INT64_MIN or of a double such as
// "-1.79769e+308". The float form may also write scratch bytes up to this room past `out`.
constexpr size_t kNumberTextMax = 32;

// Each writes the text at out, which must have kNumberTextMax bytes, and returns one past its end.
// No terminating zero is written.
//
// FormatFloat: general notation with precision 6, no trailing zeros, an exponent of at least two
// digits, and "inf", "-inf", "nan", "-nan" for the special values (the sign of a NaN is shown).
// A float passed here widened to double gives the same text as the float itself.
char* FormatFloat(char* out, double v);
// The same text for a float, computed from its bits with integer multiplications and fixed-size
// copies: no division and no library call for the values of a dump.
char* FormatFloat(char* out, float v);
char* FormatUnsigned(char* out, uint64_t v);
char* FormatSigned(char* out, int64_t v);

// The text of FormatFloat right-aligned in `width` columns from out, as in a field, so that it is
// written once, at its final place; the columns before it are left as they are. Returns one past
// the text. The stores have fixed sizes and may leave scratch bytes up to 13 past the columns.
char* WriteFloat(char* out, float v, int width);

// The text of FormatFloat as a string, for code that is not on a hot path.
std::string FloatText(double v);

// "00" to "99", two characters each.
inline constexpr std::array<char, 200> kDigitPairs = [] {
    std::array<char, 200> pairs{};
    for (int i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

// Number of decimal digits of v; 1 for zero.
inline int DigitCount(uint64_t v) {
    int count = 1;
    for (;;) {
        if (v < 10) return count;
        if (v < 100) return count + 1;
        if (v < 1000) return count + 2;
        if (v < 10000) return count + 3;
        v /= 10000;
        count += 4;
    }
}

// Writes the digits of v so that they end just before `end`, two at a time from the right, and
// returns where they begin. Fields are right-aligned, so their end is known before their text.
inline char* WriteDigitsBefore(char* end, uint64_t v) {
    while (v >= 100) {
        end -= 2;
        std::memcpy(end, &kDigitPairs[2 * (v % 100)], 2);
        v /= 100;
    }
    if (v >= 10) {
        end -= 2;
        std::memcpy(end, &kDigitPairs[2 * v], 2);
    } else {
        *--end = static_cast<char>('0' + v);
    }
    return end;
}

}  // namespace ZolInfo
