#include "NumberFormat.h"

#include <array>
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

// 10^k as doubles, k from -45 to 39: to pick the decimal exponent of a float, which the exact
// digit step below confirms.
constexpr int kLowestPower = -45;
constexpr std::array<double, 85> kPowersOfTen = [] {
    std::array<double, 85> powers{};
    double up = 1;
    for (int k = 0; k <= 39; ++k, up *= 10) powers[static_cast<size_t>(k - kLowestPower)] = up;
    long double down = 1;
    for (int k = -1; k >= kLowestPower; --k) {
        down /= 10;
        powers[static_cast<size_t>(k - kLowestPower)] = static_cast<double>(down);
    }
    return powers;
}();

double PowerOfTen(int k) {
    return kPowersOfTen[static_cast<size_t>(k - kLowestPower)];
}

constexpr int BitLength(Wide v) {
    int bits = 0;
    for (; v != 0; v >>= 1) ++bits;
    return bits;
}

constexpr Wide PowerOfFive(int k) {
    Wide five = 1;
    for (int i = 0; i < k; ++i) five *= 5;
    return five;
}

// A float m * 2^e (m of 24 bits, subnormals normalized) of decimal exponent E has the six
// digits m * 10^(5-E) * 2^e = m * p / 2^67, with p = 10^(5-E) * 2^(e+67) rounded up: a single
// 64-bit multiplier per binary exponent and each of its two possible decimal exponents, below
// 2^64 and above 2^59, so that the product's error stays far below the rounding unit.
constexpr int kFixedShift = 67;

// ceil(5^t * 2^k) for a result below 2^64, and whether it is exact.
constexpr std::pair<uint64_t, bool> ScaledPowerOfFive(int t, int k) {
    if (t >= 0) {
        const Wide five = PowerOfFive(t);
        if (k >= 0) return {static_cast<uint64_t>(five << k), true};
        const Wide low = five & ((Wide{1} << -k) - 1);
        return {static_cast<uint64_t>(five >> -k) + (low != 0 ? 1 : 0), low == 0};
    }
    // 2^k / 5^-t by long division, one bit of the quotient at a time.
    const Wide five = PowerOfFive(-t);
    Wide remainder = 0;
    uint64_t quotient = 0;
    for (int j = k; j >= 0; --j) {
        remainder = 2 * remainder + (j == k ? 1 : 0);
        if (remainder >= five) {
            remainder -= five;
            quotient |= uint64_t{1} << j;  // j < 64 here: the quotient is below 2^64
        }
    }
    return {quotient + (remainder != 0 ? 1 : 0), remainder == 0};
}

// For each binary exponent e: the decimal exponent of the binade's lowest value, the lowest m
// that reaches the next power of ten (2^24 when none does), so that a float's decimal exponent
// takes one comparison, and the multipliers for both exponents.
struct Binade {
    uint64_t p[2];
    uint32_t threshold;
    int8_t exponent;
    bool exact[2];
};
constexpr int kLowestBinade = -149 - 23;
constexpr int kHighestBinade = 254 - 150;

constexpr Binade MakeBinade(int e) {
    Binade binade{};
    const int exponent = ((e + 23) * 78913) >> 18;  // floor((e + 23) * log10(2))
    binade.exponent = static_cast<int8_t>(exponent);
    // The lowest m with m * 2^e >= 10^c, that is m >= 5^c * 2^(c - e).
    const int c = exponent + 1;
    const int a = c - e;
    constexpr Wide kNone = Wide{1} << 24;
    Wide threshold = kNone;
    if (c >= 0) {
        const Wide five = PowerOfFive(c);
        if (a >= 0) {
            if (BitLength(five) + a <= 25) threshold = five << a;
        } else {
            threshold = -a >= 127 ? 1 : (five + (Wide{1} << -a) - 1) >> -a;
        }
    } else {
        const Wide five = PowerOfFive(-c);
        // ceil(2^a / 5^-c) as floor((2^a - 1) / 5^-c) + 1; a reaches 128 at the lowest binade.
        if (a - BitLength(five) <= 25) {
            threshold = (a >= 128 ? ~Wide{0} : (Wide{1} << a) - 1) / five + 1;
        }
    }
    binade.threshold = static_cast<uint32_t>(threshold < kNone ? threshold : kNone);
    for (int bump = 0; bump < 2; ++bump) {
        const int t = 5 - exponent - bump;
        const auto [p, exact] = ScaledPowerOfFive(t, t + e + kFixedShift);
        binade.p[bump] = p;
        binade.exact[bump] = exact;
    }
    return binade;
}

constexpr std::array<Binade, kHighestBinade - kLowestBinade + 1> kBinades = [] {
    std::array<Binade, kHighestBinade - kLowestBinade + 1> binades{};
    for (int e = kLowestBinade; e <= kHighestBinade; ++e) {
        binades[static_cast<size_t>(e - kLowestBinade)] = MakeBinade(e);
    }
    return binades;
}();

// The digits of a float before rounding: the integer quotient of its exact value by 10^(E-5),
// and whether the remainder is below, at or above half the divisor.
struct Quotient {
    uint64_t digits;
    int half;  // -1, 0 or 1
};

template <typename Int>
int CompareHalf(Int remainder, Int divisor) {
    const Int twice = remainder << 1;
    return twice < divisor ? -1 : (twice == divisor ? 0 : 1);
}

// m * 2^e / 10^u for u > 0: the quotient estimated in floating point, where it is off by at
// most one, then made exact by integer multiplication.
Quotient ScaleDown(uint32_t m, int e, int u, float v) {
    const int shift = e - u;
    const Wide numerator = shift >= 0 ? Wide{m} << shift : Wide{m};
    const Wide five =
        u < 28 ? Wide{kPowersOfFive[u]} : Wide{kPowersOfFive[27]} * kPowersOfFive[u - 27];
    const Wide divisor = shift >= 0 ? five : five << -shift;
    auto q = static_cast<uint64_t>(static_cast<double>(v < 0 ? -v : v) * PowerOfTen(-u));
    Wide product = Wide{q} * divisor;
    while (product > numerator) {
        --q;
        product -= divisor;
    }
    Wide remainder = numerator - product;
    while (remainder >= divisor) {
        ++q;
        remainder -= divisor;
    }
    return {q, CompareHalf(remainder, divisor)};
}

// Six digits as ASCII, the first in the lowest byte, two '0' above them.
uint64_t DigitWord(uint32_t digits) {
    uint16_t pairs[3];
    std::memcpy(&pairs[0], &kDigitPairs[2 * (digits / 10000)], 2);
    std::memcpy(&pairs[1], &kDigitPairs[2 * (digits / 100 % 100)], 2);
    std::memcpy(&pairs[2], &kDigitPairs[2 * (digits % 100)], 2);
    return pairs[0] | uint64_t{pairs[1]} << 16 | uint64_t{pairs[2]} << 32 | 0x3030ull << 48;
}

// Six digits with decimal exponent E, laid out as %g does: trailing zeros dropped, fixed notation
// for exponents from -4 to 5, else d.ddddde+XX.
FloatParts DigitParts(bool negative, uint32_t digits, int E) {
    FloatParts parts;
    parts.kind = FloatParts::kDigits;
    parts.negative = negative;
    parts.exponent = static_cast<int8_t>(E);
    parts.word = DigitWord(digits);
    // Trailing zero digits are zero bytes at the top of the word less '0'; the first digit is
    // never zero.
    const int last = 5 - __builtin_clzll((parts.word ^ 0x3030303030303030u) << 16) / 8;
    parts.last = static_cast<int8_t>(last);
    int length;
    if (E >= 0 && E < 6) {
        length = last > E ? last + 2 : E + 1;
    } else if (E < 0 && E >= -4) {
        length = 2 - E + last;
    } else {
        length = (last > 0 ? last + 2 : 1) + 4;
    }
    parts.length = static_cast<uint8_t>(length + (negative ? 1 : 0));
    return parts;
}

FloatParts TextParts(double v) {
    FloatParts parts;
    parts.kind = FloatParts::kText;
    parts.length = static_cast<uint8_t>(FormatFloat(parts.text, v) - parts.text);
    return parts;
}

// Every store has a fixed size; the bytes written past the text are scratch.
void WriteDigits(char* out, const FloatParts& parts) {
    const int E = parts.exponent;
    const uint64_t word = parts.word;
    if (E >= 0 && E < 6) {
        std::memcpy(out, &word, 8);
        if (parts.last <= E) return;
        const uint64_t fraction = word >> (8 * (E + 1));
        out[E + 1] = '.';
        std::memcpy(out + E + 2, &fraction, 8);
        return;
    }
    if (E < 0 && E >= -4) {
        std::memcpy(out, "0.000000", 8);
        std::memcpy(out + 1 - E, &word, 8);
        return;
    }
    const uint64_t rest = word >> 8;
    out[0] = static_cast<char>(word);
    out[1] = '.';
    std::memcpy(out + 2, &rest, 8);
    out += parts.last > 0 ? parts.last + 2 : 1;
    out[0] = 'e';
    out[1] = E < 0 ? '-' : '+';
    std::memcpy(out + 2, &kDigitPairs[2 * (E < 0 ? -E : E)], 2);
}

}  // namespace

FloatParts SplitFloat(float v) {
#ifndef MRL_FAST_PATHS
    return TextParts(v);
#endif
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    const uint32_t biased = (bits >> 23) & 0xFF;
    if (biased == 0xFF) return TextParts(v);
    const bool negative = (bits >> 31) != 0;
    uint32_t m = bits & 0x7FFFFF;
    int e = static_cast<int>(biased) - 150;
    if (biased != 0) {
        m |= 0x800000;
    } else if (m == 0) {
        FloatParts zero;
        zero.kind = FloatParts::kWhole;
        zero.negative = negative;
        zero.word = 0;
        zero.length = static_cast<uint8_t>(negative ? 2 : 1);
        return zero;
    } else {
        // A subnormal takes the path of a normal float of the same value.
        const int shift = __builtin_clz(m) - 8;
        m <<= shift;
        e = -149 - shift;
    }
    const Binade& binade = kBinades[static_cast<size_t>(e - kLowestBinade)];
    const int bump = m >= binade.threshold ? 1 : 0;
    const int E = binade.exponent + bump;
    // The digits are the product's bits above kFixedShift; the 64 bits below them, with the
    // lowest made sticky for the three dropped, say where the remainder lies against half.
    const Wide product = Wide{m} * binade.p[bump];
    const auto high = static_cast<uint64_t>(product >> 64);
    const auto low = static_cast<uint64_t>(product);
    auto digits = static_cast<uint32_t>(high >> (kFixedShift - 64));
    const uint64_t fraction = (high << (128 - kFixedShift)) | (low >> (kFixedShift - 64)) |
                              ((low & ((1u << (kFixedShift - 64)) - 1)) != 0 ? 1 : 0);
    constexpr uint64_t kHalf = uint64_t{1} << 63;
    int above = fraction > kHalf ? 1 : (fraction == kHalf ? 0 : -1);
    // A multiplier rounded up makes the product too large by less than m, 2^-43 of the unit of
    // the last digit: a remainder that near half may be an exact tie, or on the other side.
    if (!binade.exact[bump] && fraction - (kHalf - (1u << 22)) <= (1u << 23)) {
        if (E < 5) return TextParts(v);
        const Quotient q = ScaleDown(m, e, E - 5, v);
        digits = static_cast<uint32_t>(q.digits);
        above = q.half;
    }
    // Half way rounds to even, as printf does.
    if (above > 0 || (above == 0 && (digits & 1) != 0)) ++digits;
    if (digits == 1000000) return DigitParts(negative, 100000, E + 1);
    return DigitParts(negative, digits, E);
}

char* WriteFloat(char* out, const FloatParts& parts) {
    char* const end = out + parts.length;
    if (parts.kind == FloatParts::kText) {
        std::memcpy(out, parts.text, kNumberTextMax);
        return end;
    }
    *out = '-';
    out += parts.negative ? 1 : 0;
    if (parts.kind == FloatParts::kWhole) {
        WriteDigitsBefore(end, parts.word);
    } else {
        WriteDigits(out, parts);
    }
    return end;
}

char* FormatFloat(char* out, float v) {
    return WriteFloat(out, SplitFloat(v));
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
    char* end = out + DigitCount(v);
    WriteDigitsBefore(end, v);
    return end;
}

char* FormatSigned(char* out, int64_t v) {
    if (v >= 0) return FormatUnsigned(out, static_cast<uint64_t>(v));
    *out = '-';
    return FormatUnsigned(out + 1, 0 - static_cast<uint64_t>(v));
}

std::string FloatText(double v) {
    char text[kNumberTextMax];
    return std::string(text, FormatFloat(text, v));
}

}  // namespace ZolInfo
