// Hostile files: counts and sizes that ask for gigabytes, and trees that are very deep or very
// wide. The built tool runs on each as a child process, in every mode; it must end with
// status 0 or 2, stay small in memory, finish in reasonable time, and leave the file as it was.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ZolFileBuilder.h"

using namespace ZolTest;

namespace {

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer reserves terabytes of address space, so no address limit can be set, and its
// leak check can't run in a traced process.
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

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
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
    }
    return -1;
}

ChildRun RunTool(const std::vector<std::string>& args, const std::string& directory) {
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
    bool optionsSet = false;
    for (;;) {
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

Bytes ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class ToolHostile : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        pattern += "/tool-hostile-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        directory = pattern;
        path = directory + "/hostile.zol";
    }
    void TearDown() override {
        for (const char* name : {"/hostile.zol", "/output.txt", "/ekm-meta-data.xml"}) {
            std::remove((directory + name).c_str());
        }
        rmdir(directory.c_str());
    }

    // Runs the three modes on the file (or the dump alone, which does all that the others
    // do and more); each must end with status 0 or 2 (0 when the file is valid), within the
    // memory limit when one is given, and leave the file's bytes alone.
    void Check(const std::string& what, const Bytes& bytes, bool valid, long peakLimitKiB,
               bool dumpOnly = false) {
        SCOPED_TRACE(what);
        WriteFile(path, bytes);
        std::vector<const char*> options = {"--extract-data"};
        if (!dumpOnly) options = {"", "--extract-data", "--ekm-meta-data"};
        for (const char* option : options) {
            std::vector<std::string> args = {ZOLINFO_EXE, path};
            if (*option != '\0') args.insert(args.begin() + 1, option);
            const auto start = std::chrono::steady_clock::now();
            const ChildRun run = RunTool(args, directory);
            const double seconds =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            std::ifstream output(directory + "/output.txt");
            std::string text((std::istreambuf_iterator<char>(output)), {});
            const std::string context =
                std::string("mode option \"") + option + "\", signal " +
                std::to_string(run.signal) + ", peak " + std::to_string(run.peakKiB) + " KiB, " +
                std::to_string(seconds) + " s, output:\n" + text.substr(0, 1500);
            if (valid) {
                EXPECT_EQ(run.status, 0) << context;
            } else {
                EXPECT_TRUE(run.status == 0 || run.status == 2) << context;
            }
            if (peakLimitKiB > 0) {
                EXPECT_LT(run.peakKiB, peakLimitKiB) << context;
            }
            EXPECT_LT(seconds, 120.0) << context;
            EXPECT_TRUE(ReadBytes(path) == bytes) << context;
        }
    }

    std::string directory, path;
};

// A small valid model whose blocks the cases below replace or patch.
ModelBuilder BaseModel(uint32_t byteSize = 0) {
    ModelBuilder model;
    model.globalInformation.Raw(GlobalInformation({{"0.7", {"App", "1", "0.7", "", "", "", ""}}}));
    GroupData root;
    root.attributes = {Attr::Text("Model File", "/m/a.odb")};
    model.Group({1, 0, 0, 0, 2, 2, "m", "Group", "0.4"}, root);
    model.Group({2, 1, 0, 0, 3, 3, "Geometry", "Group", "0.4"});
    model.Shape({3, 2, 0, 0, 4, 4, "Part", "Shape", "0.2"});
    GeomItem ids = model.HeavyItem("Node Ids", 12, FloatBits({1, 2}), 1);
    GeomItem values = model.HeavyItem(
        "Stress\x1E"
        "Step 1",
        12, FloatBits({3, 4}), 1);
    if (byteSize != 0) values.byteSize = byteSize;
    model.Geometry({4, 3, 0, 0, 0, 0, "Part", "Geometry", "0.7"}, {ids, values});
    return model;
}

Bytes WithBlock(const ModelBuilder& model, const std::string& name, const Bytes& contents) {
    ModelBuilder copy = model;
    if (name == "Global Information") copy.globalInformation = BlockWriter().Raw(contents);
    if (name == "Light Data") copy.lightData = BlockWriter().Raw(contents);
    if (name == "Attributes") copy.attributes = BlockWriter().Raw(contents);
    return copy.Build();
}

void PutU32(Bytes& bytes, size_t at, uint32_t value) {
    std::memcpy(bytes.data() + at, &value, 4);
}

TEST_F(ToolHostile, AbsurdCountsAndSizesStaySmall) {
    const ModelBuilder model = BaseModel();
    const Bytes valid = model.Build();
    const uint32_t kHuge = 0xFFFFFFFF;

    {
        ZolFileBuilder file;
        model.EmitTo(file);
        Check("index entry count 0xFFFFFFFF", file.IndexCountOverride(kHuge).Build(), false,
              kPeakLimitKiB);
    }
    {
        Bytes bytes = valid;
        PutU32(bytes, 21, kHuge);  // name length of the first entry
        Check("name length 0xFFFFFFFF", bytes, false, kPeakLimitKiB);
    }
    for (uint32_t size : {uint32_t(valid.size()), kHuge}) {
        ZolFileBuilder file;
        model.EmitTo(file);
        Check("index size " + std::to_string(size) + " past the end",
              file.IndexSizeOverride(size).Build(), false, kPeakLimitKiB);
    }
    {
        ZolFileBuilder file;
        file.Raw({0, "Zol Tree", model.TreeBlock(), 0, 0, kHuge});
        Check("stored size 4 GiB", file.Build(), false, kPeakLimitKiB);
    }
    {
        // Blocks of 100 bytes or less that claim 4 GiB unpacked, one of them listed in a
        // compressed continuation index.
        ZolFileBuilder file;
        file.Compressed("Zol Tree", model.TreeBlock(), kHuge);
        file.Compressed("Light Data", model.lightData.Data(), kHuge);
        file.StartContinuation(true).Compressed("Attributes", model.attributes.Data(), kHuge);
        Check("compressed blocks claiming 4 GiB", file.Build(), false, kPeakLimitKiB);
    }
    {
        ZolFileBuilder file;
        file.Compressed("Zol Tree", Bytes(32 << 20, 0), kHuge);  // 32 MiB of zeros in 32 KiB
        Check("compressed block of 32 MiB of zeros", file.Build(), false, 160 * 1024);
    }
    {
        // Every list of an attribute map claims 0xFFFFFFFF entries in turn.
        for (size_t list = 0; list < 6; ++list) {
            BlockWriter w;
            for (size_t i = 0; i < 6; ++i) w.U32(i == list ? kHuge : 0);
            Check("attribute list " + std::to_string(list) + " count 0xFFFFFFFF",
                  WithBlock(model, "Attributes", w.Take()), false, kPeakLimitKiB);
        }
    }
    {
        BlockWriter w;
        w.U32(kHuge).Raw(VersionedRecord("0.7", TranslationFieldBytes({"App"})));
        Check("translation count 0xFFFFFFFF", WithBlock(model, "Global Information", w.Take()),
              false, kPeakLimitKiB);
        BlockWriter strings;
        strings.U32(1).U32(100).Str("0.7").U32(kHuge);
        Check("translation text length 0xFFFFFFFF",
              WithBlock(model, "Global Information", strings.Take()), false, kPeakLimitKiB);
    }
    {
        // Item count 0xFFFFFFFF in the Geometry, with one real item behind it.
        Bytes light = model.lightData.Data();
        ModelBuilder probe;  // the two groups' data stands ahead of the geometry record
        probe.Group({1, 0, 0, 0, 2, 2, "m", "Group", "0.4"});
        probe.Group({2, 1, 0, 0, 3, 3, "Geometry", "Group", "0.4"});
        PutU32(light, probe.lightData.Size(), kHuge);
        Check("geometry item count 0xFFFFFFFF", WithBlock(model, "Light Data", light), false,
              kPeakLimitKiB);
    }
    {
        // The dump reads this array: 4 GiB that the file doesn't have.
        Check("array byte size 0xFFFFFFFC", BaseModel(0xFFFFFFFC).Build(), false, kPeakLimitKiB);
    }
    {
        Bytes block = model.TreeBlock();
        PutU32(block, 0, 0x7FFFFFFF);  // record count
        ZolFileBuilder file;
        file.Plain("Zol Tree", block);
        Check("tree record count 0x7FFFFFFF", file.Build(), false, kPeakLimitKiB);
    }
}

// Group records "0.1" (they read nothing beyond the tree) with ids from `first`: a chain, each
// the only child of the one before, or siblings under `parent`. One record is made and its
// links patched, which keeps a million of them quick to write.
void AddGroups(BlockWriter& tree, uint32_t first, uint32_t count, bool chain, uint32_t parent) {
    Bytes record = TreeRecordBytes({0, 0, 0, 0, 0, 0, "g", "Group", "0.1"}, true);
    for (uint32_t id = first; id < first + count; ++id) {
        const uint32_t links[6] = {id,
                                   chain ? id - 1 : parent,
                                   chain || id == first ? 0 : id - 1,
                                   chain ? 0 : id + 1,
                                   chain ? id + 1 : 0,
                                   chain ? id + 1 : 0};
        std::memcpy(record.data(), links, sizeof links);
        tree.Raw(record);
    }
}

// Below the generated groups: a group "Geometry" with one shape and its geometry, so that the
// report's pass has a part to find at the far end.
void AddPart(BlockWriter& tree, uint32_t id, uint32_t parent) {
    tree.Raw(
        TreeRecordBytes({id, parent, id - 1, 0, id + 1, id + 1, "Geometry", "Group", "0.1"}, true));
    tree.Raw(TreeRecordBytes({id + 1, id, 0, 0, id + 2, id + 2, "Deep", "Shape", "0.1"}, true));
    tree.Raw(TreeRecordBytes({id + 2, id + 1, 0, 0, 0, 0, "Deep", "Geometry", "0.7"}, true));
}

TEST_F(ToolHostile, DeepAndWideTreesLoad) {
    {
        constexpr uint32_t kDepth = 1000000;
        BlockWriter tree;
        tree.I32(int32_t(kDepth + 3));
        tree.Raw(TreeRecordBytes({1, 0, 0, 0, 2, 2, "root", "Group", "0.1"}, true));
        AddGroups(tree, 2, kDepth - 1, true, 0);
        AddPart(tree, kDepth + 1, kDepth);
        ZolFileBuilder file;
        file.Plain("Zol Tree", tree.Take());
        Check("chain of 1,000,000 nested groups", file.Build(), true, 0, true);
    }
    {
        constexpr uint32_t kWidth = 200000;
        BlockWriter tree;
        tree.I32(int32_t(kWidth + 4));
        tree.Raw(TreeRecordBytes({1, 0, 0, 0, 2, kWidth + 2, "root", "Group", "0.1"}, true));
        AddGroups(tree, 2, kWidth, false, 1);
        AddPart(tree, kWidth + 2, 1);
        ZolFileBuilder file;
        file.Plain("Zol Tree", tree.Take());
        Check("200,000 siblings", file.Build(), true, 0, true);
    }
}

}  // namespace
