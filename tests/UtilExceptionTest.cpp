// The exception's rendered text is what a user sees on a failed run; only the time line depends
// on the clock.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <sstream>
#include <string>

#include "Mrl/Util/Exception.h"
#include "TestSupport.h"

namespace {

using Mrl::Util::Exception;
using namespace ZolTest;

TEST(UtilException, ThrowSiteLogsThenRendersSevenLines) {
    static std::shared_ptr<LogSink> sink = CaptureLog(false);
    sink->text.clear();
    const time_t before = std::time(nullptr);
    const std::string line = std::to_string(__LINE__ + 3);
    std::string text;
    try {
        MRL_THROW(9, "Unable to read from file", "Mrl/Hbf/Block", "MrlHbf::Block::Read");
    } catch (const Exception& e) {
        text = e.what();
        EXPECT_EQ(std::string(Exception(e).what()), text) << "a copy keeps the time too";
    }
    const time_t after = std::time(nullptr);
    EXPECT_EQ(sink->text, "Block : " + line + " @ Unable to read from file\n");
    EXPECT_EQ(Mask(text, "       Time : ", "\n", "T", false),
              "Exception \"Read Error\" raised. \nDescription : Unable to read from file \n"
              "       File : Mrl/Hbf/Block \n       Line : " +
                  line + " \n     Method : MrlHbf::Block::Read \n       Time : T\n \n");
    bool timeMatches = false;
    for (time_t t = before; t <= after; ++t) {
        timeMatches |=
            text.find("       Time : " + std::string(std::ctime(&t))) != std::string::npos;
    }
    EXPECT_TRUE(timeMatches) << text;

    // Without a text the kind's name is both the logged text and the description.
    sink->text.clear();
    EXPECT_EQ(Failure([] { MRL_THROW(5, nullptr, "Mrl/Hbf/Index", "m"); }),
              (Fail{5, "Element Not Found"}));
    EXPECT_TRUE(sink->text.ends_with(" @ Element Not Found\n")) << sink->text;
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
        EXPECT_TRUE(std::string(e.what()).starts_with("Exception \"" + name + "\" raised. \n"));
    }
    EXPECT_EQ(kind, 22u);
}

TEST(UtilException, LongTextsAreCut) {
    const std::string longText(6000, 'd');
    Exception e(2, longText.c_str(), "Mrl/Hbf/HbFile", 3, "MrlHbf::HbFile::CheckSupport");
    EXPECT_EQ(SplitLines(e.what())[1], "Description : " + longText.substr(0, 5120) + " ");
    // The rendered text stops at its buffer, whatever the method text adds.
    Exception cut(2, longText.c_str(), "f", 1, std::string(1000, 'm').c_str());
    EXPECT_EQ(std::strlen(cut.what()), 5631u);
}

}  // namespace
