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
// digits m * 10^(5-E) * 2^e = m * p / 2^64, with p = 10^(5-E) * 2^(e+64) rounded up: a single
// 64-bit multiplier per binary exponent and each of its two possible decimal exponents, between
// 2^56 and 2^61, so that the digits are the product's high word and the remainder its low word,
// and the product's error stays far below the rounding unit.
constexpr int kFixedShift = 64;

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

// "000" to "1000" (the carry of 999999.5) as ASCII in the three low bytes, the first digit lowest,
// and in the top byte the place of the last digit that is not zero (0 for none): the trailing
// zeros come with the digits, from the same load.
constexpr std::array<uint32_t, 1001> kDigitTriples = [] {
    std::array<uint32_t, 1001> triples{};
    for (uint32_t i = 0; i <= 1000; ++i) {
        const uint32_t j = i % 1000;
        const uint32_t last = j % 100 == 0 ? 0 : (j % 10 == 0 ? 1 : 2);
        triples[i] = ('0' + i / 100 % 10 + i / 1000) | ('0' + j / 10 % 10) << 8 |
                     ('0' + j % 10) << 16 | last << 24;
    }
    return triples;
}();

// "e-45" to "e+38", indexed by the decimal exponent plus 45: every exponent a float can show.
constexpr int kLowestExponent = -45;
constexpr std::array<uint32_t, 84> kExponentTexts = [] {
    std::array<uint32_t, 84> texts{};
    for (int E = kLowestExponent; E <= 38; ++E) {
        const int magnitude = E < 0 ? -E : E;
        texts[static_cast<size_t>(E - kLowestExponent)] =
            'e' | (E < 0 ? '-' : '+') << 8 | ('0' + magnitude / 10) << 16 |
            static_cast<uint32_t>('0' + magnitude % 10) << 24;
    }
    return texts;
}();

// For fixed notation with E from 0 to 5: the bytes of the digits before the point, and the point
// after them.
struct FixedPoint {
    uint64_t kept;
    uint64_t point;
};
constexpr std::array<FixedPoint, 6> kFixedPoints = [] {
    std::array<FixedPoint, 6> points{};
    for (int E = 0; E < 6; ++E) {
        const int bits = 8 * (E + 1);
        points[static_cast<size_t>(E)] = {(uint64_t{1} << bits) - 1, uint64_t{'.'} << bits};
    }
    return points;
}();

// Stores a text of `length` bytes (bytes 0-7 in low, 8-10 in high), after a '-' when negative,
// right-aligned in `width` columns from out, and returns one past it. The stores have fixed
// sizes; their bytes past the text are scratch.
[[gnu::always_inline]] inline char* Place(char* out, int width, bool negative, uint64_t low,
                                          uint32_t high, int length) {
    // The padding is computed, not branched on: texts of a column differ in length.
    const int pad = width - (length + negative);
    out += pad & ~(pad >> 31);
    *out = '-';
    out += negative;
    std::memcpy(out, &low, 8);
    std::memcpy(out + 8, &high, 4);
    return out + length;
}

// The text of the general conversion: specials, and the rare values it must settle.
char* PlaceGeneral(char* out, int width, double v) {
    char text[kNumberTextMax] = {};
    const char* end = FormatFloat(text, v);
    const bool negative = text[0] == '-';
    uint64_t low;
    uint32_t high;
    std::memcpy(&low, text + negative, 8);
    std::memcpy(&high, text + negative + 8, 4);
    return Place(out, width, negative, low, high, static_cast<int>(end - text - negative));
}

// Six digits (or the carry 1000000) with decimal exponent E laid out as %g does: trailing zeros
// dropped, fixed notation for exponents from -4 to 5, else d.ddddde+XX; every form from shifts
// and masks of the digits' ASCII word.
[[gnu::always_inline]] inline char* LayOut(char* out, int width, bool negative, uint32_t digits,
                                           int E) {
    const uint32_t upper = digits / 1000;
    const uint32_t lower = digits - upper * 1000;
    const uint32_t first = kDigitTriples[upper];
    const uint32_t second = kDigitTriples[lower];
    const uint64_t word = (first & 0xFFFFFF) | uint64_t{second & 0xFFFFFF} << 24;
    // The place of the last digit that is not zero; the first digit never is.
    const int last = static_cast<int>(lower != 0 ? 3 + (second >> 24) : first >> 24);
    if (static_cast<unsigned>(E) <= 5) {
        // The point is scratch when no digit follows it.
        const FixedPoint& fixed = kFixedPoints[static_cast<size_t>(E)];
        const uint64_t text = (word & fixed.kept) | (word & ~fixed.kept) << 8 | fixed.point;
        return Place(out, width, negative, text, 0, last > E ? last + 2 : E + 1);
    }
    if (static_cast<unsigned>(E + 4) < 4) {
        // "0." and -E-1 zeros before the digits.
        const int shift = 8 * (1 - E);
        const uint64_t zeros = 0x3030303030302E30u & ((uint64_t{1} << shift) - 1);
        return Place(out, width, negative, word << shift | zeros,
                     static_cast<uint32_t>(word >> (64 - shift)), 2 - E + last);
    }
    // The point, and with it the exponent, follows the first digit when no other digit does.
    const int mantissa = last > 0 ? last + 2 : 1;
    const int bits = 8 * mantissa;
    const uint64_t pointed = (word & 0xFF) | (word & ~uint64_t{0xFF}) << 8 | 0x2E00u;
    const uint64_t exponent = kExponentTexts[static_cast<size_t>(E - kLowestExponent)];
    return Place(out, width, negative, (pointed & ((uint64_t{1} << bits) - 1)) | exponent << bits,
                 static_cast<uint32_t>(exponent >> (64 - bits)), mantissa + 4);
}

constexpr uint64_t kHalf = uint64_t{1} << 63;
// A multiplier rounded up makes the product too large by less than m, below 2^24 in units of
// the remainder: one twice that near half may be an exact tie, or on the other side.
constexpr uint64_t kNearHalf = uint64_t{1} << 25;

// A float m * 2^e: its mantissa, normalized to 24 bits for a subnormal, and exponent.
struct Binary {
    uint32_t m;
    int e;
};

Binary Decompose(uint32_t bits) {
    const uint32_t biased = (bits >> 23) & 0xFF;
    const uint32_t m = bits & 0x7FFFFF;
    if (biased != 0) return {m | 0x800000, static_cast<int>(biased) - 150};
    // A subnormal takes the path of a normal float of the same value.
    const int shift = __builtin_clz(m) - 8;
    return {m << shift, -149 - shift};
}

// A remainder too near half for the product to settle: the exact quotient decides, or, below six
// digits before the point, the general conversion. Its inputs are found again here, so that the
// common path need not keep them.
[[gnu::noinline]] char* NearHalf(char* out, int width, float v, int E) {
    if (E < 5) return PlaceGeneral(out, width, v);
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    const Binary binary = Decompose(bits);
    const Quotient q = ScaleDown(binary.m, binary.e, E - 5, v);
    auto digits = static_cast<uint32_t>(q.digits);
    if (q.half > 0 || (q.half == 0 && (digits & 1) != 0)) ++digits;
    return LayOut(out, width, v < 0, digits, E + (digits == 1000000));
}

// The text of m * 2^e, m of 24 bits with the top one set.
[[gnu::always_inline]] inline char* Digits(char* out, int width, float v, bool negative,
                                           Binary binary) {
    const uint32_t m = binary.m;
    const Binade& binade = kBinades[static_cast<size_t>(binary.e - kLowestBinade)];
    const bool bump = m >= binade.threshold;
    const int E = binade.exponent + bump;
    const Wide product = Wide{m} * binade.p[bump];
    const auto digits = static_cast<uint32_t>(product >> 64);
    const auto remainder = static_cast<uint64_t>(product);
    if (remainder - (kHalf - kNearHalf) <= 2 * kNearHalf) [[unlikely]] {
        if (!binade.exact[bump]) return NearHalf(out, width, v, E);
    }
    // Half way rounds to even, as printf does. A carry to 1000000 is laid out as 100000 with
    // the next exponent.
    const uint32_t rounded = digits + (remainder > kHalf - (digits & 1));
    return LayOut(out, width, negative, rounded, E + (rounded == 1000000));
}

// Zero, subnormals and the special values, away from the path of the others.
[[gnu::noinline]] char* PlaceRare(char* out, int width, float v, uint32_t bits) {
    const bool negative = (bits >> 31) != 0;
    if ((bits >> 23 & 0xFF) == 0xFF) return PlaceGeneral(out, width, v);
    if ((bits & 0x7FFFFF) == 0) return Place(out, width, negative, '0', 0, 1);
    return Digits(out, width, v, negative, Decompose(bits));
}

// The entry of both public forms; each gets its own copy, so that the bare text has no padding.
[[gnu::always_inline]] inline char* Write(char* out, float v, int width) {
#ifndef MRL_FAST_PATHS
    return PlaceGeneral(out, width, v);
#endif
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    const size_t biased = (bits >> 23) & 0xFF;
    if (biased - 1 >= 0xFE) [[unlikely]]
        return PlaceRare(out, width, v, bits);
    return Digits(out, width, v, (bits >> 31) != 0,
                  {(bits & 0x7FFFFF) | 0x800000, static_cast<int>(biased) - 150});
}

}  // namespace

char* WriteFloat(char* out, float v, int width) {
    return Write(out, v, width);
}

char* FormatFloat(char* out, float v) {
    return Write(out, v, 0);
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
