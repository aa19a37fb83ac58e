// Windows of an array decoded from its stored payload must equal the same elements of the
// whole array, wherever a window starts or ends: inside a byte plane, across two component
// runs, or in the elements behind the last whole item.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "Mrl/Zol/DataLoader.h"

namespace {

// The layout written out directly: element c + i * k is value i of run c, its bytes one per
// plane; elements behind the last whole item are stored as they are.
std::vector<uint8_t> Store(const std::vector<uint32_t>& values, size_t k, bool planar) {
    size_t n = values.size();
    std::vector<uint8_t> payload(4 * n);
    size_t runs = planar && k != 0 ? k : 1;
    size_t m = planar && k != 0 ? n / runs : 0;
    for (size_t e = 0; e < n; ++e) {
        uint32_t v = values[e];
        if (e < m * runs) {
            size_t c = e % runs, i = e / runs;
            for (size_t p = 0; p < 4; ++p) payload[c * 4 * m + p * m + i] = uint8_t(v >> 8 * p);
        } else {
            for (size_t p = 0; p < 4; ++p) payload[4 * e + p] = uint8_t(v >> 8 * p);
        }
    }
    return payload;
}

TEST(ZolDecodeRange, WindowsEqualTheWholeArray) {
    struct Case {
        size_t n;
        uint8_t k;
        bool planar;
    };
    const Case cases[] = {{7, 3, true},    {8, 3, true},    {2, 3, true},  {40, 1, true},
                          {37, 6, true},   {3001, 3, true}, {33, 0, true}, {20, 3, false},
                          {2051, 1, true}, {4100, 6, true}};
    for (const Case& c : cases) {
        std::vector<uint32_t> values(c.n);
        for (size_t e = 0; e < c.n; ++e) values[e] = uint32_t(e * 2654435761u) ^ 0x01020304u;
        std::vector<uint8_t> payload = Store(values, c.k, c.planar);
        size_t m = c.k > 1 ? c.n / c.k : c.n;
        // Starts and ends at 0, inside, at a run's boundary and at the end.
        const size_t cuts[] = {0, 1, c.k, m, m + 1, c.n / 2, c.n - 1, c.n};
        for (size_t first : cuts) {
            for (size_t last : cuts) {
                if (first > c.n || last > c.n || last < first) continue;
                std::vector<uint32_t> window(last - first + 1, 0xDEADBEEF);
                MrlZol::DecodeRange(payload.data(), c.n, c.k, c.planar, first, last - first,
                                    window.data());
                for (size_t e = first; e < last; ++e) {
                    ASSERT_EQ(window[e - first], values[e])
                        << "n " << c.n << " k " << int(c.k) << " window " << first << ".." << last
                        << " element " << e;
                }
                EXPECT_EQ(window.back(), 0xDEADBEEF) << "wrote past the window";
            }
        }
    }
}

}  // namespace
