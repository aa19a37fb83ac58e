// Damaged and hostile files. Every run, in every mode, must end with status 0 or 2 (0 for a
// valid file) and print nothing on a failed load. The mutation sweep (truncations, bit flips in
// the header and index blocks, random overwrites of valid models) runs in-process; files with
// absurd counts and sizes and very deep or wide trees run through the built tool, which must
// also stay small in memory and leave the file as it was.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Run.h"
#include "TestSupport.h"

using namespace ZolTest;

namespace {

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer reserves terabytes of address space, so no address limit can be set, and its
// leak check can't run in a traced process. Every block buffer has a 10 MiB floor that it maps
// and poisons afresh, so that build tries a sample of the mutations.
constexpr bool kAddressSanitizer = true;
constexpr size_t kSample = 130;
#else
constexpr bool kAddressSanitizer = false;
constexpr size_t kSample = 1;
#endif

// The modes of every run; the dump comes first, as it does all that the others do and more.
const std::vector<std::string> kModes = {"--extract-data", "", "--ekm-meta-data"};

std::vector<std::string> Arguments(const std::string& program, const std::string& mode,
                                   const std::string& path) {
    if (mode.empty()) return {program, path};
    return {program, mode, path};
}

constexpr long kPeakLimitKiB = 64 * 1024;

struct ChildRun {
    int status = -1;  // exit status, or -1 when the child died by a signal
    int signal = 0;
    long peakKiB = -1;  // high-water mark of resident memory
};

// The peak resident memory of the tool alone: rusage of a forked child also counts what the
// test process had resident when it forked, so the child is traced and its own VmHWM read at
// its exit.
long HighWaterKiB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
    }
    return -1;
}

ChildRun RunTraced(const std::vector<std::string>& args, const std::string& directory) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    // Everything the child needs is made before the fork.
    std::vector<std::string> environment = {"MORLANE_TEMP_PATH=" + directory + "/no-such-dir"};
    if (kAddressSanitizer) {
        const char* options = getenv("ASAN_OPTIONS");
        environment.push_back(std::string("ASAN_OPTIONS=") + (options ? options : "") +
                              ":detect_leaks=0");
    }
    std::vector<char*> envp;
    for (std::string& e : environment) envp.push_back(e.data());
    envp.push_back(nullptr);
    const std::string output = directory + "/output.txt";

    const pid_t pid = fork();
    if (pid == 0) {
        const int sink = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (sink < 0 || chdir(directory.c_str()) != 0) _exit(126);
        dup2(sink, 1);
        dup2(sink, 2);
        if (!kAddressSanitizer) {
            const rlimit limit{1ul << 30, 1ul << 30};
            setrlimit(RLIMIT_AS, &limit);
        }
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execve(ZOLINFO_EXE, argv.data(), envp.data());
        _exit(127);
    }
    ChildRun run;
    if (pid < 0) return run;
    for (bool optionsSet = false;;) {
        int status = 0;
        rusage usage{};
        if (wait4(pid, &status, 0, &usage) != pid) return run;
        if (WIFEXITED(status) || WIFSIGNALED(status)) {
            run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            run.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
            if (run.peakKiB < 0) run.peakKiB = usage.ru_maxrss;  // not traced: an upper bound
            return run;
        }
        int deliver = 0;
        if (!optionsSet) {
            // The stop after the first exec.
            ptrace(PTRACE_SETOPTIONS, pid, nullptr,
                   PTRACE_O_TRACEEXIT | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL);
            optionsSet = true;
        } else if (status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXIT << 8))) {
            run.peakKiB = HighWaterKiB(pid);
        } else if (status >> 16 == 0) {
            deliver = WSTOPSIG(status);
        }
        ptrace(PTRACE_CONT, pid, nullptr, deliver);
    }
}

// Runs the modes through the built tool; each must end with status 0 or 2 (0 when the file is
// valid), within the memory limit, and leave the file's bytes alone.
void Check(const std::string& what, const Bytes& bytes, long peakLimitKiB = kPeakLimitKiB,
           bool valid = false, bool dumpOnly = false) {
    SCOPED_TRACE(what);
    TempDir dir;
    const std::string path = dir.Write(bytes, "hostile.zol");
    for (const std::string& mode : kModes) {
        const ChildRun run = RunTraced(Arguments(ZOLINFO_EXE, mode, path), dir.path.string());
        const std::string context = "mode \"" + mode + "\", signal " + std::to_string(run.signal) +
                                    ", peak " + std::to_string(run.peakKiB) + " KiB, output:\n" +
                                    ReadText(dir / "output.txt").substr(0, 1500);
        EXPECT_TRUE(run.status == 0 || (!valid && run.status == 2)) << context;
        EXPECT_LT(run.peakKiB, peakLimitKiB) << context;
        EXPECT_TRUE(ReadText(path) == std::string(bytes.begin(), bytes.end())) << context;
        if (dumpOnly) break;
    }
}

void PutU32(Bytes& bytes, size_t at, uint32_t value) {
    std::memcpy(bytes.data() + at, &value, 4);
}

// ---- Valid models in several shapes, for the mutation sweep ----

struct Shape {
    std::string fileVersion = "1.1";
    std::string geometryVersion = "0.7";
    bool compressed = false;
    bool continuation = false;
    bool continuationCompressed = false;
    bool heavyPieces = false;   // one physical "Heavy Data" block per payload
    bool lightOffsets = false;  // tree records point into "Light Data"
};

Bytes Model(const Shape& s) {
    const bool planar = s.geometryVersion == "0.6" || s.geometryVersion == "0.7";
    ModelBuilder model;
    model.wideOffsets = s.fileVersion != "0.6";
    model.globalInformation.Raw(GlobalInformation(
        {{"0.7", {"Translator", "3.0", "0.7", "2014-02-11", "", "designer", "import"}}}, 3));
    auto at = [&](TreeRecord r) {
        if (s.lightOffsets) r.lightOffset = model.lightData.Size();
        return r;
    };
    GroupData root;
    root.attributes = {Attr::Text("Model File", "/m/wheel.odb"),
                       Attr::Unsigned("Number of Nodes in the Model", 5)};
    model.Group(at({1, 0, 0, 0, 2, 2, "wheel", "Group", "0.4"}), root);
    model.Group(at({2, 1, 0, 0, 3, 5, "Geometry", "Group", "0.4"}));
    model.Shape(at({3, 2, 0, 5, 4, 4, "Part", "Shape", "0.2"}), "0.3");
    std::vector<size_t> starts;
    auto heavy = [&](std::string name, uint32_t kind, std::vector<float> values, uint8_t k,
                     std::vector<Attr> attributes = {}) {
        GeomItem item = model.HeavyItem(std::move(name), kind, FloatBits(values), k, planar);
        item.attributes = std::move(attributes);
        if (item.position != 0) starts.push_back(item.position);
        return item;
    };
    // Components 3 over 16 and 7 elements: byte planes with tails.
    model.Geometry(at({4, 3, 0, 0, 0, 0, "Part", "Geometry", s.geometryVersion}),
                   {heavy("Coordinates", 0, {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 9}, 3),
                    heavy("Node Ids", 12, {11, 12, 13, 14, 15}, 1), heavy("Polylength", 5, {4}, 1),
                    heavy("Connectivity", 4, {1, 2, 3, 4}, 1),
                    heavy("Stress\x1EStep 1", 12, {1.5f, 2.5f, 3.5f, 4.5f, 5.5f}, 1,
                          {Attr::Float("Time", 0.5f)}),
                    heavy("Displacement\x1EStep 1", 13, {1, 2, 3, 4, 5, 6, 7}, 3,
                          {Attr::Text("Category", "Vibration")})});
    model.Shape(at({5, 2, 3, 0, 6, 6, "Cut", "Shape", "0.2"}), "0.2");
    std::vector<GeomItem> cut;
    if (planar) {
        cut = {LinkItem("Node Ids", 12, 4, 1), LinkItem("Stress\x1EStep 1", 12, 4, 4)};
    }
    model.Geometry(at({6, 5, 0, 0, 0, 0, "Cut", "Geometry", s.geometryVersion}), cut);

    ZolFileBuilder file;
    file.Version(s.fileVersion);
    AddPieces(file, "Zol Tree", model.TreeBlock(), s.compressed, 0);
    AddPieces(file, "Global Information", model.globalInformation.Data(), s.compressed, 0);
    if (s.continuation) file.StartContinuation(s.continuationCompressed, "2");
    AddPieces(file, "Light Data", model.lightData.Data(), s.compressed, 0);
    AddPiecesCutAt(file, "Heavy Data", model.heavyData.Data(), s.compressed,
                   s.heavyPieces ? starts : std::vector<size_t>{});
    AddPieces(file, "Attributes", model.attributes.Data(), s.compressed, 0);
    AddPieces(file, "Resources", model.resources.Data(), s.compressed, 0);
    return file.Build();
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

// A small valid model whose blocks the cases below replace or patch; `geometryAt` is where
// the item count of its Geometry stands in "Light Data".
ModelBuilder BaseModel(uint32_t byteSize = 0, size_t* geometryAt = nullptr) {
    ModelBuilder model;
    model.globalInformation.Raw(GlobalInformation({{"0.7", {"App", "1", "0.7", "", "", "", ""}}}));
    GroupData root;
    root.attributes = {Attr::Text("Model File", "/m/a.odb")};
    model.Group({1, 0, 0, 0, 2, 2, "m", "Group", "0.4"}, root);
    model.Group({2, 1, 0, 0, 3, 3, "Geometry", "Group", "0.4"});
    model.Shape({3, 2, 0, 0, 4, 4, "Part", "Shape", "0.2"});
    if (geometryAt != nullptr) *geometryAt = model.lightData.Size();
    GeomItem ids = model.HeavyItem("Node Ids", 12, FloatBits({1, 2}), 1);
    GeomItem values = model.HeavyItem("Stress\x1EStep 1", 12, FloatBits({3, 4}), 1);
    if (byteSize != 0) values.byteSize = byteSize;
    model.Geometry({4, 3, 0, 0, 0, 0, "Part", "Geometry", "0.7"}, {ids, values});
    return model;
}

TEST(ToolHostile, AbsurdCountsAndSizesStaySmall) {
    size_t geometryAt = 0;
    const ModelBuilder model = BaseModel(0, &geometryAt);
    const uint32_t kHuge = 0xFFFFFFFF;
    auto with = [&](BlockWriter ModelBuilder::*block, const Bytes& contents) {
        ModelBuilder copy = model;
        copy.*block = BlockWriter().Raw(contents);
        return copy.Build();
    };
    auto file = [&] {
        ZolFileBuilder f;
        model.EmitTo(f);
        return f;
    };

    std::vector<std::pair<std::string, Bytes>> cases = {
        // The dump reads this array: 4 GiB that the file doesn't have.
        {"array byte size 0xFFFFFFFC", BaseModel(0xFFFFFFFC).Build()},
        {"index entry count 0xFFFFFFFF", file().IndexCountOverride(kHuge).Build()},
        {"index size past the end",
         file().IndexSizeOverride(uint32_t(model.Build().size())).Build()},
        {"index size 0xFFFFFFFF", file().IndexSizeOverride(kHuge).Build()},
        {"stored size 4 GiB",
         ZolFileBuilder().Raw({0, "Zol Tree", model.TreeBlock(), 0, 0, kHuge}).Build()},
        // Blocks of 100 bytes or less that claim 4 GiB unpacked, one of them listed in a
        // compressed continuation index.
        {"compressed blocks claiming 4 GiB",
         ZolFileBuilder()
             .Compressed("Zol Tree", model.TreeBlock(), kHuge)
             .Compressed("Light Data", model.lightData.Data(), kHuge)
             .StartContinuation(true)
             .Compressed("Attributes", model.attributes.Data(), kHuge)
             .Build()},
        {"translation count 0xFFFFFFFF",
         with(&ModelBuilder::globalInformation,
              BlockWriter()
                  .U32(kHuge)
                  .Raw(VersionedRecord("0.7", TranslationFieldBytes({"App"})))
                  .Take())},
        {"translation text length 0xFFFFFFFF",
         with(&ModelBuilder::globalInformation,
              BlockWriter().U32(1).U32(100).Str("0.7").U32(kHuge).Take())},
    };
    Bytes bytes = model.Build();
    PutU32(bytes, 21, kHuge);  // name length of the first entry
    cases.push_back({"name length 0xFFFFFFFF", bytes});
    bytes = model.lightData.Data();
    PutU32(bytes, geometryAt, kHuge);
    cases.push_back({"geometry item count 0xFFFFFFFF", with(&ModelBuilder::lightData, bytes)});
    bytes = model.TreeBlock();
    PutU32(bytes, 0, 0x7FFFFFFF);
    cases.push_back(
        {"tree record count 0x7FFFFFFF", ZolFileBuilder().Plain("Zol Tree", bytes).Build()});
    // Every list of an attribute map claims 0xFFFFFFFF entries in turn.
    for (size_t list = 0; list < 6; ++list) {
        BlockWriter w;
        for (size_t i = 0; i < 6; ++i) w.U32(i == list ? kHuge : 0);
        cases.push_back({"attribute list " + std::to_string(list) + " count 0xFFFFFFFF",
                         with(&ModelBuilder::attributes, w.Take())});
    }
    for (const auto& [what, hostile] : cases) Check(what, hostile);
    // 32 MiB of zeros packed in 32 KiB must not be held twice.
    Check("compressed block of 32 MiB of zeros",
          ZolFileBuilder().Compressed("Zol Tree", Bytes(32 << 20, 0), kHuge).Build(), 160 * 1024);
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
    const std::vector<Shape> shapes = {
        {.continuation = true, .heavyPieces = true},
        {.compressed = true, .continuation = true, .continuationCompressed = true},
        {.fileVersion = "0.6", .geometryVersion = "0.6", .heavyPieces = true, .lightOffsets = true},
        {.fileVersion = "0.6", .geometryVersion = "0.3", .compressed = true},
    };
    std::mt19937 random(20240601);
    size_t mutation = 0;
    // Takes every kSample-th mutation, so that a sample still covers every kind.
    auto sampled = [&mutation] { return mutation++ % kSample == 0; };
    for (size_t m = 0; m < shapes.size(); ++m) {
        const Bytes model = Model(shapes[m]);
        SCOPED_TRACE("model " + std::to_string(m) + ", " + std::to_string(model.size()) + " bytes");
        ASSERT_TRUE(RunsCleanly(model));

        for (size_t length = 0; length < model.size(); length += length < 4096 ? 1 : 97) {
            if (!sampled()) continue;
            ASSERT_TRUE(RunsCleanly(Bytes(model.begin(), model.begin() + long(length))))
                << "truncated to " << length;
        }
        const auto ranges = IndexRanges(model);
        ASSERT_EQ(ranges.size(), shapes[m].continuation ? 2u : 1u);
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
