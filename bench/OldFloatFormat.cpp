// A copy of the float text of the tool as it stood before its single-multiply formatter; see the
// header. Only names were changed.
#include "OldFloatFormat.h"

#include <array>
#include <cstring>
#include <ostream>

#include "NumberFormat.h"

namespace OldFloatFormat {

using ZolInfo::kDigitPairs;

namespace {

__extension__ typedef unsigned __int128 Wide;

int DigitCount(uint64_t v) {
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

char* WriteDigitsBefore(char* end, uint64_t v) {
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

// m * 2^e * 10^t for t >= 0: an exact product and a shift; 64 bits suffice up to 5^16.
template <typename Int>
Quotient ScaleUp(uint32_t m, int e, int t) {
    const Int product = Int{m} * static_cast<Int>(kPowersOfFive[t]);
    const int shift = e + t;
    if (shift >= 0) return {static_cast<uint64_t>(product << shift), -1};
    const Int divisor = Int{1} << -shift;
    return {static_cast<uint64_t>(product >> -shift),
            CompareHalf(product & (divisor - 1), divisor)};
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
Parts DigitParts(bool negative, uint32_t digits, int E) {
    Parts parts;
    parts.kind = Parts::kDigits;
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

Parts TextParts(double v) {
    Parts parts;
    parts.kind = Parts::kText;
    parts.length = static_cast<uint8_t>(ZolInfo::FormatFloat(parts.text, v) - parts.text);
    return parts;
}

// Every store has a fixed size; the bytes written past the text are scratch.
void WriteDigits(char* out, const Parts& parts) {
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

Parts Split(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    const uint32_t biased = (bits >> 23) & 0xFF;
    // Specials and values below 2^-67 (outside the table of powers of five) take the general way.
    if (biased == 0xFF || biased < 60) return TextParts(v);
    const bool negative = (bits >> 31) != 0;
    // Whole numbers below a million print as integers; zero never gets here.
    if (v > -1e6f && v < 1e6f) {
        const auto whole = static_cast<int32_t>(v);
        if (static_cast<float>(whole) == v) {
            Parts parts;
            parts.kind = Parts::kWhole;
            parts.negative = negative;
            parts.word = static_cast<uint32_t>(negative ? -whole : whole);
            parts.length = static_cast<uint8_t>(DigitCount(parts.word) + (negative ? 1 : 0));
            return parts;
        }
    }
    const uint32_t m = (bits & 0x7FFFFF) | 0x800000;
    const int e = static_cast<int>(biased) - 150;
    // floor(log10) from the binary exponent is right or one too small; one comparison settles it,
    // and the range check of the quotient guards the rest.
    int E = ((e + 23) * 78913) >> 18;
    if (static_cast<double>(negative ? -v : v) >= PowerOfTen(E + 1)) ++E;
    for (int tries = 0; tries < 3; ++tries) {
        const int t = 5 - E;
        if (t > 27) break;
        const Quotient q = t < 0 ? ScaleDown(m, e, -t, v)
                                 : (t <= 16 ? ScaleUp<uint64_t>(m, e, t) : ScaleUp<Wide>(m, e, t));
        if (q.digits < 100000) {
            --E;
            continue;
        }
        if (q.digits >= 1000000) {
            ++E;
            continue;
        }
        auto digits = static_cast<uint32_t>(q.digits);
        // Half way rounds to even, as printf does.
        if (q.half > 0 || (q.half == 0 && (digits & 1) != 0)) ++digits;
        if (digits == 1000000) {
            digits = 100000;
            ++E;
        }
        return DigitParts(negative, digits, E);
    }
    return TextParts(v);
}

char* Write(char* out, const Parts& parts) {
    char* const end = out + parts.length;
    if (parts.kind == Parts::kText) {
        std::memcpy(out, parts.text, kTextMax);
        return end;
    }
    *out = '-';
    out += parts.negative ? 1 : 0;
    if (parts.kind == Parts::kWhole) {
        WriteDigitsBefore(end, parts.word);
    } else {
        WriteDigits(out, parts);
    }
    return end;
}

char* Format(char* out, float v) {
    return Write(out, Split(v));
}

FieldBuffer::FieldBuffer(std::ostream& os)
    : os_(os),
      data_(std::make_unique_for_overwrite<char[]>((1 << 20) + 64)),
      cursor_(data_.get()),
      end_(data_.get() + (1 << 20)) {}

FieldBuffer::~FieldBuffer() {
    Flush();
}

void FieldBuffer::Flush() {
    os_.write(data_.get(), cursor_ - data_.get());
    cursor_ = data_.get();
}

void FieldBuffer::FloatField(float v, int width) {
    const Parts parts = Split(v);
    const int length = parts.length;
    if (cursor_ >= end_) Flush();
    std::memcpy(cursor_, "                ", 16);
    cursor_ = Write(cursor_ + 4 + (length < width ? width - length : 0), parts);
}

}  // namespace OldFloatFormat
