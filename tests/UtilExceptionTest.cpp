// The exception's rendered text is what a user sees on a failed run; only the time line depends
// on the clock.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "Mrl/Util/Exception.h"
#include "TestSupport.h"

namespace {

using Mrl::Util::Exception;
using ZolTest::SplitLines;

TEST(UtilException, RendersSevenLinesInFixedLayout) {
    time_t before = std::time(nullptr);
    Exception e(1, "Not enough bytes", "Mrl/Hbf/Block", 4294967295u, "MrlHbf::Block::Get");
    time_t after = std::time(nullptr);
    const std::string text = e.what();
    std::vector<std::string> lines = SplitLines(text);
    ASSERT_EQ(lines.size(), 7u) << text;
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(lines[0], "Exception \"Out of Bounds\" raised. ");
    EXPECT_EQ(lines[1], "Description : Not enough bytes ");
    EXPECT_EQ(lines[3], "       Line : 4294967295 ");
    bool timeMatches = false;
    for (time_t t = before; t <= after; ++t) {
        timeMatches |= lines[5] == "       Time : " + std::string(std::ctime(&t), 24);
    }
    EXPECT_TRUE(timeMatches) << lines[5];
    EXPECT_EQ(lines[6], " ");
    // A copy is a plain copy: the same text, time included.
    Exception assigned(0, "f", 1, "m");
    assigned = e;
    EXPECT_EQ(std::string(Exception(e).what()), text);
    EXPECT_EQ(std::string(assigned.what()), text);
    EXPECT_EQ(assigned.GetKind(), 1u);
}

TEST(UtilException, KindNamesStandInForAMissingDescription) {
    // Indexed by kind; there is no kind 20.
    std::stringstream table(
        "Memory Allocation Error,Out of Bounds,Unknown Version,Not Initialized,Element Exists,"
        "Element Not Found,Invalid Method,Invalid Enumeration,Invalid Object,Read Error,"
        "Write Error,Format Not Supported,Bad Casting,Not Implemented,Mis-match Error,"
        "System Error,Miscelleneous Error,Zero Length,Model Error,State Error,,Invalid Exception");
    uint32_t kind = 0;
    for (std::string name; std::getline(table, name, ','); ++kind) {
        if (name.empty()) continue;
        Exception e(kind, "Mrl/Adt/AdtTree", 7, "MrlAdt::Tree<class MrlZol::Node *>::GetReqNode");
        EXPECT_EQ(e.GetDescription(), name);
        std::vector<std::string> lines = SplitLines(e.what());
        ASSERT_EQ(lines.size(), 7u);
        EXPECT_EQ(lines[0], "Exception \"" + name + "\" raised. ");
    }
    EXPECT_EQ(kind, 22u);
}

TEST(UtilException, LongTextsAreCut) {
    const std::string longText(6000, 'd');
    Exception e(2, longText.c_str(), "Mrl/Hbf/HbFile", 3, "MrlHbf::HbFile::CheckSupport");
    EXPECT_EQ(std::string(e.GetDescription()), longText.substr(0, 5120));
    EXPECT_EQ(SplitLines(e.what())[1], "Description : " + longText.substr(0, 5120) + " ");
    // The rendered text stops at its buffer, whatever the method text adds.
    Exception cut(2, longText.c_str(), "f", 1, std::string(1000, 'm').c_str());
    EXPECT_EQ(std::strlen(cut.what()), 5631u);
}

TEST(UtilException, ThrowSiteLogsBeforeThrowing) {
    static std::shared_ptr<ZolTest::LogSink> sink = ZolTest::CaptureLog(false);
    sink->text.clear();
    uint32_t line = 0;
    try {
        line = __LINE__ + 1;
        MRL_THROW(9, "Unable to read from file", "Mrl/Hbf/Block", "MrlHbf::Block::Read");
    } catch (const Exception& e) {
        EXPECT_EQ(sink->text, "Block : " + std::to_string(line) + " @ Unable to read from file\n");
        std::vector<std::string> lines = SplitLines(e.what());
        ASSERT_EQ(lines.size(), 7u);
        EXPECT_EQ(lines[2], "       File : Mrl/Hbf/Block ");
        EXPECT_EQ(lines[3], "       Line : " + std::to_string(line) + " ");
        EXPECT_EQ(lines[4], "     Method : MrlHbf::Block::Read ");
    }
    // Without a text the kind's name is both the logged text and the description.
    sink->text.clear();
    try {
        MRL_THROW(5, nullptr, "Mrl/Hbf/Index", "MrlHbf::Index::GetReadingBlockIndex");
    } catch (const Exception& e) {
        EXPECT_TRUE(sink->text.ends_with(" @ Element Not Found\n")) << sink->text;
        EXPECT_STREQ(e.GetDescription(), "Element Not Found");
    }
}

}  // namespace
