// Hostile files: counts and sizes that ask for gigabytes, and trees that are very deep or very
// wide. The built tool runs on each as a child process, in every mode; it must end with
// status 0 or 2, stay small in memory, and leave the file as it was.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "TestSupport.h"

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

// Runs the three modes on the file (or the dump alone, which does all that the others do and
// more); each must end with status 0 or 2 (0 when the file is valid), within the memory limit,
// and leave the file's bytes alone.
void Check(const std::string& what, const Bytes& bytes, long peakLimitKiB = kPeakLimitKiB,
           bool valid = false, bool dumpOnly = false) {
    SCOPED_TRACE(what);
    TempDir dir;
    const std::string path = dir.Write(bytes, "hostile.zol");
    for (const char* option : {"--extract-data", "", "--ekm-meta-data"}) {
        std::vector<std::string> args = {ZOLINFO_EXE, path};
        if (*option != '\0') args.insert(args.begin() + 1, option);
        const ChildRun run = RunTraced(args, dir.path.string());
        const std::string context = std::string("mode \"") + option + "\", signal " +
                                    std::to_string(run.signal) + ", peak " +
                                    std::to_string(run.peakKiB) + " KiB, output:\n" +
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

}  // namespace
