// Every byte of a file is bounds-checked in a block: counts and lengths that lie, reads past
// the end, positions beyond 32 bits, packed sizes that don't match the packed stream.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "Mrl/Hbf/Block.h"
#include "Mrl/Hbf/BlockZlibUnCompressor.h"
#include "Mrl/Hbf/FileStream.h"
#include "Mrl/Util/ErrorStream.h"
#include "TestSupport.h"

namespace {

using MrlHbf::Block;
using namespace ZolTest;

const Fail kShort{1, "Not enough bytes in the block"};
const Fail kReadError{9, "Unable to read from file"};

// Fills a block the way a transformation does and rewinds it.
void Fill(Block& block, const Bytes& bytes) {
    block.Reset();
    block.Append(bytes.data(), static_cast<uint32_t>(bytes.size()));
    block.SetPosition(uint32_t{0});
}

TEST(HbfBlock, BoundsOfReadsAndPositions) {
    TempDir dir;
    MrlHbf::FileStream stream;
    ASSERT_TRUE(stream.Open(dir.Write(Bytes{1, 2, 3, 4, 5}), "rb"));
    Block block;
    block.Read(stream, 2);
    block.SetPosition(uint32_t{2});
    block.Read(stream, 3);  // exactly to the end of the file; appended at the position
    EXPECT_EQ(Failure([&] { block.Read(stream, 1); }), kReadError);
    block.SetPosition(uint32_t{0});
    uint8_t out[5] = {};
    block.Get(out, 4);
    EXPECT_EQ(std::memcmp(out, "\1\2\3\4", 4), 0);
    // A huge count must not wrap around the bounds test, and a failed read moves nothing.
    for (uint32_t count : {2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(Failure([&] { block.Get(out, count); }), kShort) << count;
    }
    block.Get(out, 1);
    EXPECT_EQ(out[0], 5);
    for (uint64_t position : {uint64_t{6}, uint64_t{1} << 32, (uint64_t{1} << 32) + 5}) {
        EXPECT_EQ(Failure([&] { block.SetPosition(position); }),
                  (Fail{1, "Invalid block position"}));
    }

    // Part of the bytes is still a failure, and a lying size sets no memory aside.
    for (uint32_t count : {8u, 0xFFFFFFFFu}) {
        ASSERT_TRUE(stream.Seek(0));
        Block partial;
        EXPECT_EQ(Failure([&] { partial.Read(stream, count); }), kReadError) << count;
        EXPECT_EQ(partial.GetSize(), 0u);
        EXPECT_LT(partial.GetCapacity(), uint64_t{1} << 30);
    }
}

TEST(HbfBlock, StringAndVectorReaders) {
    BlockWriter w;
    w.U32(5).Raw("ab\0cd", 5);                       // NUL inside
    w.U32(0).U32(3).U32(10).U32(0xFFFFFFFF).U32(7);  // empty vector; three words
    w.U32(3).Str("x").U32(0).Str("z");               // three strings, the middle one empty
    Block block;
    Fill(block, w.Data());
    std::string text;
    MrlHbf::CopyFromBlock(block, text);
    EXPECT_EQ(text, "ab");
    std::vector<uint32_t> words{1, 2, 3, 4};
    MrlHbf::CopyFromBlock(block, words);
    EXPECT_TRUE(words.empty());
    MrlHbf::CopyFromBlock(block, words);
    EXPECT_EQ(words, (std::vector<uint32_t>{10, 0xFFFFFFFF, 7}));
    // An empty string leaves the element it lands on as it was.
    std::vector<std::string> texts{"old0", "old1", "old2", "old3"};
    MrlHbf::CopyFromBlock(block, texts);
    EXPECT_EQ(texts, (std::vector<std::string>{"x", "old1", "z"}));
    EXPECT_EQ(block.GetPosition(), block.GetSize());

    // Counts and lengths beyond the remaining eight bytes, some of them wrapping to 8 in 32
    // bits, fail before anything is set aside.
    auto expectShort = [](auto&& destination, uint32_t count) {
        Block lying;
        Fill(lying, BlockWriter().U32(count).U32(1).U32(2).Data());
        EXPECT_EQ(Failure([&] { MrlHbf::CopyFromBlock(lying, destination); }), kShort) << count;
        EXPECT_EQ(destination.capacity(), std::decay_t<decltype(destination)>{}.capacity());
    };
    expectShort(std::vector<uint32_t>{}, 0x40000002);
    expectShort(std::vector<uint64_t>{}, 0x20000001);
    expectShort(std::vector<uint64_t>{}, 2);
    expectShort(std::vector<std::string>{}, 0x40000002);
    expectShort(std::string{}, 0xFFFFFFFF);
}

TEST(HbfBlock, ZlibUnpacking) {
    Bytes contents(3000);
    for (size_t i = 0; i < contents.size(); ++i) contents[i] = static_cast<uint8_t>(i % 251);
    MrlHbf::BlockZlibUnCompressor unpack;
    Block block;
    // The unpacked size is a limit, not a promise; a 4 GiB claim keeps no 4 GiB.
    for (uint32_t claim : {3000u, 3001u, 0xFFFFFFFFu}) {
        Fill(block, CompressedForm(contents, claim));
        unpack(block);
        ASSERT_EQ(block.GetSize(), contents.size());
        EXPECT_EQ(block.GetPosition(), contents.size());
        EXPECT_EQ(std::memcmp(block.GetBuffer(), contents.data(), contents.size()), 0);
        EXPECT_LT(block.GetCapacity(), uint64_t{1} << 30);
    }

    // A failure of zlib is a message and a bare std::exception, and leaves the block empty.
    Bytes damaged = CompressedForm(contents);
    damaged.back() ^= 0xFF;  // the stream's check value
    for (auto [stored, message] :
         {std::pair{CompressedForm(contents, 2999), "Error -5 while uncompressing block \n"},
          std::pair{damaged, "Error -3 while uncompressing block \n"}}) {
        std::ostringstream errors;
        Mrl::Util::SetErrorStream(&errors);
        Fill(block, stored);
        // Failure swallows the system's own exception, so only a bare one gets through.
        EXPECT_THROW(Failure([&] { unpack(block); }), std::exception);
        Mrl::Util::SetErrorStream(nullptr);
        EXPECT_EQ(errors.str(), message);
        EXPECT_FALSE(block.HasBuffer());
        EXPECT_EQ(block.GetSize(), 0u);
    }

    // Too short to hold its unpacked size: refused without reading past the bytes.
    for (size_t storedSize : {0, 1, 3}) {
        Fill(block, Bytes(storedSize, 0));
        EXPECT_EQ(Failure([&] { unpack(block); }), kShort) << storedSize;
        EXPECT_EQ(block.GetSize(), 0u);
    }
}

}  // namespace
