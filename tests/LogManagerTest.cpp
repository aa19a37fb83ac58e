// The log manager lives for the whole process and keeps every publisher that it is given, so
// each test registers publishers under names of its own; whatever needs a fresh manager runs in
// a child process.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

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

TEST(LogManager, RoutesFiltersAndLines) {
    LogManager& manager = LogManager::Instance();
    std::string name;
    std::shared_ptr<LogSink> first = CaptureLog(false, &name), second = CaptureLog(false);

    // A new publisher starts at level 2000, and every route gets the record, each flushed. The
    // line holds the last path component by either separator, the line number and the text.
    manager.Publish(Record(1000, "Mrl/Hbf/Index", 10, "progress"));
    manager.Publish(Record(2000, "C:\\src\\Mrl/Hbf\\Index.cpp", 11, "failure"));
    EXPECT_EQ(first->text, "Index.cpp : 11 @ failure\n");
    EXPECT_EQ(second->text, first->text);
    EXPECT_EQ(first->flushes, 1);

    // Unknown names on either side change nothing; a taken filter name keeps its first level.
    manager.SetPublisherFilter(name, "no such filter");
    manager.SetPublisherFilter("no such publisher", "__Default__");
    manager.AddLevelFilter("log manager test progress", 1000);
    manager.AddLevelFilter("log manager test progress", 2000);
    manager.Publish(Record(1000, "x", 1, "still filtered"));
    manager.SetPublisherFilter(name, "log manager test progress");
    manager.Publish(Record(1000, "dir/", 4294967295u, ""));
    manager.SetPublisherFilter(name, "__Default__");
    manager.Publish(Record(1000, "x", 3, "filtered again"));
    EXPECT_EQ(first->text, "Index.cpp : 11 @ failure\n : 4294967295 @ \n");
    EXPECT_EQ(second->publishes, 1) << "only the named publisher's route changes";

    // Texts are cut at 5120 characters.
    Mrl::Util::PublishLog(2000, std::string(7000, 'z').c_str(), "Mrl/Zol/Tree", 9, "m");
    EXPECT_EQ(second->text,
              "Index.cpp : 11 @ failure\nTree : 9 @ " + std::string(5120, 'z') + "\n");
}

TEST(LogManager, SecondLogFileKeepsTheFirst) {
    TempDir dir;
    const std::string first = dir / "first.log", second = dir / "second.log";
    // The file publisher stays for the life of the process, so it is set up in a child.
    pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        Mrl::Log::SetLogFile(first.c_str());
        Mrl::Util::PublishLog(1000, "one", "Mrl/Hbf/HbFile", 1, "m");
        Mrl::Log::SetLogFile(second.c_str());
        Mrl::Util::PublishLog(2000, "two", "Mrl/Hbf/HbFile", 2, "m");
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ReadText(first), "HbFile : 1 @ one\nHbFile : 2 @ two\n");
    EXPECT_FALSE(fs::exists(second));
}

}  // namespace
