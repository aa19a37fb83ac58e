#pragma once
// Shared helpers of the suites: scratch directories, failure kinds and texts, capturing the
// process-wide log, loading a model tree, and running the tool as a child process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Mrl/Log/LogManager.h"
#include "Mrl/Util/Exception.h"
#include "Mrl/Zol/Tree.h"
#include "ZolFileBuilder.h"

namespace ZolTest {

using Fail = std::pair<uint32_t, std::string>;

// The kind and description of the Mrl::Util::Exception that f throws.
template <class F>
Fail Failure(F&& f) {
    try {
        f();
    } catch (const Mrl::Util::Exception& e) {
        return {e.GetKind(), e.GetDescription()};
    }
    return {~0u, "nothing thrown"};
}

// A fresh directory, removed with everything in it.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::path(testing::TempDir()) / "zolXXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed";
        path = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string operator/(const std::string& name) const { return (path / name).string(); }
    std::string Write(const Bytes& bytes, const std::string& name = "model.zol") const {
        WriteFile(*this / name, bytes);
        return *this / name;
    }
    std::string Write(const ZolFileBuilder& file, const std::string& name = "model.zol") const {
        return Write(file.Build(), name);
    }
    std::filesystem::path path;
};

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// ---- The process-wide log ----

class CapturePublisher : public Mrl::Log::Publisher {
public:
    explicit CapturePublisher(std::shared_ptr<std::string> sink) : sink_(std::move(sink)) {}
    void Publish(const char* text) override { *sink_ += text; }
    void Flush() override {}

private:
    std::shared_ptr<std::string> sink_;
};

// Adds a publisher under a fresh name; it receives at level 2000 for the life of the process.
inline std::shared_ptr<std::string> CaptureLog(std::string* nameOut = nullptr) {
    static int serial = 0;
    const std::string name = "capture " + std::to_string(++serial);
    auto sink = std::make_shared<std::string>();
    Mrl::Log::LogManager::Instance().AddPublisher(name, new CapturePublisher(sink));
    if (nameOut != nullptr) *nameOut = name;
    return sink;
}

// ---- Model trees ----

// Bytes of a named block that no read has reached yet; a block never loaded counts whole.
inline uint64_t Unread(MrlZol::Tree& tree, const std::string& name) {
    MrlHbf::Index& index = tree.file.GetIndex();
    auto found = index.GetNames().find(name);
    if (found == index.GetNames().end()) return 0;
    uint64_t total = 0;
    for (uint64_t number : found->second.entryNumbers) {
        const MrlHbf::IndexEntry& entry = index.GetEntries()[number];
        total += entry.loaded ? index.GetBlock(number).Remaining() : entry.storedSize;
    }
    return total;
}

// ---- The tool as a child process ----

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

struct RunResult {
    int status = -1;  // exit status, or -1 when the child died by a signal
    int signal = 0;
    long peakKiB = -1;  // traced runs: high-water mark of the tool's resident memory
    std::string out, err;
};

inline long HighWaterKiB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
    }
    return -1;
}

// Runs the tool binary in `cwd` with the "NAME=value" settings added to the environment;
// args[0] is what the child receives as its program name. A traced run gets 1 GiB of address
// space (none under the address sanitizer, which reserves terabytes and whose leak check can't
// run traced) and reports the tool's own peak memory: a forked child's rusage also counts what
// the test had resident, so its VmHWM is read at its exit.
inline RunResult RunTool(const std::vector<std::string>& args, const std::string& cwd,
                         std::vector<std::string> environment, bool traced = false) {
    const std::string stem = testing::TempDir() + "/run" + std::to_string(getpid());
    const std::string outPath = stem + ".out", errPath = stem + ".err";
    if (traced && kAddressSanitizer) {
        const char* options = getenv("ASAN_OPTIONS");
        environment.push_back(std::string("ASAN_OPTIONS=") + (options ? options : "") +
                              ":detect_leaks=0");
    }
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out < 0 || err < 0 || chdir(cwd.c_str()) != 0) _exit(126);
        dup2(out, 1);
        dup2(err, 2);
        for (std::string& e : environment) putenv(e.data());
        if (traced && !kAddressSanitizer) {
            const rlimit limit{1ul << 30, 1ul << 30};
            setrlimit(RLIMIT_AS, &limit);
        }
        if (traced) ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execv(ZOLINFO_EXE, argv.data());
        _exit(127);
    }
    RunResult result;
    for (bool optionsSet = false; child > 0;) {
        int status = 0;
        rusage usage{};
        if (wait4(child, &status, 0, &usage) != child) break;
        if (WIFEXITED(status) || WIFSIGNALED(status)) {
            result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
            if (traced && result.peakKiB < 0) result.peakKiB = usage.ru_maxrss;  // upper bound
            break;
        }
        int deliver = 0;
        if (!optionsSet) {  // the stop after the exec
            ptrace(PTRACE_SETOPTIONS, child, nullptr,
                   PTRACE_O_TRACEEXIT | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL);
            optionsSet = true;
        } else if (status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXIT << 8))) {
            result.peakKiB = HighWaterKiB(child);
        } else if (status >> 16 == 0) {
            deliver = WSTOPSIG(status);
        }
        ptrace(PTRACE_CONT, child, nullptr, deliver);
    }
    result.out = ReadText(outPath);
    result.err = ReadText(errPath);
    std::filesystem::remove(outPath);
    std::filesystem::remove(errPath);
    return result;
}

// Every run of digits (or, without digitsOnly, of anything) between `before` and the next
// `after` becomes `mask`.
inline std::string Mask(std::string text, const std::string& before, const std::string& after,
                        const std::string& mask = "N", bool digitsOnly = true) {
    for (size_t at = text.find(before); at != std::string::npos; at = text.find(before, at + 1)) {
        const size_t from = at + before.size(), end = text.find(after, from);
        if (end == std::string::npos || end == from) continue;
        if (!digitsOnly || text.find_first_not_of("0123456789", from) == end) {
            text.replace(from, end - from, mask);
        }
    }
    return text;
}
// Line numbers and the time of an exception text become "N" and "T".
inline std::string NormaliseException(const std::string& text) {
    return Mask(Mask(text, "       Line : ", " \n"), "       Time : ", "\n", "T", false);
}
// Trace log lines "Name : 123 @ text" become "Name : N @ text".
inline std::string NormaliseLog(const std::string& text) {
    return Mask(text, " : ", " @ ");
}

}  // namespace ZolTest
