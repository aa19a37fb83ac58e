// End-to-end cases kept as data: each directory under cases/ holds a `case` file (the models to
// write, the arguments, the environment) and the expected status, standard output and error,
// trace log and output files of one run of the built tool. ZOL_GOLDEN_UPDATE=1 rewrites the
// expected files instead of comparing, so that a change of output reads as a diff.
//
// `case` lines: `copy <path in the tree> <file>` (models are kept under tests/data/golden),
// `size <file> <bytes>` (pads a copied file with zeros), `text <file> <content>`,
// `args <arguments...>`, `argv0 <program name>`, `env NAME=value` ($LOG and $WORK stand for the
// run's directories). Lines starting with # are comments.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>

#include "CaseFiles.h"

namespace {

using namespace ZolTest;
namespace fs = std::filesystem;

const fs::path kCases = fs::path(ZOL_SOURCE_DIR) / "tests/golden/cases";

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
    return text;
}

class Golden : public testing::TestWithParam<std::string> {
protected:
    // Reads the case, writes its inputs and runs the tool once.
    void Run() {
        fs::create_directory(work);
        fs::create_directory(log);
        std::vector<std::string> args = {ZOLINFO_EXE};
        std::vector<std::string> environment = {"MORLANE_TEMP_PATH=" + log};
        std::istringstream lines(ReadText((kCases / GetParam() / "case").string()));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string verb, first, second;
            words >> verb >> first;
            std::getline(words >> std::ws, second);
            if (verb == "copy") {
                const std::string bytes = ReadText(std::string(ZOL_SOURCE_DIR) + "/" + first);
                inputs[second] = Bytes(bytes.begin(), bytes.end());
            } else if (verb == "size") {
                inputs[first].resize(std::stoul(second));
            } else if (verb == "text") {
                WriteFile(work + "/" + first, Bytes(second.begin(), second.end()));
            } else if (verb == "args") {
                for (std::istringstream rest(line.substr(4)); rest >> first;) args.push_back(first);
            } else if (verb == "argv0") {
                args[0] = line.substr(6);
            } else if (verb == "env") {
                environment.push_back(Replace(Replace(first, "$LOG", log), "$WORK", work));
            } else {
                ASSERT_TRUE(verb.empty() || verb[0] == '#') << "unknown line: " << line;
            }
        }
        for (const auto& [name, bytes] : inputs) WriteFile(work + "/" + name, bytes);
        result = RunTool(args, work, environment);
    }

    // What varies from run to run: the directories, the program, times, lines, memory.
    std::string Normalise(std::string text) const {
        text = Replace(Replace(Replace(text, work, "$WORK"), log, "$LOG"), ZOLINFO_EXE, "$EXE");
        return Mask(NormaliseLog(NormaliseException(text)), "Peak Memory Usage: ", " Mb");
    }

    // Everything the run left: expected-file name to normalised text.
    std::map<std::string, std::string> Outcome() const {
        std::map<std::string, std::string> outcome = {{"status", std::to_string(result.status)},
                                                      {"stdout", Normalise(result.out)},
                                                      {"stderr", Normalise(result.err)}};
        for (const std::string& dir : {log, work}) {
            for (const auto& entry : fs::directory_iterator(dir)) {
                const std::string name = entry.path().filename().string();
                if (entry.is_directory() || inputs.count(name) != 0) continue;
                const std::string text = Normalise(ReadText(entry.path().string()));
                outcome[name == "ZolInfo_trace.log" ? "log" : "file." + name] = text;
            }
        }
        return outcome;
    }

    TempDir dir_;
    const std::string work = dir_ / "work";
    const std::string log = dir_ / "log";
    std::map<std::string, Bytes> inputs;
    RunResult result;
};

TEST_P(Golden, Run) {
    ASSERT_NO_FATAL_FAILURE(Run());
    // The tool never changes its input.
    for (const auto& [name, bytes] : inputs) {
        EXPECT_TRUE(ReadText(work + "/" + name) == std::string(bytes.begin(), bytes.end())) << name;
    }
    const fs::path expected = kCases / GetParam();
    const std::map<std::string, std::string> outcome = Outcome();
    const bool update = UpdatingGolden();
    for (const auto& entry : fs::directory_iterator(expected)) {
        const std::string name = entry.path().filename().string();
        if (name == "case" || outcome.count(name) != 0) continue;
        if (update) {
            fs::remove(entry.path());
        } else {
            ADD_FAILURE() << name << " expected but not made";
        }
    }
    for (const auto& [name, text] : outcome) ExpectFile(expected / name, text);
}

INSTANTIATE_TEST_SUITE_P(Cases, Golden, testing::ValuesIn(CaseNames(kCases)), CaseTestName);

}  // namespace
