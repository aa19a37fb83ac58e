// Windows of an array decoded from its stored payload must equal the same elements of the
// whole array, wherever a window starts or ends: inside a byte plane, across two component
// runs, or in the elements behind the last whole item.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "Mrl/Zol/DataLoader.h"
#include "ZolFileBuilder.h"

namespace {

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
        const ZolTest::Bytes payload =
            c.planar ? ZolTest::PlanarPayload(values, c.k) : ZolTest::Words(values);
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
