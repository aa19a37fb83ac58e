#include "NumberFormat.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace ZolInfo {

namespace {

char* Copy(char* out, const char* text, size_t length) {
    std::memcpy(out, text, length);
    return out + length;
}

__extension__ typedef unsigned __int128 Wide;

constexpr uint64_t kPowersOfFive[] = {
    1ull,
    5ull,
    25ull,
    125ull,
    625ull,
    3125ull,
    15625ull,
    78125ull,
    390625ull,
    1953125ull,
    9765625ull,
    48828125ull,
    244140625ull,
    1220703125ull,
    6103515625ull,
    30517578125ull,
    152587890625ull,
    762939453125ull,
    3814697265625ull,
    19073486328125ull,
    95367431640625ull,
    476837158203125ull,
    2384185791015625ull,
    11920928955078125ull,
    59604644775390625ull,
    298023223876953125ull,
    1490116119384765625ull,
    7450580596923828125ull,
};

Wide PowerOfFive(int t) {
    if (t < 28) return kPowersOfFive[t];
    return Wide{kPowersOfFive[27]} * kPowersOfFive[t - 27];
}

// The six significant digits of m * 2^e for the decimal exponent E: the quotient of the exact
// value by 10^(E-5), rounded half to even as printf rounds. Returns false when E is too small
// for the quotient to be inside [100000, 1000000) before rounding; `low` and `high` tell which.
bool SixDigits(uint32_t m, int e, int E, uint32_t& digits, bool& low) {
    Wide quotient, remainder, divisor;
    if (E <= 5) {
        // value * 10^t = m * 5^t * 2^(e + t)
        int t = 5 - E;
        Wide product = Wide{m} * PowerOfFive(t);
        int shift = e + t;
        if (shift >= 0) {
            quotient = product << shift;
            remainder = 0;
            divisor = 1;
        } else {
            quotient = product >> -shift;
            remainder = product & ((Wide{1} << -shift) - 1);
            divisor = Wide{1} << -shift;
        }
    } else {
        // value / 10^t = m * 2^(e - t) / 5^t
        int t = E - 5;
        int shift = e - t;
        Wide numerator = Wide{m};
        divisor = PowerOfFive(t);
        if (shift >= 0) {
            numerator <<= shift;
        } else {
            divisor <<= -shift;
        }
        quotient = numerator / divisor;
        remainder = numerator % divisor;
    }
    if (quotient < 100000 || quotient >= 1000000) {
        low = quotient < 100000;
        return false;
    }
    digits = static_cast<uint32_t>(quotient);
    Wide twice = remainder << 1;
    if (twice > divisor || (twice == divisor && (digits & 1) != 0)) ++digits;
    return true;
}

// Lays out six digits with decimal exponent E as %g does: trailing zeros dropped, fixed
// notation for exponents from -4 to 5, else d.ddddde+XX.
char* LayOutGeneral(char* out, bool negative, uint32_t digits, int E) {
    char d[6];
    for (int i = 5; i >= 0; --i) {
        d[i] = static_cast<char>('0' + digits % 10);
        digits /= 10;
    }
    int last = 5;
    while (last > 0 && d[last] == '0') --last;
    if (negative) *out++ = '-';
    if (E < -4 || E >= 6) {
        *out++ = d[0];
        if (last > 0) {
            *out++ = '.';
            for (int i = 1; i <= last; ++i) *out++ = d[i];
        }
        *out++ = 'e';
        *out++ = E < 0 ? '-' : '+';
        int magnitude = E < 0 ? -E : E;
        *out++ = static_cast<char>('0' + magnitude / 10);
        *out++ = static_cast<char>('0' + magnitude % 10);
        return out;
    }
    if (E >= 0) {
        for (int i = 0; i <= E; ++i) *out++ = d[i];
        if (last > E) {
            *out++ = '.';
            for (int i = E + 1; i <= last; ++i) *out++ = d[i];
        }
        return out;
    }
    *out++ = '0';
    *out++ = '.';
    for (int i = 0; i < -E - 1; ++i) *out++ = '0';
    for (int i = 0; i <= last; ++i) *out++ = d[i];
    return out;
}

}  // namespace

char* FormatFloat(char* out, float v) {
#ifndef MRL_FAST_PATHS
    return FormatFloat(out, static_cast<double>(v));
#endif
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    uint32_t biased = (bits >> 23) & 0xFF;
    // Specials, zero, whole numbers and the tiny values outside the table take the general way.
    if (biased == 0xFF || biased < 60 ||
        (v > -1e6f && v < 1e6f && v == static_cast<float>(static_cast<int32_t>(v)))) {
        return FormatFloat(out, static_cast<double>(v));
    }
    uint32_t m = (bits & 0x7FFFFF) | 0x800000;
    int e = static_cast<int>(biased) - 150;
    // floor(log10) from the binary exponent; may be one too small, which the loop corrects.
    int binary = e + 23;
    int E = (binary * 78913) >> 18;
    uint32_t digits = 0;
    bool low = false;
    for (int tries = 0; tries < 3; ++tries) {
        if (SixDigits(m, e, E, digits, low)) {
            if (digits == 1000000) {
                digits = 100000;
                ++E;
            }
            return LayOutGeneral(out, (bits >> 31) != 0, digits, E);
        }
        E += low ? -1 : 1;
    }
    return FormatFloat(out, static_cast<double>(v));
}

char* FormatFloat(char* out, double v) {
    // The special values are spelled here rather than left to the library, so that the text
    // (and above all the sign of a NaN, which the stream prints) cannot drift with its version.
    if (!std::isfinite(v)) {
        if (std::signbit(v)) *out++ = '-';
        return std::isnan(v) ? Copy(out, "nan", 3) : Copy(out, "inf", 3);
    }
    // Whole numbers below a million print as plain integers in general notation. Ids, counts and
    // many coordinates are such numbers, and the integer conversion is several times cheaper.
    // The comparison also keeps the cast below inside the range of int64_t.
    if (v > -1e6 && v < 1e6) {
        const auto whole = static_cast<int64_t>(v);
        if (static_cast<double>(whole) == v) {
            // -0.0 passes the test above but keeps its sign in the stream's text.
            if (whole == 0 && std::signbit(v)) return Copy(out, "-0", 2);
            return FormatSigned(out, whole);
        }
    }
    // Precision 6 in general form follows the same rules as "%g": exact decimal rounding of the
    // binary value, the switch to scientific form when the exponent of the rounded value is below
    // -4 or at least 6, trailing zeros dropped, and a two-digit minimum exponent.
    return std::to_chars(out, out + kNumberTextMax, v, std::chars_format::general, 6).ptr;
}

char* FormatUnsigned(char* out, uint64_t v) {
    return std::to_chars(out, out + kNumberTextMax, v).ptr;
}

char* FormatSigned(char* out, int64_t v) {
    return std::to_chars(out, out + kNumberTextMax, v).ptr;
}

std::string FloatText(double v) {
    char text[kNumberTextMax];
    return std::string(text, FormatFloat(text, v));
}

}  // namespace ZolInfo
