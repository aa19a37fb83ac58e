// Calls no file can provoke: a loader asked for the wrong element form, a hand-over of positions
// from a file that isn't open.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/DataLoader.h"
#include "Mrl/Zol/Geometry.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlZol::DataLoader;

TEST(ZolDataLoader, ElementFormIsCheckedBeforeAnyRead) {
    MrlHbf::HbFile file;
    std::vector<float> floats;
    std::vector<uint32_t> words;
    DataLoader asFloat(file, "Heavy Data", 0, 4, 1, true, MrlZol::FloatElementTag);
    DataLoader asUnsigned(file, "Heavy Data", 0, 4, 1, true, MrlZol::UnsignedElementTag);
    EXPECT_EQ(Failure([&] { asFloat.LoadTo(words); }), (Fail{12, "Bad Casting"}));
    EXPECT_EQ(Failure([&] { asUnsigned.LoadTo(floats); }), (Fail{12, "Bad Casting"}));
    EXPECT_EQ(Failure([&] { asFloat.CheckLoad(MrlZol::UnsignedElementTag); }),
              (Fail{12, "Bad Casting"}));
}

// A name the hand-over of positions doesn't know is refused.
TEST(ZolGeometry, UnknownNameInPositionHandOver) {
    MrlHbf::HbFile unopened;
    MrlZol::Geometry lone("Lone");
    lone.AddData("Unknown", 5, MrlZol::NumericArray(), {});
    lone.positions["Known"] = 0;
    EXPECT_EQ(Failure([&] { lone.LoadConnectivityBlocks(unopened, "Heavy Data"); }),
              (Fail{5, "Element Not Found"}));
}

}  // namespace
