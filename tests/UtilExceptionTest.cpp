// The exception's rendered text is what a user sees on a failed run; only the time line depends
// on the clock.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>

#include "Mrl/Util/Exception.h"
#include "TestSupport.h"

namespace {

using Mrl::Util::Exception;
using namespace ZolTest;

TEST(UtilException, ThrowSiteLogsThenRendersSevenLines) {
    static std::shared_ptr<std::string> sink = CaptureLog();
    sink->clear();
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
    EXPECT_EQ(*sink, "Block : " + line + " @ Unable to read from file\n");
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

    // Without a text the kind's name is both the logged text and the description; past the
    // last kind every kind is an invalid one.
    sink->clear();
    EXPECT_EQ(Failure([] { MRL_THROW(5, nullptr, "Mrl/Hbf/Index", "m"); }),
              (Fail{5, "Element Not Found"}));
    EXPECT_TRUE(sink->ends_with(" @ Element Not Found\n")) << *sink;
    for (auto [kind, name] : {std::pair{0u, "Memory Allocation Error"},
                              {19u, "State Error"},
                              {20u, "Invalid Exception"},
                              {~0u, "Invalid Exception"}}) {
        EXPECT_EQ(std::string(Exception(kind, "f", 7, "m").GetDescription()), name) << kind;
    }
}

TEST(UtilException, LongTextsAreCut) {
    const std::string longText(6000, 'd');
    Exception e(2, longText.c_str(), "Mrl/Hbf/HbFile", 3, "MrlHbf::HbFile::CheckSupport");
    EXPECT_NE(std::string(e.what()).find("Description : " + longText.substr(0, 5120) + " \n"),
              std::string::npos);
    // The rendered text stops at its buffer, whatever the method text adds.
    Exception cut(2, longText.c_str(), "f", 1, std::string(1000, 'm').c_str());
    EXPECT_EQ(std::strlen(cut.what()), 5631u);
}

}  // namespace
