// The tool as a whole, run as a child process: arguments, exit statuses, failure texts, the
// trace log, where the report goes, the report of a small model and the data dump.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "Mrl/Zol/ReportEntry.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using Entries = std::vector<std::pair<std::string, std::string>>;

class ToolRun : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directory(work);
        std::filesystem::create_directory(log);
    }
    RunResult Run(std::vector<std::string> args, const std::string& argv0 = ZOLINFO_EXE) {
        args.insert(args.begin(), argv0);
        return RunTool(args, work, {"MORLANE_TEMP_PATH=" + log});
    }
    std::string Log() const { return NormaliseLog(ReadText(log + "/ZolInfo_trace.log")); }
    std::string Announcement() const {
        return "Writing log to \"" + log + "/ZolInfo_trace.log\"\n";
    }
    void Write(const std::string& name, const Bytes& bytes) const {
        WriteFile(work + "/" + name, bytes);
    }
    std::vector<std::string> WorkFiles() const {
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(work)) {
            names.push_back(e.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    // A run that reached its end: the log announcement alone on stderr, or followed by one
    // failure that begins with `failure`, and the memory line first on stdout. Returns the rest
    // of stdout.
    std::string Output(const RunResult& result, const std::string& failure = "") const {
        EXPECT_EQ(result.status, 0) << result.err;
        if (failure.empty()) {
            EXPECT_EQ(result.err, Announcement());
        } else {
            EXPECT_TRUE(result.err.starts_with(Announcement() + "Exception: " + failure) &&
                        result.err.ends_with(" \n\n"))
                << result.err;
        }
        size_t end = result.out.find('\n');
        EXPECT_EQ(Mask(result.out.substr(0, end), "Peak Memory Usage: ", " Mb"),
                  "Peak Memory Usage: N Mb");
        return end == std::string::npos ? std::string() : result.out.substr(end + 1);
    }

    // The dump of a model written to `name`.
    std::string Dump(const Bytes& model, const std::string& name = "dump.zol") {
        Write(name, model);
        return Output(Run({"--extract-data", name}));
    }

    TempDir dir;
    const std::string work = dir / "work";
    const std::string log = dir / "log";
};

// The entry lines between the frame of a report, which must be that of the vocabulary.
std::string Body(const std::string& report, bool ekm) {
    const std::string open =
        ekm ? "<ekmMetaData:meta-data xmlns:ekmMetaData=\"" : "<mrl:metadata xmlns:mrl=\"";
    const std::string uri = ekm ? "/ekm/metaData\">\n" : "/xml/namespace\">\n";
    const std::string close = ekm ? "</ekmMetaData:meta-data>\n" : "</mrl:metadata>\n";
    size_t first = report.find('\n') + 1;
    EXPECT_TRUE(report.starts_with(open)) << report;
    EXPECT_TRUE(report.substr(0, first).ends_with(uri)) << report;
    EXPECT_TRUE(report.ends_with(close)) << report;
    if (first == 0 || report.size() < first + close.size()) return report;
    return report.substr(first, report.size() - first - close.size());
}

// Entry lines of a report, metadata or (with the keys converted) ekm.
std::string Lines(const Entries& entries, bool ekm = false) {
    std::string lines;
    for (const auto& [key, value] : entries) {
        lines += ekm ? "        <data name=\"" + MrlZol::ToEkmKey(key)
                     : "        <attribute name=\"" + key;
        lines += "\" value=\"" + value + "\"/>\n";
    }
    return lines;
}

// The counts of groups that every summary has, after the given parts count.
Entries Counts(const std::string& parts) {
    return {{"Number of Parts", parts},
            {"Number of Cut-sections", "0"},
            {"Number of Iso-surfaces", "0"},
            {"Number of Iso-volumes", "0"},
            {"Number of Flow-lines", "0"}};
}

const std::string kEmptyModelBody =
    Lines({{"Zol File Size", "20 B"}, {"Category", "Unknown"}}) + Lines(Counts("0"));

// An index without entries: every read by name reads the index again and finds nothing.
const std::string kEmptyIndexReads =
    "HbFile : N @ Reading index positions ... \n"
    "Index : N @ Reading index block ... \n"
    "Index : N @ Index block read. \n"
    "HbFile : N @ Index read. \n"
    "Index : N @ Element Not Found\n";
const std::string kClosing =
    "HbFile : N @ Closing file ...\n"
    "HbFile : N @ File closed.\n"
    "HbFile : N @ Closing file ...\n";
const std::string kEmptyModelLog = kEmptyIndexReads + kEmptyIndexReads +  // history, tree
                                   "Tree : N @ Updating buffer links ... \n"
                                   "Tree : N @ Buffer links updated. \n" +
                                   kClosing;

Bytes EmptyModel(const std::string& version) {
    return ZolFileBuilder().Version(version).Build();
}

TEST_F(ToolRun, UsageWithoutPositional) {
    const std::string usage = " [options] <zol_file_path> [output_file_path]\n";
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{}, {"--foo"}, {"--extract-data"}, {"--", "--ekm-meta-data"}}) {
        RunResult result = Run(args);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "Usage: " + std::string(ZOLINFO_EXE) + usage);
        EXPECT_EQ(result.err, Announcement());
    }
    EXPECT_EQ(Run({}, "some/other name").out, "Usage: some/other name" + usage);
    EXPECT_EQ(ReadText(log + "/ZolInfo_trace.log"), "");
    EXPECT_TRUE(WorkFiles().empty());
}

TEST_F(ToolRun, RefusedFiles) {
    Bytes badMagic = EmptyModel("1.1");
    badMagic[7] = 0;  // the last byte of the magic
    const std::string newer =
        "This file is of zol file version 12.\n"
        "This version of Morlane only supports zol file version upto 11.\n";
    struct Case {
        std::vector<std::string> args;
        Bytes file;  // written under the name of the last argument
        std::string kind, description, source, method, log;
    };
    // clang-format off
    const Case cases[] = {
        {{"missing.zol", "out.xml"}, {}, "Miscelleneous Error",
         "Unable to open file \"missing.zol\"", "Mrl/Hbf/HbFile", "MrlHbf::HbFile::OpenFile",
         "HbFile : N @ Unable to open file \"missing.zol\"\n"
         "HbFile : N @ Closing file ...\nHbFile : N @ Closing file ...\n"},
        {{"bad.zol"}, badMagic, "Format Not Supported", "bad.zol is not a Zol file", "Mrl/Zol/Tree",
         "MrlZol::Tree::Load", "Tree : N @ bad.zol is not a Zol file\n" + kClosing},
        {{"--ekm-meta-data", "newer.zol"}, EmptyModel("1.2"), "Unknown Version", newer,
         "Mrl/Hbf/HbFile", "MrlHbf::HbFile::CheckSupport",
         "HbFile : N @ " + newer + "\n" + kClosing},
    };
    // clang-format on
    for (const Case& c : cases) {
        if (!c.file.empty()) Write(c.args.back(), c.file);
        RunResult result = Run(c.args);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(
            NormaliseException(result.err),
            Announcement() + "Exception: Exception \"" + c.kind +
                "\" raised. \nDescription : " + c.description + " \n       File : " + c.source +
                " \n       Line : N \n     Method : " + c.method + " \n       Time : T\n \n\n");
        EXPECT_EQ(Log(), c.log);
    }
    // No output file is made for a refused model.
    EXPECT_EQ(WorkFiles(), (std::vector<std::string>{"bad.zol", "newer.zol"}));
}

TEST_F(ToolRun, WhereTheOutputGoes) {
    for (const char* version : {"0.6", "0.1a", "1.1"}) {
        Write("e.zol", EmptyModel(version));
        EXPECT_EQ(Body(Output(Run({"e.zol"})), false), kEmptyModelBody) << version;
        EXPECT_EQ(Log(), kEmptyModelLog);
    }
    // Into the output file; the third positional is ignored.
    EXPECT_EQ(Output(Run({"e.zol", "out.xml", "extra"})), "");
    EXPECT_EQ(Body(ReadText(work + "/out.xml"), false), kEmptyModelBody);
    EXPECT_EQ(WorkFiles(), (std::vector<std::string>{"e.zol", "out.xml"}));

    // Mode 2 always writes ekm-meta-data.xml in the working directory.
    Write("out.xml", {'k'});
    EXPECT_EQ(Output(Run({"--ekm-meta-data", "e.zol", "out.xml"})), "");
    EXPECT_EQ(ReadText(work + "/out.xml"), "k");
    EXPECT_TRUE(Body(ReadText(work + "/ekm-meta-data.xml"), true)
                    .starts_with("        <data name=\"zolFileSize\" value=\"20 B\"/>\n"));
    std::filesystem::remove(work + "/ekm-meta-data.xml");
    std::filesystem::remove(work + "/out.xml");

    // An option with something behind it is dropped, and the run stays in mode 0.
    EXPECT_EQ(Body(Output(Run({"--ekm-meta-data=1", "e.zol"})), false), kEmptyModelBody);
    // The last mode option wins: a dump of an empty model is empty.
    EXPECT_EQ(Output(Run({"--ekm-meta-data", "e.zol", "--extract-data"})), "");
    EXPECT_EQ(WorkFiles(), (std::vector<std::string>{"e.zol"}));
    EXPECT_EQ(Output(Run({"e.zol", "--extract-data", "--ekm-meta-data"})), "");
    EXPECT_TRUE(std::filesystem::exists(work + "/ekm-meta-data.xml"));

    // An output file that can't be opened, or that is the model itself, sends the report to
    // standard output.
    EXPECT_EQ(Body(Output(Run({"e.zol", "no/such/dir/out.xml"})), false), kEmptyModelBody);
    EXPECT_EQ(Body(Output(Run({"e.zol", "./e.zol"})), false), kEmptyModelBody);
    EXPECT_EQ(ReadText(work + "/e.zol").size(), 20u);
}

// The model of the report example: three translations, of which the first and the last are
// reported, root attributes, one part and two instances of one result with their times.
TEST_F(ToolRun, ReportOfSmallModel) {
    ModelBuilder model;
    model.globalInformation.Raw(GlobalInformation(
        {{"0.7", {"Importer", "2.0", "0.6", "2013-01-01", "x", "first", "initial"}},
         {"0.7", {"Skipped", "2.5", "0.6", "2013-06-01", "", "middle", "between"}},
         {"0.7", {"Translator", "3.1", "0.7", "2014-03-01", "", "analyst", ""}}}));
    GroupData root;
    // Texts go out as they are, without escapes; the rows follow their table, not the map.
    root.attributes = {Attr::Text("Results File", "/runs/job & \"a\" <b>.rst"),
                       Attr::Text("Model File", "wheel.odb"),
                       Attr::Unsigned("Model File Size", 5000000),
                       Attr::Unsigned("Number of Nodes in the Model", 1200),
                       Attr::Double("Results File Size", 1.5e7),
                       Attr::Text("Ignored", "x"),
                       Attr::Unsigned("Number of Elements in the Model", 900)};
    model.Group({1, 0, 0, 0, 2, 2, "wheel", "Group", "0.4"}, root);
    model.Group({2, 1, 0, 0, 3, 3, "Geometry", "Group", "0.4"});
    model.Shape({3, 2, 0, 0, 4, 4, "Wheel", "Shape", "0.2"});
    model.Geometry(
        {4, 3, 0, 0, 0, 0, "Wheel", "Geometry", "0.7"},
        {GeomItem{
             .name = "Stress\x1EStep 1", .kind = 12, .attributes = {Attr::Float("Time", 0.5f)}},
         GeomItem{
             .name = "Stress\x1EStep 2", .kind = 12, .attributes = {Attr::Float("Time", 1.0f)}}});
    Write("wheel.zol", model.Build());
    ASSERT_EQ(truncate((work + "/wheel.zol").c_str(), 5000000), 0);

    // clang-format off
    Entries entries = {
        {"Application name (Original Modification)", "Importer"},
        {"Application version (Original Modification)", "2.0"},
        {"Zol version (Original Modification)", "0.6"},
        {"User name (Original Modification)", "first"},
        {"Date (Original Modification)", "2013-01-01"},
        {"Comment (Original Modification)", "initial"},
        {"Application name (Latest Translation)", "Translator"},
        {"Application version (Latest Translation)", "3.1"},
        {"Zol version (Latest Translation)", "0.7"}, {"User name (Latest Translation)", "analyst"},
        {"Date (Latest Translation)", "2014-03-01"}, {"Model File", "wheel.odb"},
        {"Model File Type", "ABAQUS ODB"}, {"Native Model File Size", "5000000"},
        {"Results File", "/runs/job & \"a\" <b>.rst"}, {"Results File Type", "ANSYS RST"},
        {"Native Results File Size", "1.5e+07"},
        {"Number of Nodes", "1200"}, {"Number of Elements", "900"},
        {"Zol File Size", "4.76837 MB"}, {"Category", "Transient"}};
    const Entries results = {
        {"Number of Results", "1"}, {"Number of Instances", "2"}, {"Parts", "Wheel"},
        {"Results", "Stress"}, {"Instances", "Step 1, Step 2"}, {"Time Steps", "0.5, 1"}};
    // clang-format on
    const Entries counts = Counts("1");
    entries.insert(entries.end(), counts.begin(), counts.end());
    entries.insert(entries.end(), results.begin(), results.end());
    EXPECT_EQ(Body(Output(Run({"wheel.zol"})), false), Lines(entries));
    EXPECT_EQ(Output(Run({"--ekm-meta-data", "wheel.zol"})), "");
    EXPECT_EQ(Body(ReadText(work + "/ekm-meta-data.xml"), true), Lines(entries, true));
}

// ---- Models with shapes, and the data dump ----

GeomItem Floats(ModelBuilder& model, std::string name, uint32_t kind,
                const std::vector<float>& values, uint8_t components = 1) {
    return model.HeavyItem(std::move(name), kind, FloatBits(values), components);
}

// One node (id 7 at 1, 2, 3), one element on it, and "Stress" 0.5 without instance.
std::vector<GeomItem> OneNodeMesh(ModelBuilder& model, bool stress = true) {
    std::vector<GeomItem> items{
        Floats(model, "Coordinates", 0, {1, 2, 3}, 3), Floats(model, "Node Ids", 12, {7}),
        model.HeavyItem("Polylength", 5, {1}), model.HeavyItem("Connectivity", 4, {7})};
    if (stress) items.push_back(Floats(model, "Stress", 12, {0.5f}));
    return items;
}
const std::string kOneNodeMesh =
    "    Coordinates : \n             7             1             2             3\n\n"
    "    Connectivity : \n         1           7\n\n";
const std::string kStaticWheelHead = "Analysis : \n    Static\n\nElement Sets : \n    Wheel\n\n";
// The rest of a dump of OneNodeMesh.
const std::string kStressHalf = "Results : \n    Stress    1\n\nInstances : \n    \n\n" +
                                kOneNodeMesh +
                                "Data : \n    Results: Node Ids, Stress\n    Values : \n"
                                "             7           0.5\n\n";

using Part = std::pair<std::string, std::vector<GeomItem>>;

// Groups "Model" > "Static" > "Geometry" over one shape per part, each with a Geometry named
// `prefix` + its name that holds its items. Shape i has id 4 + 2i, its Geometry 5 + 2i.
Bytes Shapes(ModelBuilder& model, const std::vector<Part>& parts, const std::string& prefix) {
    const uint32_t last = 4 + 2 * uint32_t(parts.size() - 1);
    model.Group({1, 0, 0, 0, 2, 2, "Model", "Group", "0.1"});
    model.Group({2, 1, 0, 0, 3, 3, "Static", "Group", "0.1"});
    model.Group({3, 2, 0, 0, 4, last, "Geometry", "Group", "0.1"});
    for (uint32_t id = 4; id <= last; id += 2) {
        const auto& [name, items] = parts[(id - 4) / 2];
        model.Shape({id, 3, id == 4 ? 0 : id - 2, id == last ? 0 : id + 2, id + 1, id + 1, name,
                     "Shape", "0.1"});
        model.Geometry({id + 1, id, 0, 0, 0, 0, prefix + name, "Geometry", "0.7"}, items);
    }
    return model.Build();
}

// Model > Static > Geometry > Shape "Wheel" > Geometry "Wheel" with the given items.
Bytes OneShape(ModelBuilder& model, std::vector<GeomItem> items) {
    return Shapes(model, {{"Wheel", items}}, "");
}

// Which items count as results: kind above 11 as a signed number, and neither "Node Ids" nor
// "Element IDs"; a link adds its names too.
TEST_F(ToolRun, ResultArraysByKindAndName) {
    ModelBuilder model;
    auto named = [](std::string name, uint32_t kind, std::vector<Attr> attributes = {}) {
        return GeomItem{.name = std::move(name), .kind = kind, .attributes = std::move(attributes)};
    };
    Write(
        "kinds.zol",
        OneShape(model, {named("Eleven", 11), named("Twelve", 12), named("Minus", 0xFFFFFFFF),
                         named("Low bits 11", 0x10B), named("Low bits 12", 0x10C),
                         named("Element IDs", 12), named("Element Ids", 13), named("Node Ids", 12),
                         named("Stress\x1EStep 1\x1EInc 2", 12,
                               {Attr::Float("Time", 2.0f), Attr::Text("Title", "Load")}),
                         GeomItem{.name = "Linked\x1EStep 3",
                                  .kind = 12,
                                  .link = true,
                                  .linkedGeometryId = 5,
                                  .linkedDataIndex = 1}}));
    std::string body = Body(Output(Run({"kinds.zol"})), false);
    size_t title = body.find("        <attribute name=\"Title\"");
    ASSERT_NE(title, std::string::npos) << body;
    EXPECT_EQ(body.substr(title),
              Lines({{"Title", "Load"}, {"Category", "Transient"}}) + Lines(Counts("1")) +
                  Lines({{"Number of Results", "5"},
                         {"Number of Instances", "2"},
                         {"Parts", "Wheel"},
                         {"Results", "Element Ids, Linked, Low bits 12, Stress, Twelve"},
                         {"Instances", "Step 1 Inc 2, Step 3"},
                         {"Time Steps", "2"}}));
}

TEST_F(ToolRun, DumpOfSmallestModel) {
    ModelBuilder model;
    for (const Bytes& run :
         {Planes(FloatBits({1.5f, -2.0f})), Planes(FloatBits({0.0f, 0.25f})),
          Planes(FloatBits({-2.25f, 1250000.0f})), Planes(FloatBits({1.0f, 2.0f})), Planes({2}),
          Planes({1, 2}), Planes(FloatBits({0.1f, 123456789.0f}))}) {
        model.AddHeavy(run);
    }
    ASSERT_EQ(model.heavyData.Size(), 52u);
    auto item = [](std::string name, uint32_t kind, uint32_t size, uint8_t components,
                   uint64_t position) {
        return GeomItem{.name = std::move(name),
                        .kind = kind,
                        .byteSize = size,
                        .components = components,
                        .position = position};
    };
    OneShape(model, {item("Coordinates", 0, 24, 3, 0), item("Node Ids", 12, 8, 1, 24),
                     item("Polylength", 5, 4, 1, 32), item("Connectivity", 4, 8, 1, 36),
                     item("Stress\x1EStep", 12, 8, 1, 44)});
    model.attributes = BlockWriter();  // the model needs no "Attributes" block
    Write("small.zol", model.Build());

    const std::string expected =
        kStaticWheelHead +
        "Results : \n    Stress    1\n\n"
        "Instances : \n    Step\n\n"
        "    Coordinates : \n"
        "             1           1.5             0         -2.25\n"
        "             2            -2          0.25      1.25e+06\n"
        "\n"
        "    Connectivity : \n"
        "         2           1           2\n"
        "\n"
        "Data : \n    Instance : Step\n    Results: Node Ids, Stress\n    Values : \n"
        "             1           0.1\n"
        "             2    1.23457e+08\n"
        "\n";
    EXPECT_EQ(Output(Run({"--extract-data", "small.zol"})), expected);
    EXPECT_EQ(Output(Run({"--extract-data", "small.zol", "dump.txt"})), "");
    EXPECT_EQ(ReadText(work + "/dump.txt"), expected);
}

TEST_F(ToolRun, DumpsOfShapesAndLinks) {
    // Two instances of one result: one line under "Results : ", a section for each.
    ModelBuilder two;
    std::vector<GeomItem> items = OneNodeMesh(two, false);
    items.push_back(Floats(two, "Stress\x1EStep 1", 12, {0.5f}));
    items.push_back(Floats(two, "Stress\x1EStep 2", 12, {1.5f}));
    EXPECT_EQ(Dump(OneShape(two, items)),
              kStaticWheelHead +
                  "Results : \n    Stress    1\n\nInstances : \n    Step 1\n    Step 2\n\n" +
                  kOneNodeMesh +
                  "Data : \n    Instance : Step 1\n    Results: Node Ids, Stress\n    Values : \n"
                  "             7           0.5\n\n"
                  "Data : \n    Instance : Step 2\n    Results: Node Ids, Stress\n    Values : \n"
                  "             7           1.5\n\n");

    // Two nodes: a result of two values per node gives two columns, one shorter than the node
    // count gives none.
    ModelBuilder m;
    EXPECT_EQ(
        Dump(OneShape(m, {Floats(m, "Coordinates", 0, {1, 2, 3, 4, 5, 6}, 3),
                          Floats(m, "Node Ids", 12, {7, 8}), m.HeavyItem("Polylength", 5, {2}),
                          m.HeavyItem("Connectivity", 4, {7, 8}), Floats(m, "Short", 12, {9.5f}),
                          Floats(m, "Pair", 12, {1, 2, 3, 4, 5})})),
        kStaticWheelHead +
            "Results : \n    Pair    2\n    Short    0\n\nInstances : \n    \n\n"
            "    Coordinates : \n"
            "             7             1             2             3\n"
            "             8             4             5             6\n\n"
            "    Connectivity : \n         2           7           8\n\n"
            "Data : \n    Results: Node Ids, Short, Pair\n    Values : \n"
            "             7             1             2\n"
            "             8             3             4\n\n");

    // Without node ids no mesh lines, no results.
    ModelBuilder noIds;
    items = OneNodeMesh(noIds);
    items.erase(items.begin() + 1);
    EXPECT_EQ(
        Dump(OneShape(noIds, items)),
        kStaticWheelHead + "    Coordinates : \n\n    Connectivity : \n         1           7\n\n");

    // Two parts: the later "Node Ids" stands first and gives the node count, the mesh is the
    // later part's, and arrays shorter than the node count give no column.
    ModelBuilder parts;
    items = OneNodeMesh(parts);
    std::vector<GeomItem> second{
        Floats(parts, "Coordinates", 0, {4, 5, 6, 7, 8, 9}, 3),
        Floats(parts, "Node Ids", 12, {8, 9}), parts.HeavyItem("Polylength", 5, {2}),
        parts.HeavyItem("Connectivity", 4, {8, 9}), Floats(parts, "Stress", 12, {1, 2})};
    EXPECT_EQ(Dump(Shapes(parts, {{"A", items}, {"B", second}}, "Geo")),
              "Analysis : \n    Static\n\nElement Sets : \n    GeoA\n\n"
              "Results : \n    Stress    0\n\nInstances : \n    \n\n"
              "    Coordinates : \n"
              "             8             4             5             6\n"
              "             9             7             8             9\n\n"
              "    Connectivity : \n         2           8           9\n\n"
              "Data : \n    Results: Node Ids, Node Ids, Stress, Stress\n    Values : \n"
              "             8             1\n"
              "             9             2\n\n");

    // Shapes A, B and C; the arrays are B's, A and C link to them. A's link points forward
    // and adds nothing; C's adds its Geometry's name.
    ModelBuilder links;
    items = OneNodeMesh(links);
    GeomItem link{.name = "Coordinates", .link = true, .linkedGeometryId = 7};
    GeomItem stress{
        .name = "Stress", .kind = 12, .link = true, .linkedGeometryId = 7, .linkedDataIndex = 4};
    EXPECT_EQ(Dump(Shapes(links, {{"A", {link}}, {"B", items}, {"C", {link, stress}}}, "Geo")),
              "Analysis : \n    Static\n\nElement Sets : \n    GeoB\n    GeoC\n\n" + kStressHalf);
    // Each link result still counts in the summary.
    EXPECT_NE(Output(Run({"dump.zol"})).find("\"Number of Parts\" value=\"3\""), std::string::npos);
}

// A payload past the end of "Heavy Data" ends the pass: what was read before is dumped.
TEST_F(ToolRun, FailingReadEndsThePass) {
    ModelBuilder model;
    std::vector<GeomItem> items = OneNodeMesh(model);
    GeomItem broken = Floats(model, "Broken", 12, {1.0f});
    broken.position = 1000;
    items.push_back(broken);
    items.push_back(Floats(model, "Later", 12, {2.0f}));
    Write("broken.zol", OneShape(model, items));
    EXPECT_EQ(
        Output(Run({"--extract-data", "broken.zol"}),
               "Exception \"Out of Bounds\" raised. \nDescription : Invalid block position \n"),
        kStaticWheelHead + kStressHalf);
    // The report doesn't read arrays, so the same file reports without a failure.
    EXPECT_NE(Output(Run({"broken.zol"})).find("value=\"Broken, Later, Stress\""),
              std::string::npos);
}

TEST_F(ToolRun, PartsOfTheSummary) {
    // A shape without a child ends the summary's pass after it has been counted.
    ModelBuilder lonely;
    lonely.Group({1, 0, 0, 0, 2, 2, "Model", "Group", "0.1"});
    lonely.Group({2, 1, 0, 0, 3, 4, "Geometry", "Group", "0.1"});
    lonely.Shape({3, 2, 0, 4, 0, 0, "Lonely", "Shape", "0.1"});
    lonely.Group({4, 2, 3, 0, 5, 5, "Cut-Sections", "Group", "0.1"});
    lonely.Shape({5, 4, 0, 0, 0, 0, "Cut", "Shape", "0.1"});
    Write("lonely.zol", lonely.Build());
    std::string report = Output(Run({"lonely.zol"}),
                                "Exception \"Element Not Found\" raised. \n"
                                "Description : Element Not Found \n");
    EXPECT_NE(report.find(Lines(Counts("1"))), std::string::npos) << report;

    // A shape in a subgroup of "Geometry" is a part of the analysis above "Geometry", but only
    // if "Geometry" has a group above it.
    for (const bool above : {true, false}) {
        ModelBuilder model;
        std::vector<GeomItem> items = OneNodeMesh(model, false);
        const uint32_t g = above ? 3 : 1;  // the id of "Geometry"
        if (above) {
            model.Group({1, 0, 0, 0, 2, 2, "Model", "Group", "0.1"});
            model.Group({2, 1, 0, 0, 3, 3, "Static", "Group", "0.1"});
        }
        model.Group({g, g - 1, 0, 0, g + 1, g + 1, "Geometry", "Group", "0.1"});
        model.Group({g + 1, g, 0, 0, g + 2, g + 2, "Body", "Group", "0.1"});
        model.Shape({g + 2, g + 1, 0, 0, g + 3, g + 3, "Wheel", "Shape", "0.1"});
        model.Geometry({g + 3, g + 2, 0, 0, 0, 0, "Wheel", "Geometry", "0.7"}, items);
        EXPECT_EQ(Dump(model.Build()), std::string("Analysis : \n    ") +
                                           (above ? "Static" : "Geometry") +
                                           "\n\nElement Sets : \n    Wheel\n\n"
                                           "Results : \n\nInstances : \n\n" +
                                           kOneNodeMesh);
        EXPECT_TRUE(Output(Run({"dump.zol"}))
                        .ends_with(Lines(Counts(above ? "1" : "0")) +
                                   (above ? Lines({{"Parts", "Wheel"}}) : "") +
                                   "</mrl:metadata>\n"));
    }
}

TEST_F(ToolRun, BundledExample) {
    const std::string example = std::string(ZOL_SOURCE_DIR) + "/examples/wheel.zol";
    Body(Output(Run({example})), false);
    EXPECT_TRUE(Output(Run({"--extract-data", example})).starts_with("Analysis : \n"));
    EXPECT_EQ(Output(Run({"--ekm-meta-data", example})), "");
    std::string ekm = Body(ReadText(work + "/ekm-meta-data.xml"), true);
    EXPECT_NE(ekm.find("<data name=\"numberofParts\" value=\"1\"/>"), std::string::npos) << ekm;
}

}  // namespace
