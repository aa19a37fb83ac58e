// The log manager lives for the whole process and keeps every publisher that it is given, so
// each test registers publishers under names of its own; whatever needs a fresh manager runs in
// a child process.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "Mrl/Log/LogManager.h"
#include "Mrl/Util/LogRecord.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using Mrl::Log::LogManager;

void Publish(uint16_t level, const char* file, uint32_t line, const char* text) {
    Mrl::Util::LogRecord record(level, file, line, "Some::Method");
    record.Append(text);
    LogManager::Instance().Publish(record);
}

TEST(LogManager, RoutesFiltersAndLines) {
    LogManager& manager = LogManager::Instance();
    std::string name;
    std::shared_ptr<std::string> first = CaptureLog(&name), second = CaptureLog();

    // A new publisher starts at level 2000, and every route gets the record. The line holds
    // the last path component by either separator, the line number and the text.
    Publish(1000, "Mrl/Hbf/Index", 10, "progress");
    Publish(2000, "C:\\src\\Mrl/Hbf\\Index.cpp", 11, "failure");
    EXPECT_EQ(*first, "Index.cpp : 11 @ failure\n");
    EXPECT_EQ(*second, *first);

    // Unknown names on either side change nothing; a taken filter name keeps its first level.
    manager.SetPublisherFilter(name, "no such filter");
    manager.SetPublisherFilter("no such publisher", "__Default__");
    manager.AddLevelFilter("log manager test progress", 1000);
    manager.AddLevelFilter("log manager test progress", 2000);
    Publish(1000, "x", 1, "still filtered");
    manager.SetPublisherFilter(name, "log manager test progress");
    Publish(1000, "dir/", 4294967295u, "");
    manager.SetPublisherFilter(name, "__Default__");
    Publish(1000, "x", 3, "filtered again");
    EXPECT_EQ(*first, "Index.cpp : 11 @ failure\n : 4294967295 @ \n");

    // Only the named publisher's route changed; texts are cut at 5120 characters.
    Mrl::Util::PublishLog(2000, std::string(7000, 'z').c_str(), "Mrl/Zol/Tree", 9, "m");
    EXPECT_EQ(*second, "Index.cpp : 11 @ failure\nTree : 9 @ " + std::string(5120, 'z') + "\n");
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
    EXPECT_FALSE(std::filesystem::exists(second));
}

}  // namespace
