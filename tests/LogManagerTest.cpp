// The log manager lives for the whole process and keeps every publisher that it is given, so
// each test registers publishers under names of its own; whatever needs a fresh manager runs in
// a child process.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "Mrl/Log/LogManager.h"
#include "Mrl/Util/LogRecord.h"
#include "TestSupport.h"

namespace {

namespace fs = std::filesystem;
using namespace ZolTest;
using Mrl::Log::LogManager;
using Mrl::Util::LogRecord;

LogRecord Record(uint16_t level, const char* file, uint32_t line, const char* text) {
    LogRecord record(level, file, line, "Some::Method");
    record.Append(text);
    return record;
}

TEST(LogManager, LevelFiltersAndRoutes) {
    LogManager& manager = LogManager::Instance();
    std::string name;
    std::shared_ptr<LogSink> first = CaptureLog(false, &name);
    std::shared_ptr<LogSink> second = CaptureLog(false);

    // A new publisher starts at level 2000, and every route gets the record, each flushed.
    manager.Publish(Record(1000, "Mrl/Hbf/Index", 10, "progress"));
    manager.Publish(Record(2000, "Mrl/Hbf/Index", 11, "failure"));
    EXPECT_EQ(first->text, "Index : 11 @ failure\n");
    EXPECT_EQ(second->text, "Index : 11 @ failure\n");
    EXPECT_EQ(first->publishes, 1);
    EXPECT_EQ(first->flushes, 1);

    // Unknown names on either side change nothing.
    manager.SetPublisherFilter(name, "no such filter");
    manager.SetPublisherFilter("no such publisher", "__Default__");
    manager.Publish(Record(1000, "x", 1, "still filtered"));
    EXPECT_EQ(first->publishes, 1);

    // A taken filter name keeps its first level.
    manager.AddLevelFilter("log manager test progress", 1000);
    manager.AddLevelFilter("log manager test progress", 2000);
    manager.SetPublisherFilter(name, "log manager test progress");
    first->text.clear();
    manager.Publish(Record(1000, "x", 2, "now passes"));
    EXPECT_EQ(first->text, "x : 2 @ now passes\n");
    EXPECT_EQ(second->publishes, 1) << "only the named publisher's route changes";

    manager.SetPublisherFilter(name, "__Default__");
    manager.Publish(Record(1000, "x", 3, "filtered again"));
    EXPECT_EQ(first->text, "x : 2 @ now passes\n");
}

TEST(LogManager, DefaultFormatterLine) {
    Mrl::Log::DefaultFormatter format;
    EXPECT_EQ(format(Record(1000, "C:\\src\\Mrl\\Hbf\\Index.cpp", 7, "Index read. ")),
              "Index.cpp : 7 @ Index read. \n");
    EXPECT_EQ(format(Record(1000, "a\\b/c\\Tree", 0, "")), "Tree : 0 @ \n");
    EXPECT_EQ(format(Record(1000, "HbFile", 4294967295u, "t")), "HbFile : 4294967295 @ t\n");
    EXPECT_EQ(format(Record(1000, "dir/", 1, "t")), " : 1 @ t\n");
}

TEST(LogManager, MessagesAreCutAt5120) {
    LogRecord record(1000, "f", 1, "m");
    const std::string head(5000, 'a'), tail(500, 'b');
    record.Append(head.c_str());
    record.Append(tail.c_str());
    record.Append("more");
    EXPECT_EQ(std::string(record.text), head + tail.substr(0, 120));

    std::shared_ptr<LogSink> sink = CaptureLog(false);
    const std::string longText(7000, 'z');
    Mrl::Util::PublishLog(2000, longText.c_str(), "Mrl/Zol/Tree", 9, "MrlZol::Tree::Load");
    EXPECT_EQ(sink->text, "Tree : 9 @ " + std::string(5120, 'z') + "\n");
}

TEST(LogManager, SecondLogFileKeepsTheFirst) {
    TempDir dir;
    const std::string first = dir / "first.log", second = dir / "second.log";
    std::ofstream(first) << "left from an earlier run\n";
    // The file publisher stays for the life of the process, so it is set up in a child.
    pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        Mrl::Log::SetLogFile(first.c_str());
        Mrl::Util::PublishLog(1000, "one", "Mrl/Hbf/HbFile", 1, "m");
        Mrl::Log::SetLogFile(second.c_str());
        Mrl::Util::PublishLog(2000, "two", "Mrl/Hbf/HbFile", 2, "m");
        _exit(LogManager::Instance().HasPublisher("log file") ? 0 : 3);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(ReadText(first), "HbFile : 1 @ one\nHbFile : 2 @ two\n");
    EXPECT_FALSE(fs::exists(second));
}

TEST(LogManager, TraceLogPlacement) {
    TempDir temp, home, work;
    const std::string usage =
        std::string("Usage: ") + ZOLINFO_EXE + " [options] <zol_file_path> [output_file_path]\n";
    const std::string tempLog = temp / "ZolInfo_trace.log", homeLog = home / "ZolInfo_trace.log";
    const std::string homeVar = "HOME=" + home.path.string();
    auto run = [&](const std::string& tempPath) {
        return RunTool({ZOLINFO_EXE}, work.path, {"MORLANE_TEMP_PATH=" + tempPath, homeVar});
    };

    // The temp variable comes first; the log file is emptied at every run.
    std::ofstream(tempLog) << "old contents\n";
    RunResult result = run(temp.path.string());
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, usage);
    EXPECT_EQ(result.err, "Writing log to \"" + tempLog + "\"\n");
    EXPECT_EQ(ReadText(tempLog), "");
    EXPECT_FALSE(fs::exists(homeLog));
    // The separator is appended without looking.
    EXPECT_EQ(run(temp.path.string() + "/").err,
              "Writing log to \"" + temp.path.string() + "//ZolInfo_trace.log\"\n");
    // Set but empty falls back to the home directory.
    EXPECT_EQ(run("").err, "Writing log to \"" + homeLog + "\"\n");
    EXPECT_TRUE(fs::exists(homeLog));

    // A directory that can't be written: no log and no fallback, the run goes on.
    fs::remove(homeLog);
    result = run(temp / "missing");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, usage);
    EXPECT_EQ(result.err, "Unable to set log file.Log information will be discorded.\n");
    EXPECT_FALSE(fs::exists(temp / "missing"));
    EXPECT_FALSE(fs::exists(homeLog));
}

}  // namespace
