// The index makes the pieces of one name look like one stream: these files split names over
// several physical blocks, plain and packed, with empty pieces and a continuation index.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Hbf/Index.h"
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
    static std::vector<std::string> EntryNames(HbFile& file) {
        std::vector<std::string> names;
        for (const MrlHbf::IndexEntry& e : file.GetIndex().GetEntries()) names.push_back(e.name);
        return names;
    }

    TempDir dir;
};

TEST_F(HbfIndexTest, PiecesOfANameReadAsOneStream) {
    ZolFileBuilder builder;
    builder.Plain("Data", Words({1, 2}));
    builder.Plain("Other", Words({100}));
    builder.Compressed("Data", Words({3}));
    builder.Plain("Data", {});  // empty piece in the middle
    builder.Plain("Data", Words({4}));
    builder.Plain(std::string("Same\0one", 8), Words({5}));
    builder.Plain(std::string("Same\0two", 8), Words({6}));
    builder.Plain("Tail", Words({7}));
    builder.Plain("Tail", {});  // empty piece at the end
    builder.Plain("Odd", BlockWriter().U32(8).U8(1).U8(2).Data());
    builder.Plain("Odd", BlockWriter().U8(3).U8(4).Data());
    HbFile file;
    Open(file, builder);

    EXPECT_EQ(Next(file, "Data"), 1u);
    EXPECT_EQ(Next(file, "Other"), 100u);
    EXPECT_EQ(Next(file, "Data"), 2u);
    EXPECT_EQ(Next(file, "Data"), 3u);
    EXPECT_EQ(Next(file, "Data"), 4u);
    EXPECT_EQ(Failure([&] { Next(file, "Data"); }).first, 1u);

    // Names that differ only behind a NUL fall together.
    EXPECT_EQ(Next(file, "Same"), 5u);
    EXPECT_EQ(Next(file, "Same"), 6u);
    EXPECT_EQ(file.GetIndex().GetBlockSizeLimiter("Same").entryNumbers.size(), 2u);

    // An empty last piece is handed back, and reading from it is a short read.
    EXPECT_EQ(Next(file, "Tail"), 7u);
    EXPECT_EQ(Failure([&] { Next(file, "Tail"); }), (Fail{1, "Not enough bytes in the block"}));

    // A value never spans two blocks, and the failed read consumes nothing.
    EXPECT_EQ(Next(file, "Odd"), 8u);
    EXPECT_EQ(Failure([&] { Next(file, "Odd"); }).first, 1u);
    uint16_t half = 0;
    file.CopyFromBlock("Odd", half);
    EXPECT_EQ(half, 0x0201);
    file.CopyFromBlock("Odd", half);
    EXPECT_EQ(half, 0x0403);

    // Positions add up the stored sizes, packed ones as stored.
    const auto& entries = file.GetIndex().GetEntries();
    EXPECT_EQ(file.GetIndex().GetIndexPosition(), 16u);
    EXPECT_EQ(entries[0].filePosition, 16 + file.GetIndex().GetIndexSize());
    for (size_t i = 1; i < entries.size(); ++i) {
        EXPECT_EQ(entries[i].filePosition, entries[i - 1].filePosition + entries[i - 1].storedSize);
    }

    const MrlHbf::BlockSet& data = file.GetIndex().GetBlockSizeLimiter("Data");
    EXPECT_EQ(data.entryNumbers, (std::vector<uint64_t>{0, 2, 3, 4}));
    EXPECT_EQ(data.sizeLimiter, 209715200u);
    EXPECT_EQ(Failure([&] { file.GetIndex().GetBlockSizeLimiter("None"); }).first, 5u);
    // Without the stream, a name whose blocks are used up is not found.
    EXPECT_EQ(Failure([&] { file.GetIndex().GetReadingBlockIndex("Data"); }).first, 5u);
}

TEST_F(HbfIndexTest, ContinuationIndex) {
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed);
        ZolFileBuilder builder;
        // A prefixed name anywhere but last in the primary index is a plain block.
        builder.Plain(kIndexBlockPrefix + "early", Bytes(9, 0xFF));
        builder.Plain("Data", Words({1}));
        builder.StartContinuation(compressed, "more");
        builder.Compressed("Data", Words({2}));
        builder.Plain("Late", Words({3}));
        // The continuation's own last entry is never followed, whatever its name.
        builder.Plain(kIndexBlockPrefix + "again", Bytes(5, 0xFF));
        HbFile file;
        Open(file, builder);

        EXPECT_EQ(Next(file, "Data"), 1u);
        EXPECT_EQ(Next(file, "Data"), 2u);
        EXPECT_EQ(Next(file, "Late"), 3u);
        EXPECT_EQ(EntryNames(file),
                  (std::vector<std::string>{kIndexBlockPrefix + "early", "Data",
                                            kIndexBlockPrefix + "more", "Data", "Late",
                                            kIndexBlockPrefix + "again"}));
        uint8_t byte = 0;
        file.CopyFromBlock(kIndexBlockPrefix + "again", byte);
        EXPECT_EQ(byte, 0xFF);
        // The continuation entry itself is an ordinary block (unpacked like any other).
        uint32_t count = 0;
        file.CopyFromBlock(kIndexBlockPrefix + "more", count);
        EXPECT_EQ(count, 3u);
    }

    // Twelve bytes of the prefix are not enough.
    ZolFileBuilder shortName;
    shortName.Plain("Data", Words({1}));
    shortName.Plain(kIndexBlockPrefix.substr(0, 12), Words({0xFFFF}));
    HbFile file;
    Open(file, shortName);
    EXPECT_EQ(Next(file, "Data"), 1u);
    EXPECT_EQ(file.GetIndex().GetEntries().size(), 2u);
}

TEST_F(HbfIndexTest, BrokenContinuation) {
    // A packed continuation that doesn't unpack is zlib's failure, not a missing block.
    ZolFileBuilder builder;
    builder.Plain("Data", Words({1}));
    BlockEntry link{0, kIndexBlockPrefix, CompressedForm(Words({1, 2, 3})), 1};
    link.stored.back() ^= 0xFF;
    builder.Raw(link);
    HbFile file;
    Open(file, builder);
    std::ostringstream errors;
    Mrl::Util::SetErrorStream(&errors);
    EXPECT_THROW(Next(file, "Data"), std::exception);
    Mrl::Util::SetErrorStream(nullptr);
    EXPECT_EQ(errors.str(), "Error -3 while uncompressing block \n");

    // A plain continuation whose count runs past its bytes.
    ZolFileBuilder truncated;
    truncated.Plain("Data", Words({1}));
    truncated.Plain(kIndexBlockPrefix, Words({2}));
    HbFile other;
    Open(other, truncated);
    EXPECT_EQ(Failure([&] { Next(other, "Data"); }).first, 1u);
}

TEST_F(HbfIndexTest, SetPositionAcrossBlocks) {
    ZolFileBuilder builder;
    builder.Plain("Data", Words({10}));
    builder.Compressed("Data", Words({20, 21}));
    builder.Plain("Data", {});
    builder.Plain("Data", Words({30}));
    HbFile file;
    Open(file, builder);
    file.ReadIndex();
    MrlHbf::Index& index = file.GetIndex();
    MrlHbf::FileStream& stream = file.GetStream();

    // Into the middle of the second piece: the first is released but counts as used up.
    index.SetPosition("Data", 8, stream);
    const MrlHbf::Block& first = index.GetBlock(0);
    EXPECT_FALSE(first.HasBuffer());
    EXPECT_EQ(first.GetSize(), 4u);
    EXPECT_EQ(first.GetPosition(), 4u);
    EXPECT_FALSE(index.GetEntries()[0].loaded);
    EXPECT_EQ(Next(file, "Data"), 21u);
    EXPECT_EQ(Next(file, "Data"), 30u) << "the empty piece is skipped";

    // Exactly on a boundary lands at the start of the next piece.
    index.SetPosition("Data", 4, stream);
    EXPECT_EQ(Next(file, "Data"), 20u);
    // Back to the start reloads the first piece; later pieces keep their positions.
    index.SetPosition("Data", 0, stream);
    EXPECT_TRUE(index.GetBlock(0).HasBuffer());
    EXPECT_EQ(Next(file, "Data"), 10u);
    EXPECT_EQ(Next(file, "Data"), 21u);

    // The total size is the end of the last piece; one more is refused.
    index.SetPosition("Data", 16, stream);
    EXPECT_EQ(Failure([&] { Next(file, "Data"); }).first, 1u);
    EXPECT_EQ(Failure([&] { index.SetPosition("Data", 17, stream); }),
              (Fail{1, "Invalid block position"}));
    EXPECT_EQ(Failure([&] { index.SetPosition("Data", uint64_t{1} << 32, stream); }).first, 1u);
    for (uint64_t i : {0u, 1u, 2u}) EXPECT_FALSE(index.GetBlock(i).HasBuffer()) << i;

    // An absent name gets an empty entry: position 0 is fine, anything else is not.
    const size_t before = index.GetEntries().size();
    index.SetPosition("New", 0, stream);
    EXPECT_EQ(index.GetEntries().size(), before + 1);
    EXPECT_EQ(index.GetEntries().back().name, "New");
    EXPECT_EQ(index.GetEntries().back().storedSize, 0u);
    EXPECT_EQ(Failure([&] { index.SetPosition("Newer", 1, stream); }).first, 1u);
    EXPECT_EQ(index.GetEntries().size(), before + 2);
    EXPECT_EQ(index.GetBlockSizeLimiter("Newer").entryNumbers.size(), 1u);
}

}  // namespace
