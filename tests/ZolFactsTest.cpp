// The facts of a model that the whole runs don't reach in all their cases: file types, EKM
// keys, size thresholds, and the model summary's sorting and categories. The report's lines
// themselves are pinned byte for byte by the runs.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Mrl/Zol/FileTypes.h"
#include "Mrl/Zol/ModelFacts.h"
#include "TestSupport.h"

namespace {

using namespace MrlZol;
using Entries = std::vector<ReportEntry>;

TEST(ZolFacts, FileTypes) {
    // Whole extensions match only themselves and by case; the three result rows are prefixes;
    // either separator ends a directory.
    // clang-format off
    const std::pair<const char*, const char*> cases[] = {
        {"/models/run.op2", "Nastran OP2"}, {"part.STL", "Stereolithography Format"},
        {"part.Stl", "Unknown Format"}, {"run.odbx", "Unknown Format"},
        {"model.nod0012", "Patran Nodal Result"}, {"model.di", "Unknown Format"},
        {"C:\\mixed/dir\\wheel.rst", "ANSYS RST"}, {"/runs/d3plot12", "LS-Dyna d3plot"},
        {"C:\\runs\\d3plot.bak", "LS-Dyna d3plot"}, {"/runs/D3PLOT", "Unknown Format"},
        {"/d3plot.dir/case1", "Unknown Format"}, {"/data/run.rst.1", "Unknown Format"},
        {"/data/.rst", "ANSYS RST"}, {"/data/model.", "Unknown Format"},
        {"", "Unknown Format"}, {"C:\\data\\model.odb\\", "Unknown Format"},
    };
    // clang-format on
    for (const auto& [path, format] : cases) EXPECT_EQ(GetFileTypeName(path), format) << path;
}

TEST(ZolFacts, EkmKeys) {
    const std::pair<const char*, const char*> keys[] = {
        {"", ""},
        {"Application name (Latest Translation)", "applicationname(LatestTranslation)"},
        {"a\tb\nc\vd\fe\rf g", "abcdefg"},
        {" Lead", " Lead"},  // the first character is never dropped
        {"\xC4pfel Z", "\xC4pfelZ"},
        {"Z", "z"}};
    for (const auto& [key, ekm] : keys) EXPECT_EQ(ToEkmKey(key), ekm) << key;
}

TEST(ZolFacts, FileSizeText) {
    ZolTest::TempDir dir;
    const std::pair<off_t, const char*> cases[] = {{0, "0 B"},           {1024, "1024 B"},
                                                   {1025, "1.00098 KB"}, {1536, "1.5 KB"},
                                                   {1048576, "1024 KB"}, {1048577, "1 MB"}};
    for (const auto& [size, text] : cases) {
        std::string path = dir.Write(ZolTest::Bytes{}, "f" + std::to_string(size));
        ASSERT_EQ(truncate(path.c_str(), size), 0);
        EXPECT_EQ(FileSizeText(path), text) << size;
    }
    // A missing file gives the platform's message for the error, and nothing else.
    EXPECT_EQ(FileSizeText(dir / "missing.zol"), std::strerror(ENOENT));
}

AttributeMap Result(const std::string& name,
                    const std::vector<std::pair<std::string, AttributeValue>>& attributes = {}) {
    AttributeMap map{{"Result Name", AttributeValue::Text(name)}};
    for (const auto& [key, value] : attributes) map[key] = value;
    return map;
}

// The summary's entries: those behind "Zol File Size", the first of a model without history
// or root attributes.
Entries Summary(const GroupShapes& shapes, const std::vector<AttributeMap>& results) {
    ModelFacts facts;
    facts.summary = SummarizeModel(shapes, results);
    Entries entries = ReportEntries(facts);
    EXPECT_EQ(entries.at(0).key, "Zol File Size");
    return Entries(entries.begin() + 1, entries.end());
}

// The summary after its category and the counts of parts, cut-sections, iso-surfaces,
// iso-volumes and flow lines.
Entries Expected(const std::string& category, std::vector<const char*> counts, Entries tail,
                 Entries head = {}) {
    const char* keys[] = {"Number of Parts", "Number of Cut-sections", "Number of Iso-surfaces",
                          "Number of Iso-volumes", "Number of Flow-lines"};
    head.push_back({"Category", category});
    for (size_t i = 0; i < 5; ++i) head.push_back({keys[i], counts[i]});
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

TEST(ZolFacts, SummaryCountsSortingAndMerging) {
    // Shapes without a group "Geometry": no "Parts", and the other groups still count.
    GroupShapes shapes{{"Cut-Sections", {"C1", "C2"}},
                       {"Iso-Surfaces", {"I"}},
                       {"Iso-Volumes", {"V1", "V2", "V3"}},
                       {"Flow Lines", {"F"}},
                       {"Other", {"O"}}};
    EXPECT_EQ(Summary(shapes, {}), Expected("Unknown", {"0", "2", "1", "3", "1"}, {}));

    // Values sort byte-wise and merge; parts keep their order and repeats.
    std::vector<AttributeMap> results;
    for (float time : {10.0f, 2.0f, 0.5f, 1.0f, 1.0000001f, 2.0f}) {
        results.push_back(Result("Stress", {{"Time", AttributeValue::Float(time)}}));
    }
    results.push_back(Result("Displacement", {{"Instance Name", AttributeValue::Text("Step 2")}}));
    results.push_back(Result("Stress", {{"Instance Name", AttributeValue::Text("Step\x1E"
                                                                               "1\x1E"
                                                                               "Inc 2")}}));
    results.push_back(Result("Stress", {{"Time", AttributeValue::Double(2.0)},
                                        {"Frequency", AttributeValue::Unsigned(50)},
                                        {"Instance Name", AttributeValue::Text("Step 2")}}));
    EXPECT_EQ(Summary({{"Geometry", {"Wheel", "Axle", "Wheel"}}}, results),
              Expected("Frequency", {"3", "0", "0", "0", "0"},
                       {{"Number of Results", "2"},
                        {"Number of Instances", "2"},
                        {"Parts", "Wheel, Axle, Wheel"},
                        {"Results", "Displacement, Stress"},
                        {"Instances", "Step 1 Inc 2, Step 2"},
                        {"Time Steps", "0.5, 1, 10, 2"},
                        {"Frequencies", "50"}}));
}

TEST(ZolFacts, SummaryCategoryAndTitle) {
    const std::pair<const char*, AttributeValue> attributes[] = {
        {"Category", AttributeValue::Text("Vibration")},
        {"LoadCase", AttributeValue::Unsigned(3)},
        {"Mode", AttributeValue::Unsigned(1)},
        {"Frequency", AttributeValue::Float(12.5f)},
        {"Time", AttributeValue::Float(0.5f)}};
    const char* expected[] = {"Vibration", "Structural", "Modal",
                              "Frequency", "Transient",  "Unknown"};
    // Drop the rows from the top one at a time; each attribute sits on an array of its own,
    // since the table goes by presence anywhere in the model.
    for (size_t first = 0; first <= std::size(attributes); ++first) {
        std::vector<AttributeMap> results{Result("Plain")};
        for (size_t i = std::size(attributes); i-- > first;) {
            results.push_back(Result("R", {{attributes[i].first, attributes[i].second}}));
        }
        EXPECT_EQ(Summary({}, results).at(0).value, expected[first]);
    }
    // The smallest of several categories and titles wins.
    EXPECT_EQ(Summary({}, {Result("A", {{"Category", AttributeValue::Text("Thermal")}}),
                           Result("B", {{"Category", AttributeValue::Text("Modal")}})})[0]
                  .value,
              "Modal");
    // An unknown tag has no text, which is still a value: it is the smallest title, and a lone
    // empty value counts but its list joins to nothing and is left out.
    AttributeValue untagged;
    untagged.tag = 7;
    std::vector<AttributeMap> results{
        Result("Stress", {{"Title", AttributeValue::Text("Beta")}}),
        Result("Stress", {{"Title", untagged}, {"Time", untagged}, {"Instance Name", untagged}})};
    EXPECT_EQ(
        Summary({}, results),
        Expected("Transient", {"0", "0", "0", "0", "0"},
                 {{"Number of Results", "1"}, {"Number of Instances", "1"}, {"Results", "Stress"}},
                 {{"Title", ""}}));
}

}  // namespace
