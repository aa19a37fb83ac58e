// Damaged and hostile files. Every run, in every mode, must end with status 0 or 2 (0 for a
// valid file) and print nothing on a failed load. The mutation sweep (truncations, bit flips in
// the header and index blocks, random overwrites of valid models) runs in-process; files with
// absurd counts and sizes and very deep or wide trees run through the built tool, which must
// also stay small in memory and leave the file as it was.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Run.h"
#include "TestSupport.h"

using namespace ZolTest;

namespace {

// Every block buffer has a 10 MiB floor that the address sanitizer maps and poisons afresh,
// so that build tries a sample of the mutations.
constexpr size_t kSample = kAddressSanitizer ? 130 : 1;

// The modes of every run; the dump comes first, as it does all that the others do and more.
const std::vector<std::string> kModes = {"--extract-data", "", "--ekm-meta-data"};

std::vector<std::string> Arguments(const std::string& program, const std::string& mode,
                                   const std::string& path) {
    if (mode.empty()) return {program, path};
    return {program, mode, path};
}

constexpr long kPeakLimitKiB = 64 * 1024;

// Runs the modes through the built tool; each must end with status 0 or 2 (0 when the file is
// valid), within the memory limit, and leave the file's bytes alone.
void Check(const std::string& what, const Bytes& bytes, long peakLimitKiB = kPeakLimitKiB,
           bool valid = false, bool dumpOnly = false) {
    SCOPED_TRACE(what);
    TempDir dir;
    const std::string path = dir.Write(bytes, "hostile.zol");
    for (const std::string& mode : kModes) {
        const RunResult run = RunTool(Arguments(ZOLINFO_EXE, mode, path), dir.path.string(),
                                      {"MORLANE_TEMP_PATH=" + dir / "no-such-dir"}, true);
        const std::string context = "mode \"" + mode + "\", signal " + std::to_string(run.signal) +
                                    ", peak " + std::to_string(run.peakKiB) + " KiB, output:\n" +
                                    (run.out + run.err).substr(0, 1500);
        EXPECT_TRUE(run.status == 0 || (!valid && run.status == 2)) << context;
        EXPECT_LT(run.peakKiB, peakLimitKiB) << context;
        EXPECT_TRUE(ReadText(path) == std::string(bytes.begin(), bytes.end())) << context;
        if (dumpOnly) break;
    }
}

uint32_t U32At(const Bytes& b, size_t at) {
    uint32_t v = 0;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}

// Byte ranges [begin, end) of the header with the primary index, and of the continuation
// index block when the file has one.
std::vector<std::pair<size_t, size_t>> IndexRanges(const Bytes& file) {
    const size_t indexEnd = 16 + U32At(file, 12);
    std::vector<std::pair<size_t, size_t>> ranges = {{0, indexEnd}};
    size_t at = 20;
    size_t blockStart = indexEnd;
    std::string name;
    uint32_t stored = 0;
    for (uint32_t i = 0, count = U32At(file, 16); i < count; ++i) {
        blockStart += stored;
        const uint32_t length = U32At(file, at + 1);
        name.assign(reinterpret_cast<const char*>(file.data() + at + 5), length);
        stored = U32At(file, at + 5 + length);
        at += 11 + length;
    }
    if (name.rfind(kIndexBlockPrefix, 0) == 0) ranges.push_back({blockStart, blockStart + stored});
    return ranges;
}

const std::filesystem::path kData = std::filesystem::path(ZOL_SOURCE_DIR) / "tests/data";

// The files in one folder of tests/data, in name order.
std::vector<std::pair<std::string, Bytes>> DataFiles(const std::string& folder) {
    std::vector<std::pair<std::string, Bytes>> files;
    for (const auto& entry : std::filesystem::directory_iterator(kData / folder)) {
        const std::string text = ReadText(entry.path().string());
        files.push_back({entry.path().filename().string(), Bytes(text.begin(), text.end())});
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Each file of hostile/ is a small valid model with one count or size made absurd, as its
// name says.
TEST(ToolHostile, AbsurdCountsAndSizesStaySmall) {
    const auto files = DataFiles("hostile");
    ASSERT_GE(files.size(), 17u);
    for (const auto& [what, hostile] : files) Check(what, hostile);
    // 32 MiB of zeros packed in 32 KiB must not be held twice.
    Check("compressed block of 32 MiB of zeros",
          ZolFileBuilder().Compressed("Zol Tree", Bytes(32 << 20, 0), 0xFFFFFFFF).Build(),
          160 * 1024);
}

TEST(ToolHostile, DeepAndWideTreesLoad) {
    // Group records "0.1" (they read nothing beyond the tree): a chain of a million, each the
    // only child of the one before, or 200,000 siblings under the root. One record is made and
    // its links patched, which keeps a million of them quick to write. Below the groups, a group
    // "Geometry" with one shape and its geometry gives the report's pass a part at the far end.
    for (const bool chain : {true, false}) {
        const uint32_t count = chain ? 1000000 : 200000, last = count + 1;
        BlockWriter tree;
        tree.I32(int32_t(count + 4));
        tree.Raw(
            TreeRecordBytes({1, 0, 0, 0, 2, chain ? 2 : last + 1, "root", "Group", "0.1"}, true));
        Bytes record = TreeRecordBytes({0, 0, 0, 0, 0, 0, "g", "Group", "0.1"}, true);
        for (uint32_t id = 2; id <= last; ++id) {
            const uint32_t links[6] = {id,
                                       chain ? id - 1 : 1,
                                       chain || id == 2 ? 0 : id - 1,
                                       chain ? 0 : id + 1,
                                       chain ? id + 1 : 0,
                                       chain ? id + 1 : 0};
            std::memcpy(record.data(), links, sizeof links);
            tree.Raw(record);
        }
        const uint32_t id = last + 1, parent = chain ? last : 1;
        tree.Raw(TreeRecordBytes(
            {id, parent, id - 1, 0, id + 1, id + 1, "Geometry", "Group", "0.1"}, true));
        tree.Raw(TreeRecordBytes({id + 1, id, 0, 0, id + 2, id + 2, "Deep", "Shape", "0.1"}, true));
        tree.Raw(TreeRecordBytes({id + 2, id + 1, 0, 0, 0, 0, "Deep", "Geometry", "0.7"}, true));
        Check(chain ? "chain of 1,000,000 nested groups" : "200,000 siblings",
              ZolFileBuilder().Plain("Zol Tree", tree.Take()).Build(), LONG_MAX, true, true);
    }
}

class ToolDamaged : public testing::Test {
protected:
    void SetUp() override {
        // The EKM mode writes into the current directory; with no trace log directory the log
        // goes nowhere.
        previousDirectory = std::filesystem::current_path();
        std::filesystem::current_path(dir.path);
        if (const char* temp = getenv("MORLANE_TEMP_PATH")) previousTemp = temp;
        setenv("MORLANE_TEMP_PATH", (dir / "no-such-directory").c_str(), 1);
        // Each run sets aside several 10 MiB block buffers and gives them back; without this
        // the heap is grown and trimmed by that much on every run, which dominates the sweep.
        mallopt(M_MMAP_THRESHOLD, 32 << 20);
        mallopt(M_TRIM_THRESHOLD, 512 << 20);
    }
    void TearDown() override {
        if (previousTemp) {
            setenv("MORLANE_TEMP_PATH", previousTemp->c_str(), 1);
        } else {
            unsetenv("MORLANE_TEMP_PATH");
        }
        std::filesystem::current_path(previousDirectory);
    }

    // Runs the three modes on the bytes; false (with a message) on the first bad run.
    testing::AssertionResult RunsCleanly(const Bytes& bytes) {
        const std::string path = dir.Write(bytes, "damaged.zol");
        for (const std::string& mode : kModes) {
            std::ostringstream out, err;
            const int status = ZolInfo::Run(Arguments("ZolInfo", mode, path), out, err);
            if (status == 2 && out.str().empty()) continue;
            if (status == 0 && out.str().rfind("Peak Memory Usage: ", 0) == 0) continue;
            return testing::AssertionFailure()
                   << mode << ": status " << status << ", stdout begins \""
                   << out.str().substr(0, 80) << "\", stderr: " << err.str().substr(0, 400);
        }
        return testing::AssertionSuccess();
    }

    TempDir dir;
    std::filesystem::path previousDirectory;
    std::optional<std::string> previousTemp;
};

TEST_F(ToolDamaged, DamagedModelsEndWithStatusZeroOrTwo) {
    // Valid models of several shapes: file and geometry versions, packed blocks, a (packed)
    // continuation index, one block per payload, light offsets.
    const auto models = DataFiles("sweep");
    ASSERT_EQ(models.size(), 4u);
    std::mt19937 random(20240601);
    size_t mutation = 0;
    // Takes every kSample-th mutation, so that a sample still covers every kind.
    auto sampled = [&mutation] { return mutation++ % kSample == 0; };
    for (const auto& [name, model] : models) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(RunsCleanly(model));

        for (size_t length = 0; length < model.size(); length += length < 4096 ? 1 : 97) {
            if (!sampled()) continue;
            ASSERT_TRUE(RunsCleanly(Bytes(model.begin(), model.begin() + long(length))))
                << "truncated to " << length;
        }
        const auto ranges = IndexRanges(model);
        ASSERT_EQ(ranges.size(), name.find("continuation") != std::string::npos ? 2u : 1u);
        for (const auto& [begin, end] : ranges) {
            for (size_t bit = begin * 8; bit < end * 8; ++bit) {
                if (!sampled()) continue;
                Bytes flipped = model;
                flipped[bit / 8] ^= uint8_t(1u << (bit % 8));
                ASSERT_TRUE(RunsCleanly(flipped)) << "bit " << bit << " flipped";
            }
        }
        // A few bytes at random places, often set to values that make huge counts.
        for (int round = 0; round < 800; ++round) {
            Bytes damaged = model;
            const int bytes = 1 + int(random() % 4);
            for (int i = 0; i < bytes; ++i) {
                const uint32_t value = random();
                damaged[random() % damaged.size()] = value % 3 == 0   ? 0xFF
                                                     : value % 3 == 1 ? 0x00
                                                                      : uint8_t(value >> 8);
            }
            if (!sampled()) continue;
            ASSERT_TRUE(RunsCleanly(damaged)) << "random round " << round;
        }
    }
}

}  // namespace
