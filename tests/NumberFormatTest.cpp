// FormatFloat and the integer forms must give, byte for byte, the text of a default std::ostream,
// which is that of printf("%g") / "%lld" / "%llu"; OutputBuffer fields must equal `<< std::setw`.
#include <gtest/gtest.h>

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
#include <vector>

#include "NumberFormat.h"
#include "OutputBuffer.h"

namespace {

using ZolInfo::FormatFloat;
using ZolInfo::kNumberTextMax;
using ZolInfo::OutputBuffer;

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
        Compare(FormatFloat(mine_, v), static_cast<double>(v));
        Check(static_cast<double>(v));
    }
    void Check(double v) { Compare(FormatFloat(mine_, v), v); }
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

TEST(NumberFormat, SpecialFloats) {
    // clang-format off
    const std::vector<std::pair<double, const char*>> cases = {
        {std::numeric_limits<float>::quiet_NaN(), "nan"}, {-std::numeric_limits<float>::quiet_NaN(), "-nan"},
        {FromBits<float>(0xff800001u), "-nan"}, {FromBits<double>(0x7ff0000000000001u), "nan"},
        {-std::numeric_limits<float>::infinity(), "-inf"}, {-0.0f, "-0"}, {1234.5678f, "1234.57"},
        // Scientific form below 1e-4 and from 1e6 on, judged after rounding.
        {9.99999e-5, "9.99999e-05"}, {9.999995e-5, "0.0001"}, {999999.5f, "1e+06"},
        {999998.5f, "999998"}, {123456.5f, "123456"}, {1234565.0f, "1.23456e+06"},
        {FLT_TRUE_MIN, "1.4013e-45"}, {DBL_TRUE_MIN, "4.94066e-324"}, {DBL_MAX, "1.79769e+308"},
        {-9223372036854775808.0, "-9.22337e+18"},
    };
    // clang-format on
    for (const auto& [v, text] : cases) {
        char mine[kNumberTextMax];
        EXPECT_EQ(std::string(mine, FormatFloat(mine, v)), text);
        EXPECT_EQ(Streamed(v), text);
        EXPECT_EQ(ZolInfo::FloatText(v), text);
    }
    // Around each switch point and rounding tie, every float neighbour within a few steps.
    MismatchLog log;
    for (float centre : {1e-5f, 1e-4f, 9.999995e-5f, 999999.5f, 1e6f, FLT_MAX, FLT_MIN, 0.0f}) {
        for (float v : {centre, -centre}) {
            for (float up = v, down = v, step = 0; step < 8; ++step) {
                log.Check(up);
                log.Check(down);
                up = std::nextafter(up, INFINITY);
                down = std::nextafter(down, -INFINITY);
            }
        }
    }
    EXPECT_EQ(log.count, 0u) << log.shown;
}

TEST(NumberFormat, FloatPatternsAcrossTheWholeRangeMatchPrintf) {
    // An odd stride takes about 20 million steps over the 32-bit patterns and reaches every
    // exponent, both signs, subnormals and NaN payloads, with varied low mantissa bits.
    MismatchLog log;
    for (uint64_t bits = 0; bits <= UINT32_MAX; bits += 211) {
        log.Check(FromBits<float>(static_cast<uint32_t>(bits)));
    }
    // The report formats doubles as well: random patterns, and moderate values with short
    // binary fractions and ties, where random patterns rarely fall.
    std::mt19937_64 random(20240611u);
    std::uniform_real_distribution<double> moderate(-2e6, 2e6);
    for (int i = 0; i < 500'000; ++i) {
        log.Check(FromBits<double>(random()));
        log.Check(std::round(moderate(random) * 8) / 8);
    }
    EXPECT_EQ(log.count, 0u) << log.shown;
}

TEST(NumberFormat, IntegersAtTheEdgesMatchStream) {
    std::vector<uint64_t> unsignedValues = {UINT32_MAX, uint64_t{UINT32_MAX} + 1, UINT64_MAX};
    std::vector<int64_t> signedValues = {INT32_MIN, INT64_MAX, INT64_MIN, INT64_MIN + 1};
    for (uint64_t p = 1; p <= UINT64_MAX / 10; p *= 10) {
        for (uint64_t v : {p - 1, p, p + 1, p * 10 - 1}) {
            unsignedValues.push_back(v);
            if (v <= static_cast<uint64_t>(INT64_MAX)) {
                signedValues.push_back(static_cast<int64_t>(v));
                signedValues.push_back(-static_cast<int64_t>(v));
            }
        }
    }
    char text[kNumberTextMax];
    for (uint64_t v : unsignedValues) {
        EXPECT_EQ(std::string(text, ZolInfo::FormatUnsigned(text, v)), Streamed(v));
    }
    for (int64_t v : signedValues) {
        EXPECT_EQ(std::string(text, ZolInfo::FormatSigned(text, v)), Streamed(v));
    }
}

TEST(OutputBuffer, FieldsPadLikeSetw) {
    const std::vector<float> floats = {0.0f,
                                       -0.0f,
                                       1.5f,
                                       -2.25f,
                                       1.25e6f,
                                       -1.23456789e-7f,
                                       FLT_MAX,
                                       -FLT_MAX,
                                       0.1f,
                                       -999999.0f,
                                       std::numeric_limits<float>::quiet_NaN(),
                                       -INFINITY};
    const std::vector<int64_t> signeds = {0, -1, -12345, 123456789, -123456789, INT64_MIN};
    const std::vector<uint64_t> unsigneds = {0, 2, 12345678, 123456789, UINT32_MAX, UINT64_MAX};
    for (int width : {0, 1, 6, 8, 10, 12}) {
        SCOPED_TRACE("width " + std::to_string(width));
        auto check = [width](auto v, auto field) {
            std::ostringstream actual, expected;
            {
                OutputBuffer out(actual, 256);
                (out.*field)(v, width);
            }
            expected << "    " << std::setw(width) << v;
            EXPECT_EQ(actual.str(), expected.str());
        };
        for (float v : floats) check(v, &OutputBuffer::FloatField);
        for (int64_t v : signeds) check(v, &OutputBuffer::SignedField);
        for (uint64_t v : unsigneds) check(v, &OutputBuffer::UnsignedField);
    }
}

TEST(OutputBuffer, MatchesStreamAcrossFlushes) {
    std::ostringstream expected, actual;
    {
        OutputBuffer out(actual, 64);
        for (int row = 0; row < 300; ++row) {
            const float f = static_cast<float>(row) * -1.37f + 0.001f * static_cast<float>(row);
            const int width = 6 + 2 * (row % 3);
            const uint64_t u = static_cast<uint64_t>(row) * 977;
            out.Line("Analysis : ");
            out.SignedField(row * 1000003 - 7, 10);
            out.FloatField(f, width);
            out.UnsignedField(u, 8);
            out.Put('\n');
            expected << "Analysis : \n    " << std::setw(10) << int64_t{row * 1000003 - 7} << "    "
                     << std::setw(width) << f << "    " << std::setw(8) << u << '\n';
            if (row % 50 == 0) {
                // Texts and fields around and beyond the size of the whole buffer.
                const size_t size = 60 + static_cast<size_t>(row) / 50 * 17;
                const std::string text(size, static_cast<char>('a' + row / 50));
                out.Put(text);
                out.UnsignedField(u, static_cast<int>(size));
                expected << text << "    " << std::setw(static_cast<int>(size)) << u;
            }
            if (row == 150) {
                out.Flush();
                EXPECT_EQ(actual.str(), expected.str());
            }
        }
    }
    EXPECT_EQ(actual.str(), expected.str());
}

}  // namespace
