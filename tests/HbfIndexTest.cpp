// The index makes the pieces of one name look like one stream: these files split names over
// several physical blocks, plain and packed, with empty pieces and a continuation index.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Hbf/Index.h"
#include "Mrl/Hbf/SpareBuffers.h"
#include "Mrl/Util/ErrorStream.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlHbf::HbFile;

class HbfIndexTest : public testing::Test {
protected:
    void Open(HbFile& file, const ZolFileBuilder& builder) {
        file.OpenFile(dir.Write(builder), "rb");
    }
    static uint32_t Next(HbFile& file, const std::string& name) {
        uint32_t value = 0xFFFFFFFF;
        file.CopyFromBlock(name, value);
        return value;
    }
    TempDir dir;
};

TEST_F(HbfIndexTest, PiecesOfANameReadAsOneStream) {
    ZolFileBuilder builder;
    builder.Plain("Data", Words({1, 2})).Plain("Other", Words({100}));
    builder.Compressed("Data", Words({3})).Plain("Data", {}).Plain("Data", Words({4}));
    builder.Plain(std::string("Same\0one", 8), Words({5}));
    builder.Plain(std::string("Same\0two", 8), Words({6}));
    builder.Plain("Tail", Words({7})).Plain("Tail", {});
    builder.Plain("Odd", BlockWriter().U32(8).U8(1).U8(2).Data());
    builder.Plain("Odd", BlockWriter().U8(3).U8(4).Data());
    HbFile file;
    Open(file, builder);

    // Other names between the pieces and an empty piece are passed over; positions of pieces
    // after a packed one add up stored sizes.
    std::vector<uint32_t> got;
    for (const char* name : {"Data", "Other", "Data", "Data", "Data", "Same", "Same", "Tail"}) {
        got.push_back(Next(file, name));
    }
    EXPECT_EQ(got, (std::vector<uint32_t>{1, 100, 2, 3, 4, 5, 6, 7}))
        << "names that differ only behind a NUL fall together";
    EXPECT_EQ(Failure([&] { Next(file, "Data"); }).first, 1u);
    // An empty last piece is handed back, and reading from it is a short read.
    EXPECT_EQ(Failure([&] { Next(file, "Tail"); }), (Fail{1, "Not enough bytes in the block"}));

    // A value never spans two blocks, and the failed read consumes nothing.
    EXPECT_EQ(Next(file, "Odd"), 8u);
    EXPECT_EQ(Failure([&] { Next(file, "Odd"); }).first, 1u);
    uint16_t halves[2] = {};
    for (uint16_t& half : halves) file.CopyFromBlock("Odd", half);
    EXPECT_EQ(halves[0] + (halves[1] << 16), 0x04030201);
}

TEST_F(HbfIndexTest, ContinuationIndex) {
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed);
        ZolFileBuilder builder;
        // A prefixed name anywhere but last in the primary index is a plain block.
        builder.Plain(kIndexBlockPrefix + "early", Bytes(9, 0xFF)).Plain("Data", Words({1}));
        builder.StartContinuation(compressed, "more");
        builder.Compressed("Data", Words({2})).Plain("Late", Words({3}));
        // The continuation's own last entry is never followed, whatever its name.
        builder.Plain(kIndexBlockPrefix + "again", Bytes(5, 0xFF));
        HbFile file;
        Open(file, builder);

        EXPECT_EQ(Next(file, "Data"), 1u);
        EXPECT_EQ(Next(file, "Data"), 2u);
        EXPECT_EQ(Next(file, "Late"), 3u);
        // The continuation entry stays in its place as an ordinary block, unpacked as any other.
        EXPECT_EQ(file.GetIndex().GetEntries().size(), 6u);
        EXPECT_EQ(file.GetIndex().GetEntries()[2].name, kIndexBlockPrefix + "more");
        EXPECT_EQ(Next(file, kIndexBlockPrefix + "more"), 3u);
    }

    // Twelve bytes of the prefix are not enough, even with a thirteenth of another kind.
    HbFile file;
    Open(file, ZolFileBuilder()
                   .Plain("Data", Words({1}))
                   .Plain(kIndexBlockPrefix.substr(0, 12) + "_", Words({0xFFFF})));
    EXPECT_EQ(Next(file, "Data"), 1u);
    EXPECT_EQ(file.GetIndex().GetEntries().size(), 2u);
}

TEST_F(HbfIndexTest, BrokenContinuation) {
    // A packed continuation that doesn't unpack is zlib's failure, not a missing block.
    BlockEntry link{0, kIndexBlockPrefix, CompressedForm(Words({1, 2, 3})), 1};
    link.stored.back() ^= 0xFF;
    HbFile file;
    Open(file, ZolFileBuilder().Plain("Data", Words({1})).Raw(link));
    std::ostringstream errors;
    Mrl::Util::SetErrorStream(&errors);
    EXPECT_THROW(Failure([&] { Next(file, "Data"); }), std::exception);
    Mrl::Util::SetErrorStream(nullptr);
    EXPECT_EQ(errors.str(), "Error -3 while uncompressing block \n");

    // A plain continuation whose count runs past its bytes.
    HbFile other;
    Open(other, ZolFileBuilder().Plain("Data", Words({1})).Plain(kIndexBlockPrefix, Words({2})));
    EXPECT_EQ(Failure([&] { Next(other, "Data"); }).first, 1u);
}

TEST_F(HbfIndexTest, PositionsAndReleases) {
    HbFile file;
    Open(file, ZolFileBuilder()
                   .Plain("Data", Words({10}))
                   .Compressed("Data", Words({20, 21}))
                   .Plain("Data", {})
                   .Plain("Data", Words({30}))
                   .Plain("Other", Words({40})));
    for (uint32_t value : {10u, 20u, 21u, 30u}) EXPECT_EQ(Next(file, "Data"), value);
    EXPECT_EQ(Next(file, "Other"), 40u);
    MrlHbf::Index& index = file.GetIndex();
    MrlHbf::FileStream& stream = file.GetStream();

    // Offset 4 starts the second piece: of the name's pieces only that one stays loaded.
    index.ReleaseBlocksOutside("Data", 4);
    std::vector<bool> loaded;
    for (uint64_t i = 0; i < 5; ++i) loaded.push_back(index.GetBlock(i).HasBuffer());
    EXPECT_EQ(loaded, (std::vector<bool>{false, true, false, false, true}));
    // A positioning loads a released piece again where it stops, passing over the empty one,
    // and releases the pieces before it, which count as used up.
    index.SetPosition("Data", 12, stream);
    EXPECT_EQ(Next(file, "Data"), 30u);
    index.SetPosition("Data", 0, stream);
    EXPECT_EQ(Next(file, "Data"), 10u);
    index.SetPosition("Data", 8, stream);
    EXPECT_EQ(Next(file, "Data"), 21u);
    EXPECT_FALSE(index.GetBlock(0).HasBuffer());
    EXPECT_EQ(index.GetBlock(0).GetPosition(), 4u);
    // Exactly on a boundary lands at the start of the next piece.
    index.SetPosition("Data", 4, stream);
    EXPECT_EQ(Next(file, "Data"), 20u);

    // The total size is the end of the last piece; beyond it, even past 32 bits, is refused.
    index.SetPosition("Data", 16, stream);
    EXPECT_EQ(Failure([&] { Next(file, "Data"); }).first, 1u);
    for (uint64_t position : {uint64_t{17}, uint64_t{1} << 32}) {
        EXPECT_EQ(Failure([&] { index.SetPosition("Data", position, stream); }),
                  (Fail{1, "Invalid block position"}));
    }
    // An absent name gets an empty entry: position 0 is fine, anything else is not.
    index.SetPosition("New", 0, stream);
    EXPECT_EQ(Failure([&] { index.SetPosition("Newer", 1, stream); }).first, 1u);
    EXPECT_EQ(index.GetEntries().back().name, "Newer");
}

}  // namespace

// Inflation reuses the memory of released pieces: whatever order the pieces are read in, each
// one gives its own bytes and size, never what a larger piece left behind in the same memory.
TEST(HbfSpareBuffersTest, ReusedMemoryGivesEachPieceItsOwnBytes) {
    TempDir dir;
    std::vector<uint32_t> big(200'000), small{7, 8, 9}, mid(190'000);
    for (uint32_t i = 0; i < big.size(); ++i) big[i] = i * 3 + 1;
    for (uint32_t i = 0; i < mid.size(); ++i) mid[i] = ~i;
    HbFile file;
    file.OpenFile(dir.Write(ZolFileBuilder()
                                .Compressed("Data", Words(big))
                                .Compressed("Data", Words(small))
                                .Compressed("Data", Words(mid))),
                  "rb");
    file.ReadIndex();
    MrlHbf::Index& index = file.GetIndex();
    const uint64_t starts[] = {0, big.size() * 4, (big.size() + small.size()) * 4};
    const std::vector<uint32_t>* pieces[] = {&big, &small, &mid};
    for (int piece : {0, 1, 2, 0, 2, 1, 0, 1, 2}) {
        index.ReleaseBlocksOutside("Data", starts[piece]);
        index.SetPosition("Data", starts[piece], file.GetStream());
        const MrlHbf::Block& block = index.GetBlock(piece);
        ASSERT_EQ(block.GetSize(), pieces[piece]->size() * 4) << "piece " << piece;
        EXPECT_EQ(std::memcmp(block.GetBuffer(), pieces[piece]->data(), block.GetSize()), 0);
    }
}

TEST(HbfSpareBuffersTest, TakesTheSmallestThatFitsAndKeepsTheTwoLargest) {
    MrlHbf::SpareBuffers spares;
    auto give = [&](uint64_t size) { spares.Give(static_cast<uint8_t*>(std::malloc(size)), size); };
    give(100);
    give(300);
    give(200);  // 100 is freed
    uint64_t capacity = 0;
    EXPECT_EQ(spares.Take(300, capacity), nullptr);  // more than `minimum` is needed
    uint8_t* taken = spares.Take(150, capacity);
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(capacity, 200u);
    std::free(taken);
    taken = spares.Take(0, capacity);
    EXPECT_EQ(capacity, 300u);
    std::free(taken);
    EXPECT_EQ(spares.Take(0, capacity), nullptr);  // the smallest went when a third came
}
