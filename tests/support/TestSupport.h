#pragma once
// Shared helpers of the suites: scratch directories, failure kinds and texts, capturing the
// process-wide log, loading a model tree, and running the tool as a child process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
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
    std::string Write(const ModelBuilder& model, const std::string& version = "1.1",
                      const std::string& name = "model.zol") const {
        return Write(model.Build(version), name);
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

inline std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// ---- The process-wide log ----

struct LogSink {
    std::string text;
    int publishes = 0, flushes = 0;
};

class CapturePublisher : public Mrl::Log::Publisher {
public:
    explicit CapturePublisher(std::shared_ptr<LogSink> sink) : sink_(std::move(sink)) {}
    void Publish(const char* text) override {
        sink_->text += text;
        ++sink_->publishes;
    }
    void Flush() override { ++sink_->flushes; }

private:
    std::shared_ptr<LogSink> sink_;
};

// Adds a publisher under a fresh name; it receives for the life of the process, at level 2000
// or, with progress set, at 1000 too.
inline std::shared_ptr<LogSink> CaptureLog(bool progress, std::string* nameOut = nullptr) {
    static int serial = 0;
    const std::string name = "capture " + std::to_string(++serial);
    auto sink = std::make_shared<LogSink>();
    auto& manager = Mrl::Log::LogManager::Instance();
    manager.AddPublisher(name, new CapturePublisher(sink));
    if (progress) {
        manager.AddLevelFilter("capture progress", 1000);
        manager.SetPublisherFilter(name, "capture progress");
    }
    if (nameOut != nullptr) *nameOut = name;
    return sink;
}

// ---- Model trees ----

inline void LoadTree(MrlZol::Tree& tree, const std::string& path, int32_t openMode = 1) {
    int32_t loadKind = 0;
    tree.Load(path, openMode, loadKind);
}

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

template <class T>
T* PayloadOf(MrlZol::Tree& tree, uint32_t id) {
    return dynamic_cast<T*>(tree.GetReqNode(id).data);
}

inline TreeRecord Record(uint32_t id, uint32_t parent, std::string name, std::string classWord,
                         std::string objectVersion, uint64_t lightOffset = 0) {
    return {id,
            parent,
            0,
            0,
            0,
            0,
            std::move(name),
            std::move(classWord),
            std::move(objectVersion),
            lightOffset};
}

// ---- The tool as a child process ----

struct RunResult {
    int status = -1;
    std::string out, err;
};

// Runs the tool binary in `cwd` with the "NAME=value" settings added to the environment.
// args[0] is what the child receives as its program name.
inline RunResult RunTool(const std::vector<std::string>& args, const std::string& cwd,
                         const std::vector<std::string>& environment) {
    const std::string stem = testing::TempDir() + "/run" + std::to_string(getpid());
    const std::string outPath = stem + ".out", errPath = stem + ".err";
    pid_t child = fork();
    if (child == 0) {
        int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out < 0 || err < 0 || chdir(cwd.c_str()) != 0) _exit(126);
        dup2(out, 1);
        dup2(err, 2);
        for (const std::string& e : environment) putenv(const_cast<char*>(e.c_str()));
        std::vector<char*> argv;
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(ZOLINFO_EXE, argv.data());
        _exit(127);
    }
    RunResult result;
    int status = 0;
    if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
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
