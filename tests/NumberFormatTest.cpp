// FormatFloat and the integer forms must give, byte for byte, the text of a default std::ostream,
// which is that of printf("%g") / "%lld" / "%llu"; OutputBuffer fields must equal `<< std::setw`.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "NumberFormat.h"
#include "OutputBuffer.h"

namespace {

using ZolInfo::kNumberTextMax;

template <typename T, typename B>
T FromBits(B bits) {
    static_assert(sizeof(T) == sizeof(B));
    T v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

template <typename T>
std::string Streamed(T v) {
    std::ostringstream os;
    os << v;
    return os.str();
}

// Compares the text of many values with printf without a failure per value; keeps the first few.
class MismatchLog {
public:
    // A float goes through both forms: its own and the widened double.
    void Check(float v) {
        Compare(ZolInfo::FormatFloat(mine_, v), static_cast<double>(v));
        Check(static_cast<double>(v));
    }
    void Check(double v) { Compare(ZolInfo::FormatFloat(mine_, v), v); }
    uint64_t count = 0;
    std::string shown;

private:
    void Compare(const char* end, double v) {
        char reference[64];
        const size_t length = static_cast<size_t>(end - mine_);
        const int n = std::snprintf(reference, sizeof reference, "%g", v);
        if (length == static_cast<size_t>(n) && std::memcmp(mine_, reference, length) == 0) return;
        if (++count <= 10) {
            shown += "\"" + std::string(mine_, length) + "\" vs printf \"" + reference + "\"\n";
        }
    }
    // Exactly the documented room, so that a write past it shows under AddressSanitizer.
    char mine_[kNumberTextMax];
};

TEST(NumberFormat, FloatsMatchPrintf) {
    MismatchLog log;
    // NaN signs and payloads, the extremes, and values whose rounding moves them across the
    // switch to scientific form (below 1e-4, from 1e6 on).
    for (double v :
         {-std::numeric_limits<double>::quiet_NaN(), FromBits<double>(0x7ff0000000000001u),
          -HUGE_VAL, 9.99999e-5, 9.999995e-5, DBL_TRUE_MIN, DBL_MAX, -9223372036854775808.0}) {
        log.Check(v);
    }
    log.Check(FromBits<float>(0xff800001u));
    // Around each switch point and rounding tie, every float neighbour within a few steps.
    for (float centre : {1e-5f, 1e-4f, 9.999995e-5f, 123456.5f, 999999.5f, 1e6f, 1234565.0f,
                         FLT_MAX, FLT_MIN, FLT_TRUE_MIN, 0.0f}) {
        for (float v : {centre, -centre}) {
            for (float up = v, down = v, step = 0; step < 8; ++step) {
                log.Check(up);
                log.Check(down);
                up = std::nextafter(up, INFINITY);
                down = std::nextafter(down, -INFINITY);
            }
        }
    }
    // An odd stride takes about 20 million steps over the 32-bit patterns and reaches every
    // exponent, both signs, subnormals and NaN payloads, with varied low mantissa bits.
    for (uint64_t bits = 0; bits <= UINT32_MAX; bits += 211) {
        log.Check(FromBits<float>(static_cast<uint32_t>(bits)));
    }
    // The report formats doubles as well: random patterns, and moderate values with short
    // binary fractions and ties, where random patterns rarely fall.
    std::mt19937_64 random(20240611u);
    std::uniform_real_distribution<double> moderate(-2e6, 2e6);
    for (int i = 0; i < 500'000; ++i) {
        log.Check(FromBits<double>(random()));
        const double eighths = std::round(moderate(random) * 8) / 8;
        log.Check(eighths);
        // As floats these are exact ties below six digits before the point, such as 1234.125.
        log.Check(static_cast<float>(eighths));
    }
    EXPECT_EQ(log.count, 0u) << log.shown;
}

// WriteFloat puts the text at the right of `width` columns and leaves the columns before it as
// they were: texts of every form and length, narrower and wider than the field.
TEST(NumberFormat, WriteFloatRightAlignsWithoutTouchingThePadding) {
    std::vector<float> values = {0.0f,          -0.0f,     1.0f,      -7.0f,     0.5f,
                                 -0.000123456f, 1e-5f,     1e-10f,    -1e+10f,   1.5e-40f,
                                 999999.5f,     123456.5f, 1234.125f, 100000.0f, -3.40282e38f,
                                 0.001f,        NAN,       -INFINITY};
    std::mt19937 random(7);
    for (int i = 0; i < 2000; ++i)
        values.push_back(FromBits<float>(static_cast<uint32_t>(random())));
    uint64_t mismatches = 0;
    std::string shown;
    for (float v : values) {
        for (int width = 0; width <= 14; ++width) {
            char field[64];
            std::memset(field, 'x', sizeof field);
            const std::string got(field, ZolInfo::WriteFloat(field, v, width));
            char text[64];
            const int length = std::snprintf(text, sizeof text, "%g", static_cast<double>(v));
            const std::string expected =
                std::string(static_cast<size_t>(std::max(width - length, 0)), 'x') + text;
            if (got != expected && ++mismatches <= 10) {
                shown += "\"" + got + "\" vs \"" + expected + "\"\n";
            }
        }
    }
    EXPECT_EQ(mismatches, 0u) << shown;
}

TEST(NumberFormat, IntegersAtTheEdgesMatchStream) {
    char text[kNumberTextMax];
    auto check = [&text](auto v) {
        if constexpr (std::is_signed_v<decltype(v)>) {
            EXPECT_EQ(std::string(text, ZolInfo::FormatSigned(text, v)), Streamed(v));
        } else {
            EXPECT_EQ(std::string(text, ZolInfo::FormatUnsigned(text, v)), Streamed(v));
        }
    };
    for (int64_t v : {int64_t{INT32_MIN}, INT64_MAX, INT64_MIN, INT64_MIN + 1}) check(v);
    for (uint64_t v : {uint64_t{UINT32_MAX} + 1, UINT64_MAX}) check(v);
    // Around every power of ten.
    for (uint64_t p = 1; p <= UINT64_MAX / 10; p *= 10) {
        for (uint64_t v : {p - 1, p, p + 1, p * 10 - 1}) {
            check(v);
            if (v <= uint64_t{INT64_MAX}) check(int64_t(v)), check(-int64_t(v));
        }
    }
}

// Fields of every kind and several widths, and texts around and beyond the size of the whole
// buffer, through a buffer small enough to be handed on many times.
TEST(OutputBuffer, MatchesStreamAcrossFlushes) {
    const float floats[] = {-0.0f,      1.25e6f,   -1.23456789e-7f, -FLT_MAX,      0.1f,
                            -999999.0f, NAN,       -INFINITY,       -0.000123456f, 1e-10f,
                            999999.5f,  1234.125f, FLT_TRUE_MIN};
    // Every digit count up to ten, on both sides of zero.
    std::vector<int64_t> signeds = {0, -12345, -123456789, INT64_MIN};
    std::vector<uint64_t> unsigneds = {2, 12345678, 123456789, UINT64_MAX};
    for (int64_t p = 1; p <= 1000000000; p *= 10) {
        for (int64_t v : {p - 1, p, -p, 1 - p, 3 * p + 7}) signeds.push_back(v);
        unsigneds.push_back(static_cast<uint64_t>(p - 1));
        unsigneds.push_back(static_cast<uint64_t>(p));
    }
    std::ostringstream expected, actual;
    {
        ZolInfo::OutputBuffer out(actual, 64);
        for (int width : {0, 1, 4, 5, 6, 7, 8, 9, 10, 12, 70}) {
            out.Line("Analysis : ");
            expected << "Analysis : \n";
            for (float v : floats) {
                out.FloatField(v, width);
                expected << "    " << std::setw(width) << v;
            }
            for (int64_t v : signeds) {
                out.SignedField(v, width);
                expected << "    " << std::setw(width) << v;
            }
            for (uint64_t v : unsigneds) {
                out.UnsignedField(v, width);
                expected << "    " << std::setw(width) << v;
            }
            const std::string text(static_cast<size_t>(width) * 2, 'a');
            out.Put(text);
            out.Put('\n');
            expected << text << '\n';
            if (width == 8) {
                out.Flush();
                EXPECT_EQ(actual.str(), expected.str());
            }
        }
    }
    EXPECT_EQ(actual.str(), expected.str());
}

}  // namespace
