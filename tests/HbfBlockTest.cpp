// A block is where every byte of a file is bounds-checked, so the tests push its limits: counts
// and lengths that lie, reads that run past the end, positions beyond 32 bits, packed sizes
// that don't match what the packed stream holds.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "Mrl/Hbf/Block.h"
#include "Mrl/Hbf/BlockZlibUnCompressor.h"
#include "Mrl/Hbf/FileStream.h"
#include "Mrl/Util/ErrorStream.h"
#include "Mrl/Util/Exception.h"
#include "TestSupport.h"

#if defined(__SANITIZE_ADDRESS__)
// A refused allocation must come back as null, as it does without the sanitizer.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
#define HBF_TEST_SANITIZED 1
#endif

namespace {

using Mrl::Util::Exception;
using MrlHbf::Block;
using namespace ZolTest;

constexpr uint64_t kFloor = 10485760;
const Fail kShort{1, "Not enough bytes in the block"};

// Fills a block the way a transformation does and rewinds it.
void Fill(Block& block, const Bytes& bytes) {
    block.Reset();
    block.Append(bytes.data(), static_cast<uint32_t>(bytes.size()));
    block.SetPosition(uint32_t{0});
}

TEST(HbfBlock, GetAndSetPositionBounds) {
    Block empty;
    uint8_t byte = 0x11;
    EXPECT_NO_THROW(empty.Get(&byte, 0));
    EXPECT_EQ(Failure([&] { empty.Get(&byte, 1); }), kShort);

    Block block;
    Fill(block, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    uint8_t out[16] = {};
    block.Get(out, 15);
    EXPECT_EQ(block.GetPosition(), 15u);
    // A huge count must not wrap around the bounds test.
    EXPECT_EQ(Failure([&] { block.Get(out, 0xFFFFFFFFu); }).first, 1u);
    EXPECT_EQ(Failure([&] { block.Get(out, 2); }).first, 1u);
    EXPECT_EQ(block.GetPosition(), 15u);
    block.Get(out, 1);
    EXPECT_EQ(out[0], 16);
    EXPECT_EQ(block.GetPosition(), 16u);
    EXPECT_EQ(Failure([&] { block.Get(out, 1); }).first, 1u);
    EXPECT_NO_THROW(block.Get(out, 0));

    block.SetPosition(uint32_t{16});
    block.SetPosition(uint64_t{3});
    EXPECT_EQ(block.GetPosition(), 3u);
    const auto invalid = Fail{1, "Invalid block position"};
    EXPECT_EQ(Failure([&] { block.SetPosition(uint32_t{17}); }), invalid);
    EXPECT_EQ(Failure([&] { block.SetPosition(uint64_t{17}); }), invalid);
    EXPECT_EQ(Failure([&] { block.SetPosition(uint64_t{1} << 32); }), invalid);
    EXPECT_EQ(Failure([&] { block.SetPosition((uint64_t{1} << 32) + 3); }), invalid);
    EXPECT_EQ(block.GetPosition(), 3u);
    EXPECT_NO_THROW(empty.SetPosition(uint64_t{0}));
}

TEST(HbfBlock, ReadFromStream) {
    Bytes bytes(kFloor + 1);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7);
    TempDir dir;
    MrlHbf::FileStream stream;
    ASSERT_TRUE(stream.Open(dir.Write(bytes, "big"), "rb"));

    Block block;
    block.Read(stream, 0);
    EXPECT_FALSE(block.HasBuffer());
    EXPECT_EQ(block.GetCapacity(), 0u);

    block.Read(stream, 10);
    EXPECT_EQ(block.GetCapacity(), kFloor);
    EXPECT_EQ(block.GetSize(), 10u);
    EXPECT_EQ(block.GetPosition(), 0u);
    EXPECT_EQ(std::memcmp(block.GetBuffer(), bytes.data(), 10), 0);

    // A read that would fill the buffer to its last byte grows it by the floor.
    block.SetPosition(uint32_t{10});
    block.Read(stream, static_cast<uint32_t>(kFloor - 10));
    EXPECT_EQ(block.GetCapacity(), 2 * kFloor);
    EXPECT_EQ(block.GetSize(), kFloor);
    EXPECT_EQ(block.GetPosition(), 10u);
    EXPECT_EQ(std::memcmp(block.GetBuffer(), bytes.data(), kFloor), 0);

    // Reading exactly to the end of the file succeeds; one byte more fails.
    Block last;
    last.Read(stream, 1);
    EXPECT_EQ(last.GetBuffer()[0], bytes.back());
    const auto readError = Fail{9, "Unable to read from file"};
    EXPECT_EQ(Failure([&] { last.Read(stream, 1); }), readError);
    EXPECT_EQ(last.GetSize(), 1u);

    // One read of more than the floor gets exactly what it asks for.
    ASSERT_TRUE(stream.Seek(0));
    Block big;
    big.Read(stream, static_cast<uint32_t>(bytes.size()));
    EXPECT_EQ(big.GetCapacity(), bytes.size());
    EXPECT_EQ(big.GetSize(), bytes.size());

    // Part of the bytes is still a failure, and a lying size sets no memory aside.
    MrlHbf::FileStream shortStream;
    ASSERT_TRUE(shortStream.Open(dir.Write(Bytes{1, 2, 3, 4, 5}, "small"), "rb"));
    Block partial;
    EXPECT_EQ(Failure([&] { partial.Read(shortStream, 8); }), readError);
    EXPECT_EQ(partial.GetSize(), 0u);
    ASSERT_TRUE(shortStream.Seek(0));
    EXPECT_EQ(Failure([&] { partial.Read(shortStream, 0xFFFFFFFFu); }), readError);
    EXPECT_LT(partial.GetCapacity(), uint64_t{1} << 30);
}

TEST(HbfBlock, AllocateAdditionalMemory) {
    Block block;
    Fill(block, {9, 8, 7});
    const uint64_t capacity = block.GetCapacity();
    block.AllocateAdditionalMemory(5);
    EXPECT_EQ(block.GetCapacity(), capacity + 5);
    EXPECT_EQ(block.GetSize(), 3u);
    EXPECT_EQ(block.GetBuffer()[2], 7);

    // A refused growth keeps the old buffer valid.
    uint8_t* before = block.GetBuffer();
    EXPECT_EQ(Failure([&] { block.AllocateAdditionalMemory(uint64_t{1} << 62); }),
              (Fail{0, "Memory Allocation Error"}));
    EXPECT_EQ(block.GetBuffer(), before);
    EXPECT_EQ(block.GetCapacity(), capacity + 5);
    uint8_t out[3] = {};
    block.Get(out, 3);
    EXPECT_EQ(out[0], 9);
}

TEST(HbfBlock, StringAndVectorReaders) {
    BlockWriter w;
    w.U32(0).U32(5).Raw("ab\0cd", 5);                // empty string; NUL inside
    w.U32(0).U32(3).U32(10).U32(0xFFFFFFFF).U32(7);  // empty vector; three words
    w.U32(2).F64(1.5).F64(-2.25).U32(2).U8(0xFE).U8(1);
    w.U32(3).Str("x").U32(0).Str("z");  // three strings, the middle one empty
    Block block;
    Fill(block, w.Data());

    std::string text = "kept";
    MrlHbf::CopyFromBlock(block, text);
    EXPECT_EQ(text, "kept");
    MrlHbf::CopyFromBlock(block, text);
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(block.GetPosition(), 13u);
    std::vector<uint32_t> words{1, 2, 3, 4};
    MrlHbf::CopyFromBlock(block, words);
    EXPECT_TRUE(words.empty());
    MrlHbf::CopyFromBlock(block, words);
    EXPECT_EQ(words, (std::vector<uint32_t>{10, 0xFFFFFFFF, 7}));
    std::vector<double> doubles;
    MrlHbf::CopyFromBlock(block, doubles);
    EXPECT_EQ(doubles, (std::vector<double>{1.5, -2.25}));
    std::vector<uint8_t> small;
    MrlHbf::CopyFromBlock(block, small);
    EXPECT_EQ(small, (std::vector<uint8_t>{0xFE, 1}));
    // An empty string leaves the element it lands on as it was.
    std::vector<std::string> texts{"old0", "old1", "old2", "old3"};
    MrlHbf::CopyFromBlock(block, texts);
    EXPECT_EQ(texts, (std::vector<std::string>{"x", "old1", "z"}));
    EXPECT_EQ(block.GetPosition(), block.GetSize());

    // Counts and lengths beyond the remaining bytes fail before anything is set aside.
    auto expectShort = [](auto& destination) {
        Block lying;
        Fill(lying, BlockWriter().U32(0xFFFFFFFF).U32(1).U32(2).Data());
        EXPECT_EQ(Failure([&] { MrlHbf::CopyFromBlock(lying, destination); }), kShort);
        EXPECT_EQ(destination.capacity(), 0u);
    };
    std::string none;
    std::vector<uint32_t> noWords;
    std::vector<uint8_t> noBytes;
    std::vector<uint64_t> noLongs;
    std::vector<std::string> noTexts;
    expectShort(noWords);
    expectShort(noBytes);
    expectShort(noLongs);
    expectShort(noTexts);
    Fill(block, BlockWriter().U32(2).U32(1).U32(2).Data());
    EXPECT_EQ(Failure([&] { MrlHbf::CopyFromBlock(block, noLongs); }).first, 1u);
    Fill(block, BlockWriter().U32(0xFFFFFFFF).Data());
    EXPECT_EQ(Failure([&] { MrlHbf::CopyFromBlock(block, none); }).first, 1u);
}

TEST(HbfBlock, ZlibUnpacking) {
    Bytes contents(3000);
    for (size_t i = 0; i < contents.size(); ++i) contents[i] = static_cast<uint8_t>(i % 251);
    MrlHbf::BlockZlibUnCompressor unpack;
    Block block;
    Fill(block, CompressedForm(contents));
    unpack(block);
    ASSERT_EQ(block.GetSize(), contents.size());
    EXPECT_EQ(block.GetPosition(), contents.size());
    EXPECT_EQ(block.GetCapacity(), kFloor);
    EXPECT_EQ(std::memcmp(block.GetBuffer(), contents.data(), contents.size()), 0);

    // The unpacked size is a limit, not a promise; a 4 GiB claim sets aside no 4 GiB.
    for (uint32_t claim : {3001u, 0xFFFFFFFFu}) {
        Fill(block, CompressedForm(contents, claim));
        unpack(block);
        EXPECT_EQ(block.GetSize(), contents.size());
        EXPECT_EQ(block.GetCapacity(), kFloor);
    }
#if !defined(HBF_TEST_SANITIZED)
    // Not even for a moment: with the address space capped at 2 GiB it must still work.
    pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        rlimit limit{rlim_t{2} << 30, rlim_t{2} << 30};
        if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(2);
        Fill(block, CompressedForm(contents, 0xFFFFFFFF));
        try {
            unpack(block);
            _exit(block.GetSize() == contents.size() ? 0 : 3);
        } catch (...) {
            _exit(4);
        }
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
#endif

    // Failures of zlib are reported on the error stream and leave the block empty.
    auto expectZlibError = [&](const Bytes& stored, const std::string& message) {
        std::ostringstream errors;
        Mrl::Util::SetErrorStream(&errors);
        Fill(block, stored);
        bool bare = false;
        try {
            unpack(block);
        } catch (const Exception&) {
            ADD_FAILURE() << "a zlib failure is a bare std::exception";
        } catch (const std::exception&) {
            bare = true;
        }
        Mrl::Util::SetErrorStream(nullptr);
        EXPECT_TRUE(bare);
        EXPECT_EQ(errors.str(), message);
        EXPECT_FALSE(block.HasBuffer());
        EXPECT_EQ(block.GetSize(), 0u);
    };
    expectZlibError(CompressedForm(contents, 2999), "Error -5 while uncompressing block \n");
    Bytes damaged = CompressedForm(contents);
    damaged.back() ^= 0xFF;  // the stream's check value
    expectZlibError(damaged, "Error -3 while uncompressing block \n");

    // Too short to hold its unpacked size: refused without reading past the bytes.
    for (size_t storedSize : {0, 1, 3}) {
        Fill(block, Bytes(storedSize, 0));
        EXPECT_ANY_THROW(unpack(block)) << storedSize;
        EXPECT_EQ(block.GetSize(), 0u);
    }
}

}  // namespace
