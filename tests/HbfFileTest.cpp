// Whole files made byte by byte and read back through HbFile: the header, the opening, the
// reads by name open and closed, and a broken index.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/BlockVersionedIo.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlHbf::HbFile;

class HbfFileTest : public testing::Test {
protected:
    void Open(HbFile& file, const Bytes& bytes) {
        file.OpenFile(dir.Write(bytes, std::to_string(++serial) + ".zol"), "rb");
    }
    TempDir dir;
    int serial = 0;
};

TEST_F(HbfFileTest, HeaderAndOpening) {
    HbFile file;
    Open(file, ZolFileBuilder().Version("0.1a").Build());  // four characters, no NUL behind
    EXPECT_TRUE(file.CheckMagic());
    EXPECT_EQ(file.GetFileVersion(), "0.1a");
    EXPECT_EQ(Failure([&] { Open(file, {}); }), (Fail{16, "File stream is already in use"}));
    file.CloseFile();
    Open(file, {});  // allowed again once closed
    EXPECT_EQ(file.GetFileVersion(), "");
    // Every byte of the magic counts, and so does the file holding all eight.
    for (size_t i = 0; i <= 8; ++i) {
        Bytes bad(HbFile::kMagic, HbFile::kMagic + 8);
        if (i < 8) bad[i] ^= 0x20;
        HbFile badFile;
        Open(badFile,
             i < 8 ? ZolFileBuilder().Magic(bad).Build() : Bytes(bad.begin(), bad.end() - 1));
        EXPECT_FALSE(badFile.CheckMagic()) << i;
    }

    // Versions compare by tenths; from 0.7 on the light offsets are 64 bits wide.
    const std::pair<const char*, bool> versions[] = {
        {"1.1", true},  {"0.7", true}, {"0.6", false}, {"0.69", false}, {"0.1a", false},
        {"abc", false}, {"", false},   {"1.19", true}, {"1", true}};
    for (auto [version, wide] : versions) {
        bool out = !wide;
        EXPECT_NO_THROW(HbFile::CheckSupport(version, out)) << version;
        EXPECT_EQ(out, wide) << version;
    }
    bool wide = false;
    EXPECT_EQ(Failure([&] { HbFile::CheckSupport("10", wide); }).second.substr(0, 37),
              "This file is of zol file version 100.");
}

TEST_F(HbfFileTest, ReadsByName) {
    HbFile file;
    Open(file,
         ZolFileBuilder()
             .IndexTrailer({0xEE, 0xEE, 0xEE})  // ignored: the blocks start behind it
             .Plain("Values", BlockWriter().U8(0xAB).U64(~0ull - 1).U32(11).U32(12).U32(13).Data())
             .Compressed("Packed", BlockWriter().Str("packed text").Data())
             .Plain("Unloaded", BlockWriter().U32(3).Data())
             .Build());
    EXPECT_TRUE(file.GetIndex().IsEmpty()) << "the index waits for the first read";
    uint8_t u8 = 0;
    uint64_t u64 = 0;
    uint32_t array[2] = {};
    std::string text;
    file.CopyFromBlock("Values", u8);
    file.CopyFromBlock("Values", u64);
    file.CopyFromBlock("Values", array, 2);
    file.CopyFromBlock("Packed", text);
    EXPECT_EQ(u8, 0xAB);
    EXPECT_EQ(u64, ~0ull - 1);
    EXPECT_EQ(array[0] * 100 + array[1], 1112u);
    EXPECT_EQ(text, "packed text");
    // Reading on past the end of the last block is a short read.
    EXPECT_EQ(Failure([&] { file.CopyFromBlock("Packed", u8); }).first, 1u);

    // An absent name reads as nothing at all while the stream is open.
    std::vector<uint32_t> words{5};
    MrlZol::Material material;
    material.shininess = 42;
    file.CopyFromBlock("Absent", u64);
    file.CopyFromBlock("Absent", text);
    file.CopyFromBlock("Absent", words);
    file.CopyFromBlock("Absent", array, 2);
    MrlZol::CopyFromBlock(file, "Absent", material);
    EXPECT_EQ(std::make_tuple(u64, text, words.size(), array[0], material.shininess),
              std::make_tuple(~0ull - 1, std::string("packed text"), size_t{1}, 11u, 42.0f));
    EXPECT_EQ(file.GetIndex().GetEntries().size(), 3u);

    // Closed, reads use the blocks in memory. Raw bytes and arrays swallow a missing block;
    // the other members let it through.
    file.CloseFile();
    uint32_t value = 0;
    file.CopyFromBlock("Values", value);
    EXPECT_EQ(value, 13u);
    file.CopyFromBlock("Values", static_cast<void*>(&value), 4);
    file.CopyFromBlock("Unloaded", &value, uint32_t{1});
    file.CopyFromBlock("Absent", static_cast<void*>(&value), 4);
    EXPECT_EQ(value, 13u);
    for (const char* name : {"Values", "Unloaded", "Absent"}) {
        EXPECT_EQ(Failure([&] { file.CopyFromBlock(name, value); }).first, 5u) << name;
    }
}

TEST_F(HbfFileTest, BrokenIndex) {
    auto withA = [] { return ZolFileBuilder().Plain("A", BlockWriter().U32(1).Data()); };
    Bytes cutHeader = withA().Build();
    cutHeader.resize(14);
    // Entries cut by the index size or counted beyond it are short reads; an index, header or
    // block that runs past the end of the file is a read error.
    for (auto [bytes, kind] : std::vector<std::pair<Bytes, uint32_t>>{
             {withA().IndexSizeOverride(12).Build(), 1},
             {withA().IndexCountOverride(2).Build(), 1},
             {withA().IndexCountOverride(0xFFFFFFFF).Build(), 1},
             {withA().IndexSizeOverride(1000).Build(), 9},
             {cutHeader, 9},
             {ZolFileBuilder().Raw({0, "A", Bytes(4), 0, 0, 100}).Build(), 9}}) {
        HbFile file;
        Open(file, bytes);
        uint32_t value = 0;
        EXPECT_EQ(Failure([&] { file.CopyFromBlock("A", value); }).first, kind) << serial;
    }
}

}  // namespace
