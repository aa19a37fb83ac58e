// Whole files made byte by byte and read back through HbFile: the header, the opening and
// closing, the reads by name, a broken index, and the versioned records.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/BlockVersionedIo.h"
#include "Mrl/Zol/Material.h"
#include "Mrl/Zol/TranslationRecord.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlHbf::HbFile;

// Every line at level 1000 and above that the process logs from the first call on.
std::string& TraceLog() {
    static std::shared_ptr<LogSink> sink = CaptureLog(true);
    return sink->text;
}

class HbfFileTest : public testing::Test {
protected:
    std::string Write(const Bytes& bytes) {
        return dir.Write(bytes, std::to_string(++serial) + ".zol");
    }
    void Open(HbFile& file, const ZolFileBuilder& builder) {
        file.OpenFile(Write(builder.Build()), "rb");
    }
    TempDir dir;
    int serial = 0;
};

TEST_F(HbfFileTest, MagicAndVersion) {
    HbFile file;
    Open(file, ZolFileBuilder().Version("0.1a"));  // four characters, no NUL behind them
    EXPECT_TRUE(file.CheckMagic());
    EXPECT_EQ(file.GetFileVersion(), "0.1a");
    const Bytes magic = {0x89, 0x48, 0x42, 0x46, 0x0D, 0x0A, 0x1A, 0x0A};
    for (size_t i = 0; i < 8; ++i) {
        Bytes bad = magic;
        bad[i] = i == 3 ? 0 : static_cast<uint8_t>(bad[i] ^ 0x20);
        HbFile badFile;
        Open(badFile, ZolFileBuilder().Magic(bad));
        EXPECT_FALSE(badFile.CheckMagic()) << i;
    }
    HbFile shortFile;
    shortFile.OpenFile(Write(Bytes(magic.begin(), magic.begin() + 7)), "rb");
    EXPECT_FALSE(shortFile.CheckMagic());

    // Versions compare by tenths; from 0.7 on the light offsets are 64 bits wide.
    for (auto [version, wide] : std::vector<std::pair<const char*, bool>>{{"1.1", true},
                                                                          {"0.7", true},
                                                                          {"0.6", false},
                                                                          {"0.69", false},
                                                                          {"0.1a", false},
                                                                          {"abc", false},
                                                                          {"", false},
                                                                          {"1.19", true},
                                                                          {"1", true}}) {
        bool out = !wide;
        EXPECT_NO_THROW(HbFile::CheckSupport(version, out)) << version;
        EXPECT_EQ(out, wide) << version;
    }
    bool wide = false;
    EXPECT_EQ(Failure([&] { HbFile::CheckSupport("10", wide); }).second.substr(0, 37),
              "This file is of zol file version 100.");
}

TEST_F(HbfFileTest, OpenAndCloseFile) {
    const std::string missing = dir / "missing.zol";
    {
        HbFile file;
        EXPECT_EQ(Failure([&] { file.OpenFile(missing, "rb"); }),
                  (Fail{16, "Unable to open file \"" + missing + "\""}));
        EXPECT_FALSE(file.IsOpen());
    }
    std::string& log = TraceLog();
    const std::string path = Write(ZolFileBuilder().Version("0.9").Build());
    const std::string other = Write(ZolFileBuilder().Version("1.0").Build());
    log.clear();
    {
        HbFile file;
        file.CloseFile();
        EXPECT_EQ(NormaliseLog(log), "HbFile : N @ Closing file ...\n");

        file.OpenFile(path, "rb");
        EXPECT_EQ(Failure([&] { file.OpenFile(other, "rb"); }),
                  (Fail{16, "File stream is already in use"}));
        EXPECT_EQ(file.GetFileVersion(), "0.9");
        log.clear();
        file.CloseFile();
        EXPECT_NE(log.find("@ Closing file ...\n"), std::string::npos);
        EXPECT_NE(log.find("@ File closed.\n"), std::string::npos);
        EXPECT_FALSE(file.IsOpen());

        file.OpenFile(other, "rb");  // allowed again once closed
        file.CloseFile();
        log.clear();
    }
    // The destructor closes once more; only the first message remains.
    EXPECT_EQ(NormaliseLog(log), "HbFile : N @ Closing file ...\n");
}

TEST_F(HbfFileTest, ReadsByName) {
    const char raw[6] = {'r', 'a', 'w', 0, 1, 2};
    ZolFileBuilder builder;
    builder.IndexTrailer({0xEE, 0xEE, 0xEE});  // ignored: the blocks start behind it anyway
    BlockWriter values;
    values.U8(0xAB).U32(0xDEADBEEF).U64(0x0123456789ABCDEFull).Str("name");
    values.U32(2).Str("a").Str("bc").U32(3).U8(1).U8(2).U8(3).U32(2).U32(7).U32(8);
    values.U32(1).F64(0.25).Raw(raw, 6).U32(11).U32(12);
    builder.Plain("Values", values.Data());
    builder.Compressed("Packed", BlockWriter().Str("packed text").Data());
    std::string& log = TraceLog();
    log.clear();

    HbFile file;
    Open(file, builder);
    EXPECT_TRUE(file.GetIndex().IsEmpty()) << "the index waits for the first read";
    EXPECT_EQ(log.find("Reading index"), std::string::npos);

    uint8_t u8 = 0;
    uint32_t u32 = 0, array[2] = {};
    uint64_t u64 = 0;
    std::string text;
    std::vector<std::string> texts;
    std::vector<uint8_t> bytes;
    std::vector<uint32_t> words;
    std::vector<double> doubles;
    char rawOut[6] = {};
    file.CopyFromBlock("Values", u8);
    EXPECT_NE(log.find("@ Reading index positions ... \n"), std::string::npos);
    EXPECT_NE(log.find("@ Index read. \n"), std::string::npos);
    file.CopyFromBlock("Values", u32);
    file.CopyFromBlock("Values", u64);
    file.CopyFromBlock("Values", text);
    file.CopyFromBlock("Values", texts);
    file.CopyFromBlock("Values", bytes);
    file.CopyFromBlock("Values", words);
    file.CopyFromBlock("Values", doubles);
    file.CopyFromBlock("Values", rawOut, 6);
    file.CopyFromBlock("Values", array, 2);
    EXPECT_EQ(u8, 0xAB);
    EXPECT_EQ(u32, 0xDEADBEEF);
    EXPECT_EQ(u64, 0x0123456789ABCDEFull);
    EXPECT_EQ(text, "name");
    EXPECT_EQ(texts, (std::vector<std::string>{"a", "bc"}));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(words, (std::vector<uint32_t>{7, 8}));
    EXPECT_EQ(doubles, (std::vector<double>{0.25}));
    EXPECT_EQ(std::memcmp(rawOut, raw, 6), 0);
    EXPECT_EQ(array[0] * 100 + array[1], 1112u);
    file.CopyFromBlock("Packed", text);
    EXPECT_EQ(text, "packed text");
    // Reading on past the end of the last block is a short read.
    EXPECT_EQ(Failure([&] { file.CopyFromBlock("Values", u8); }).first, 1u);

    // An absent name reads as nothing at all while the stream is open.
    file.CopyFromBlock("Absent", u32);
    file.CopyFromBlock("Absent", text);
    file.CopyFromBlock("Absent", words);
    file.CopyFromBlock("Absent", rawOut, 6);
    file.CopyFromBlock("Absent", array, 2);
    MrlZol::Material material;
    material.shininess = 42;
    MrlZol::CopyFromBlock(file, "Absent", material);
    EXPECT_EQ(u32, 0xDEADBEEF);
    EXPECT_EQ(text, "packed text");
    EXPECT_EQ(words.size(), 2u);
    EXPECT_EQ(array[0], 11u);
    EXPECT_EQ(material.shininess, 42);
    EXPECT_EQ(file.GetIndex().GetEntries().size(), 2u);
}

TEST_F(HbfFileTest, ReadsAfterClosingUseBlocksInMemory) {
    HbFile file;
    Open(file, ZolFileBuilder()
                   .Plain("Loaded", BlockWriter().U32(1).U32(2).Data())
                   .Plain("Unloaded", BlockWriter().U32(3).Data()));
    uint32_t value = 0;
    file.CopyFromBlock("Loaded", value);
    file.CloseFile();
    file.CopyFromBlock("Loaded", value);
    EXPECT_EQ(value, 2u);
    // Raw bytes and arrays swallow the missing block; the other members let it through.
    value = 77;
    file.CopyFromBlock("Loaded", static_cast<void*>(&value), 4);
    file.CopyFromBlock("Unloaded", &value, uint32_t{1});
    file.CopyFromBlock("Absent", static_cast<void*>(&value), 4);
    EXPECT_EQ(value, 77u);
    EXPECT_EQ(Failure([&] { file.CopyFromBlock("Loaded", value); }).first, 5u);
    EXPECT_EQ(Failure([&] { file.CopyFromBlock("Unloaded", value); }).first, 5u);
    std::string text;
    EXPECT_EQ(Failure([&] { file.CopyFromBlock("Absent", text); }).first, 5u);
}

TEST_F(HbfFileTest, BrokenIndex) {
    const Bytes block = BlockWriter().U32(1).Data();
    auto failureOf = [&](const Bytes& bytes) {
        HbFile file;
        file.OpenFile(Write(bytes), "rb");
        uint32_t value = 0;
        return Failure([&] { file.CopyFromBlock("A", value); }).first;
    };
    auto withA = [&] { return ZolFileBuilder().Plain("A", block); };
    // An entry cut by the index size, or a count beyond the entries: short reads.
    EXPECT_EQ(failureOf(withA().IndexSizeOverride(12).Build()), 1u);
    EXPECT_EQ(failureOf(withA().IndexCountOverride(2).Build()), 1u);
    EXPECT_EQ(failureOf(withA().IndexCountOverride(0xFFFFFFFF).Build()), 1u);
    // An index size past the end of the file, a header cut short, a stored size past the end.
    EXPECT_EQ(failureOf(withA().IndexSizeOverride(1000).Build()), 9u);
    Bytes header = withA().Build();
    header.resize(14);
    EXPECT_EQ(failureOf(header), 9u);
    EXPECT_EQ(failureOf(ZolFileBuilder().Raw({0, "A", block, 0, 0, 100}).Build()), 9u);
}

TEST_F(HbfFileTest, VersionedRecords) {
    MaterialFields fields;
    fields.materialFlag = 7;
    // Unlisted, compared-as-text and empty versions read every field; surplus is skipped.
    struct Case {
        const char* version;
        size_t surplus, size;
        float ambientFactor;  // 0.2 and 1 are what a fresh material holds
        uint8_t flag;
    };
    for (Case c :
         {Case{"0.1", 0, 79, 0.2f, 1}, Case{"0.2", 0, 83, 15.5f, 1}, Case{"0.3", 0, 84, 15.5f, 7},
          Case{"0.9", 5, 89, 15.5f, 7}, Case{"0.10", 0, 85, 15.5f, 7}, Case{"", 0, 81, 15.5f, 7}}) {
        SCOPED_TRACE(c.version);
        Bytes record = MaterialRecord(c.version, fields, c.surplus);
        EXPECT_EQ(record.size(), c.size);
        record.push_back(0x5A);
        MrlHbf::Block block;
        block.Append(record.data(), static_cast<uint32_t>(record.size()));
        block.SetPosition(uint32_t{0});
        MrlZol::Material m;
        MrlHbf::CopyFromBlock_Versioned(block, m);
        EXPECT_EQ(block.GetPosition(), c.size);
        EXPECT_EQ(m.diffuse[3], 3.5f);
        EXPECT_EQ(m.emissive[2], 10.5f);
        EXPECT_EQ(m.ambient[2], 13.5f);
        EXPECT_FLOAT_EQ(m.ambient[3], 0.2f);  // the stored fourth value is not taken
        EXPECT_EQ(m.shininess, 14.5f);
        EXPECT_EQ(m.ambientFactor, c.ambientFactor);
        EXPECT_EQ(m.materialFlag, c.flag);
    }

    auto failure = [&](const Bytes& bytes) {
        MrlHbf::Block b;
        b.Append(bytes.data(), static_cast<uint32_t>(bytes.size()));
        b.SetPosition(uint32_t{0});
        MrlZol::Material target;
        return Failure([&] { MrlHbf::CopyFromBlock_Versioned(b, target); });
    };
    const Fail unknown{2, "Unknown Version"};
    const Bytes fields03 = MaterialFieldBytes("0.3", fields);
    EXPECT_EQ(failure(VersionedRecord("0.3", fields03, 0, 83)), unknown);
    EXPECT_EQ(failure(VersionedRecord("0.3", fields03, 0, 0)), unknown);
    EXPECT_EQ(failure(VersionedRecord("0.3", fields03, 0, 90)),
              (Fail{1, "Invalid block position"}));
    Bytes cut = MaterialRecord("0.3", fields);
    cut.resize(60);
    EXPECT_EQ(failure(cut).first, 1u);

    // The same rules through a read by name, for a list of translation records.
    HbFile file;
    Open(file,
         ZolFileBuilder()
             .Plain("Global Information",
                    GlobalInformation({{"0.7", {"App", "1.0", "0.7", "today", "", "me", "note"}},
                                       {"9.9", {"Other", "", "", "", "x", "", ""}}},
                                      3))
             .Plain("Global Information", BlockWriter().U32(0).Data()));
    std::vector<MrlZol::TranslationRecord> history;
    MrlZol::CopyFromBlock(file, "Global Information", history);
    ASSERT_EQ(history.size(), 2u);
    EXPECT_EQ(history[0].applicationName, "App");
    EXPECT_EQ(history[0].comment, "note");
    EXPECT_EQ(history[1].applicationName, "Other");
    EXPECT_EQ(history[1].extraText, "x");
    MrlZol::CopyFromBlock(file, "Global Information", history);
    EXPECT_TRUE(history.empty());
}

}  // namespace
