// The pieces of the report: file types, key conversion, entry lines, file sizes, the model
// summary and the translation history.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "FileTypes.h"
#include "ModelSummary.h"
#include "ReportWriter.h"
#include "RootAttributes.h"
#include "SizeText.h"
#include "TestSupport.h"
#include "TranslationHistory.h"

namespace {

using namespace ZolInfo;
using MrlZol::AttributeMap;
using MrlZol::AttributeValue;
using ZolTest::Bytes;
using Entry = std::pair<std::string, std::string>;
using Entries = std::vector<Entry>;

// The entries of a report as (key, value); the frame lines are checked end to end.
Entries EntriesOf(const ReportWriter& writer) {
    std::vector<std::string> lines = ZolTest::SplitLines(writer.GetReport());
    Entries entries;
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
        const std::string& line = lines[i];
        size_t name = line.find(" name=\""), value = line.find("\" value=\"");
        EXPECT_TRUE(line.starts_with("        <") && line.ends_with("\"/>") &&
                    name != std::string::npos && value != std::string::npos)
            << line;
        if (name == std::string::npos || value == std::string::npos) continue;
        entries.emplace_back(line.substr(name + 7, value - name - 7),
                             line.substr(value + 9, line.size() - value - 12));
    }
    return entries;
}

ReportWriter Writer(ReportMode mode = ReportMode::Metadata) {
    ReportWriter writer;
    writer.SetMode(mode);
    return writer;
}

Entries Join(Entries head, const Entries& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

TEST(ToolFileTypes, TableAndCornerCases) {
    // clang-format off
    const std::pair<const char*, const char*> rows[] = {
        {".op2", "Nastran OP2"}, {".bdf", "Nastran BDF"}, {".inp", "Abaqus INP"},
        {".fil", "Abaqus FIL"}, {".odb", "ABAQUS ODB"}, {".rst", "ANSYS RST"},
        {".rth", "ANSYS RTH"}, {".neu", "PTC/Mechanica Design Study"}, {".msh", "Fluent Mesh"},
        {".cas", "Fluent Case"}, {".res", "CFX solution"}, {".ccm", "StarCCM solution"},
        {".ccmp", "StarCCM solution"}, {".ccmt", "StarCCM solution"}, {".ccmg", "StarCCM solution"},
        {".dat", "Fluent Data"}, {".case", "Ensight Gold"}, {".k", "LS-Dyna Input Deck"},
        {".key", "LS-Dyna Input Deck"}, {".dyn", "LS-Dyna Input Deck"}, {".unv", "Ideas Universal"},
        {".bun", "Ideas Universal Binary"}, {".t16", "MSC.MARC Binary Post"},
        {".t19", "MSC.MARC Formatted Post"}, {".pat", "Patran Neutral"}, {".out", "Patran Neutral"},
        {".STL", "Stereolithography Format"}, {".stl", "Stereolithography Format"},
        {".dis", "Patran Displacement Result"}, {".nod", "Patran Nodal Result"},
        {".els", "Patran Elemental Result"}, {".cp_hmasl", "Hypermesh ASL generic ASCII file"},
    };
    // clang-format on
    for (const auto& [extension, format] : rows) {
        EXPECT_EQ(GetFileTypeName(std::string("/models/run") + extension), format) << extension;
        // Whole rows don't match a longer extension; the three result rows are prefixes.
        std::string e = extension;
        bool prefixRow = e == ".dis" || e == ".nod" || e == ".els";
        EXPECT_EQ(GetFileTypeName("run" + e + "x"), prefixRow ? format : "Unknown Format") << e;
    }
    // clang-format off
    const std::pair<const char*, const char*> cases[] = {
        {"C:\\models\\wheel.odb", "ABAQUS ODB"}, {"C:\\mixed/dir\\wheel.rst", "ANSYS RST"},
        {"/runs/d3plot12", "LS-Dyna d3plot"}, {"d3plot", "LS-Dyna d3plot"},
        {"C:\\runs\\d3plot.bak", "LS-Dyna d3plot"}, {"d3plo", "Unknown Format"},
        {"/runs/D3PLOT", "Unknown Format"}, {"/d3plot.dir/case1", "Unknown Format"},
        {"/data/run.1.rst", "ANSYS RST"}, {"/data/run.rst.1", "Unknown Format"},
        {"/data/.rst", "ANSYS RST"}, {"/data/model.", "Unknown Format"},
        {"/data/model", "Unknown Format"}, {"", "Unknown Format"},
        {"/data/model.odb/", "Unknown Format"}, {"C:\\data\\model.odb\\", "Unknown Format"},
        {"model.dis", "Patran Displacement Result"}, {"model.di", "Unknown Format"},
        {"model.nod0012", "Patran Nodal Result"}, {"RESULT.ODB", "Unknown Format"},
        {"part.Stl", "Unknown Format"}, {"1.5", "Unknown Format"},
    };
    // clang-format on
    for (const auto& [path, format] : cases) EXPECT_EQ(GetFileTypeName(path), format) << path;
}

TEST(ToolReportWriter, KeysAndLines) {
    const std::pair<const char*, const char*> keys[] = {
        {"", ""},
        {"Number of Parts", "numberofParts"},
        {"Number of Cut-sections", "numberofCut-sections"},
        {"Application name (Latest Translation)", "applicationname(LatestTranslation)"},
        {"a\tb\nc\vd\fe\rf g", "abcdefg"},
        {" Lead", " Lead"},  // the first character is never dropped
        {"\xC4pfel Z", "\xC4pfelZ"},
        {"_X", "_X"},
        {"Z", "z"}};
    for (const auto& [key, ekm] : keys) EXPECT_EQ(ToEkmKey(key), ekm) << key;

    // Texts go out as they are, without escapes.
    ReportWriter metadata = Writer();
    metadata.AddAttribute("File \"a\" & <b>", "x&y \"z\" <w>");
    metadata.AddAttribute("Empty", "");
    metadata.AddAttribute("Count", uint64_t{4000000000});
    metadata.AddAttribute("Signed", int64_t{-12});
    std::vector<std::string> lines = ZolTest::SplitLines(metadata.GetReport());
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[1], R"(        <attribute name="File "a" & <b>" value="x&y "z" <w>"/>)");
    EXPECT_EQ(lines[2], R"(        <attribute name="Empty" value=""/>)");
    EXPECT_EQ(lines[3], R"(        <attribute name="Count" value="4000000000"/>)");
    EXPECT_EQ(lines[4], R"(        <attribute name="Signed" value="-12"/>)");
    EXPECT_EQ(metadata.GetReport(), metadata.GetReport());

    ReportWriter ekm = Writer(ReportMode::EkmMetaData);
    ekm.AddAttribute("Number of Parts", uint64_t{1});
    EXPECT_EQ(ZolTest::SplitLines(ekm.GetReport())[1],
              R"(        <data name="numberofParts" value="1"/>)");
    // The dump mode keeps the metadata vocabulary and its keys.
    ReportWriter dump = Writer(ReportMode::ExtractData);
    dump.AddAttribute("Number of Parts", uint64_t{0});
    EXPECT_EQ(dump.GetReport().substr(dump.GetReport().find('\n') + 1),
              "        <attribute name=\"Number of Parts\" value=\"0\"/>\n</mrl:metadata>\n");
}

TEST(ToolSizeText, FileSizes) {
    ZolTest::TempDir dir;
    const std::pair<off_t, const char*> cases[] = {
        {0, "0 B"},       {1, "1 B"},           {1024, "1024 B"},  {1025, "1.00098 KB"},
        {1536, "1.5 KB"}, {1048576, "1024 KB"}, {1048577, "1 MB"}, {5000000, "4.76837 MB"}};
    for (const auto& [size, text] : cases) {
        std::string path = dir.Write(Bytes{}, "f" + std::to_string(size));
        ASSERT_EQ(truncate(path.c_str(), size), 0);
        EXPECT_EQ(FormatFileSize(path), text) << size;
    }
    // A missing file gives the platform's message for the error, and nothing else.
    EXPECT_EQ(FormatFileSize(dir / "missing.zol"), std::strerror(ENOENT));
}

AttributeMap Result(const std::string& name,
                    const std::vector<std::pair<std::string, AttributeValue>>& attributes = {}) {
    AttributeMap map{{"Result Name", AttributeValue::Text(name)}};
    for (const auto& [key, value] : attributes) map[key] = value;
    return map;
}

Entries Summary(const GroupShapes& groupShapes, const std::vector<AttributeMap>& results,
                ReportMode mode = ReportMode::Metadata) {
    ReportWriter writer = Writer(mode);
    WriteModelSummary(writer, groupShapes, results);
    return EntriesOf(writer);
}

Entries Counts(const char* parts = "0", const char* cuts = "0", const char* isoSurfaces = "0",
               const char* isoVolumes = "0", const char* flowLines = "0") {
    return {{"Number of Parts", parts},
            {"Number of Cut-sections", cuts},
            {"Number of Iso-surfaces", isoSurfaces},
            {"Number of Iso-volumes", isoVolumes},
            {"Number of Flow-lines", flowLines}};
}

TEST(ToolModelSummary, GroupCounts) {
    EXPECT_EQ(Summary({}, {}), Join({{"Category", "Unknown"}}, Counts()));
    // Shapes without a group "Geometry": no "Parts", and the other groups still count.
    GroupShapes shapes{{"Cut-Sections", {"C1", "C2"}},
                       {"Iso-Surfaces", {"I"}},
                       {"Iso-Volumes", {"V1", "V2", "V3"}},
                       {"Flow Lines", {"F"}},
                       {"Other", {"O"}}};
    EXPECT_EQ(Summary(shapes, {}),
              Join({{"Category", "Unknown"}}, Counts("0", "2", "1", "3", "1")));
}

TEST(ToolModelSummary, ValuesSortByteWiseAndMerge) {
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
    GroupShapes shapes{{"Geometry", {"Wheel", "Axle", "Wheel"}}};
    EXPECT_EQ(Summary(shapes, results), Join(Join({{"Category", "Frequency"}}, Counts("3")),
                                             {{"Number of Results", "2"},
                                              {"Number of Instances", "2"},
                                              {"Parts", "Wheel, Axle, Wheel"},
                                              {"Results", "Displacement, Stress"},
                                              {"Instances", "Step 1 Inc 2, Step 2"},
                                              {"Time Steps", "0.5, 1, 10, 2"},
                                              {"Frequencies", "50"}}));
}

TEST(ToolModelSummary, CategoryPrecedence) {
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
        EXPECT_EQ(Summary({}, results).at(0), (Entry{"Category", expected[first]}));
    }
    // The smallest of several categories wins, whatever the others say.
    std::vector<AttributeMap> results{Result("A", {{"Category", AttributeValue::Text("Thermal")}}),
                                      Result("B", {{"Category", AttributeValue::Text("Modal")}}),
                                      Result("C", {{"LoadCase", AttributeValue::Unsigned(1)}})};
    EXPECT_EQ(Summary({}, results)[0].second, "Modal");
}

TEST(ToolModelSummary, TitleAndEmptyValues) {
    AttributeValue untagged;
    untagged.tag = 7;  // an unknown tag has no text, which is still a value
    const Entries stress = {{"Number of Results", "1"}, {"Results", "Stress"}};
    std::vector<AttributeMap> results{Result("Stress", {{"Title", AttributeValue::Text("Beta")}}),
                                      Result("Stress", {{"Title", AttributeValue::Text("Alpha")}})};
    EXPECT_EQ(Summary({}, results),
              Join(Join({{"Title", "Alpha"}, {"Category", "Unknown"}}, Counts()), stress));
    results.push_back(Result("Stress", {{"Title", untagged}, {"Time", untagged}}));
    EXPECT_EQ(Summary({}, results),
              Join(Join({{"Title", ""}, {"Category", "Transient"}}, Counts()), stress));

    // A lone empty value counts, but its list joins to nothing and is left out.
    results = {Result("Stress", {{"Time", untagged}, {"Instance Name", untagged}})};
    EXPECT_EQ(
        Summary({}, results),
        Join(Join({{"Category", "Transient"}}, Counts()),
             {{"Number of Results", "1"}, {"Number of Instances", "1"}, {"Results", "Stress"}}));
}

MrlZol::TranslationRecord Translation(const std::string& tag) {
    return {0,
            "App " + tag,
            "1." + tag,
            "0.7",
            "2014-0" + tag,
            "extra " + tag,
            "user " + tag,
            "note " + tag};
}

Entries History(const std::vector<MrlZol::TranslationRecord>& records,
                ReportMode mode = ReportMode::Metadata) {
    ReportWriter writer = Writer(mode);
    WriteTranslationHistory(writer, records);
    return EntriesOf(writer);
}

Entries RecordEntries(const std::string& tag, const std::string& suffix) {
    return {{"Application name" + suffix, "App " + tag},
            {"Application version" + suffix, "1." + tag},
            {"Zol version" + suffix, "0.7"},
            {"User name" + suffix, "user " + tag},
            {"Date" + suffix, "2014-0" + tag},
            {"Comment" + suffix, "note " + tag}};
}

TEST(ToolTranslationHistory, FirstAndLastRecord) {
    const std::string latest = " (Latest Translation)", original = " (Original Modification)";
    EXPECT_TRUE(History({}).empty());
    EXPECT_EQ(History({Translation("1")}), RecordEntries("1", latest));
    EXPECT_EQ(History({Translation("1"), Translation("2"), Translation("3")}),
              Join(RecordEntries("1", original), RecordEntries("3", latest)));

    // Empty fields add nothing; an all-empty record keeps its place as the latest.
    MrlZol::TranslationRecord sparse = Translation("2");
    sparse.comment.clear();
    sparse.applicationVersion.clear();
    EXPECT_EQ(History({Translation("1"), sparse}),
              Join(RecordEntries("1", original), {{"Application name" + latest, "App 2"},
                                                  {"Zol version" + latest, "0.7"},
                                                  {"User name" + latest, "user 2"},
                                                  {"Date" + latest, "2014-02"}}));
    EXPECT_EQ(History({Translation("1"), Translation("2"), MrlZol::TranslationRecord{}}),
              RecordEntries("1", original));
    EXPECT_EQ(History({Translation("1"), Translation("2")}, ReportMode::EkmMetaData).at(5).first,
              "comment(OriginalModification)");
}

TEST(ToolRootAttributes, EntriesInTableOrder) {
    AttributeMap root{{"Number of Elements in the Model", AttributeValue::Unsigned(900)},
                      {"Results File Size", AttributeValue::Double(1.5e7)},
                      {"Results File", AttributeValue::Text("/runs/job.rst")},
                      {"Model File", AttributeValue::Float(2.5f)},
                      {"Number of Nodes", AttributeValue::Unsigned(5)},
                      {"Ignored", AttributeValue::Text("x")}};
    ReportWriter writer = Writer();
    WriteRootEntries(writer, root);
    EXPECT_EQ(EntriesOf(writer), (Entries{{"Model File", "2.5"},
                                          {"Model File Type", "Unknown Format"},
                                          {"Results File", "/runs/job.rst"},
                                          {"Results File Type", "ANSYS RST"},
                                          {"Native Results File Size", "1.5e+07"},
                                          {"Number of Elements", "900"}}));
}

}  // namespace
