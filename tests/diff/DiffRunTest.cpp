// The command as a user meets it: statuses and the one line on standard error for bad options
// and damaged models, the JSON document alone on standard output, --quiet, and the text and
// JSON reports of planted differences kept as golden files.
#include <gtest/gtest.h>

#include <filesystem>

#include "DiffModel.h"
#include "DiffSupport.h"

namespace {

using namespace ZolTest;
namespace fs = std::filesystem;

const fs::path kGolden = fs::path(ZOL_SOURCE_DIR) / "tests/diff/golden";

class DiffRun : public DiffFixture {
protected:
    void SetUp() override {
        a = Write(Plate(), "a.zol");
        DiffModel changed =
            Reordered(Plate(), {1, 0, 2, 3, 4, 5, 6, 7, 8, 9, 11, 10}, {0, 1, 2, 3, 5, 4});
        changed.Result("Stress\x1EStep 1").values[0] = 250;                    // node 102
        changed.Result("Displacement\x1EStep 1").values[3 * 10 + 1] = -0.25f;  // node 112
        changed.Result("Energy\x1EStep 1").values[4] = 9.25f;                  // element 6
        changed.results.pop_back();
        changed.comment = "second run";
        changed.nodeIds[5] = 1006;
        b = Write(changed, "b.zol");
    }
    std::string a, b;
};

struct Refused {
    std::vector<std::string> args;  // "A" and "B" stand for the models
    std::string err;
};

TEST_F(DiffRun, BadOptionsAreOneLineAndStatus2) {
    const Refused cases[] = {
        {{"A"}, "ZolDiff: needs two models, 1 given (ZolDiff [options] A.zol B.zol)\n"},
        {{"A", "B", "A"}, "ZolDiff: needs two models, 3 given (ZolDiff [options] A.zol B.zol)\n"},
        {{"--frob", "A", "B"}, "ZolDiff: unknown option --frob\n"},
        {{"A", "B", "--atol"}, "ZolDiff: --atol needs a value\n"},
        {{"--atol", "-1", "A", "B"},
         "ZolDiff: bad value for --atol: \"-1\" (a number, 0 or more)\n"},
        {{"--rtol=1e400", "A", "B"},
         "ZolDiff: bad value for --rtol: \"1e400\" (a number, 0 or more)\n"},
        {{"--ulps", "1.5", "A", "B"},
         "ZolDiff: bad value for --ulps: \"1.5\" (a whole number, 0 or more)\n"},
        {{"--match", "name", "A", "B"},
         "ZolDiff: bad value for --match: \"name\" (ids or order)\n"},
        {{"--tolerance", "Stress", "A", "B"},
         "ZolDiff: bad value for --tolerance: \"Stress\" (GLOB=rtol:R,atol:A,ulps:U)\n"},
        {{"--tolerance", "Stress=rtol:x", "A", "B"},
         "ZolDiff: bad value for --tolerance: \"Stress=rtol:x\": bad value for rtol: \"x\"\n"},
        {{"--tolerance", "Stress=rtol:1,rtol:2", "A", "B"},
         "ZolDiff: bad value for --tolerance: \"Stress=rtol:1,rtol:2\": rtol given twice\n"},
        {{"--tolerance", "Stress=tol:1", "A", "B"},
         "ZolDiff: bad value for --tolerance: \"Stress=tol:1\": unknown tolerance \"tol\" (atol, "
         "rtol or ulps)\n"},
        {{"--quiet=yes", "A", "B"}, "ZolDiff: --quiet takes no value\n"},
        {{"--json", "A", "A", "B"},
         "ZolDiff: the JSON report would replace a model: $WORK/a.zol\n"},
    };
    for (const Refused& refused : cases) {
        std::vector<std::string> args;
        for (const std::string& arg : refused.args)
            args.push_back(arg == "A" ? a : arg == "B" ? b : arg);
        const Outcome outcome = Diff(args);
        EXPECT_EQ(outcome.status, 2) << refused.err;
        EXPECT_EQ(outcome.err, refused.err);
        EXPECT_EQ(outcome.out, "");
    }
}

// Status 2 comes with one line on standard error and nothing on standard output; any other
// status with nothing on standard error.
void ExpectOutcomeShape(const Outcome& outcome, const std::string& model) {
    if (outcome.status == 2) {
        EXPECT_EQ(outcome.out, "") << model;
        EXPECT_EQ(outcome.err.rfind("ZolDiff: ", 0), 0u) << model;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    } else {
        EXPECT_EQ(outcome.err, "") << model;
    }
}

TEST_F(DiffRun, DamagedModelsAreStatus2WithTheRefusal) {
    const fs::path data = fs::path(ZOL_SOURCE_DIR) / "tests/data";
    std::vector<std::string> models = {Path("missing.zol"), dir_.path.string(),
                                       (data / "golden/bad-magic.zol").string()};
    // Cuts through every part of a model.
    const Bytes whole = Plate().Build();
    for (size_t cut = 0; cut < whole.size(); cut += 61) {
        models.push_back(Write(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut)),
                               "cut-" + std::to_string(cut) + ".zol"));
    }
    for (const std::string& model : models) {
        for (const auto& args : {std::vector<std::string>{a, model}, {model, a}, {model, model}}) {
            const Outcome outcome = Diff(args);
            EXPECT_EQ(outcome.status, 2) << model;
            ExpectOutcomeShape(outcome, model);
        }
    }
    // A payload that can't be read fails where it is compared.
    const std::string broken = (data / "golden/broken-payload.zol").string();
    const Outcome outcome = Diff({broken, broken});
    EXPECT_EQ(outcome.status, 2);
    ExpectOutcomeShape(outcome, broken);
}

TEST_F(DiffRun, HostileModelsEndWithAStatus) {
    for (const auto& entry :
         fs::directory_iterator(fs::path(ZOL_SOURCE_DIR) / "tests/data/hostile")) {
        const std::string model = entry.path().string();
        for (const auto& args : {std::vector<std::string>{a, model}, {model, model}}) {
            ExpectOutcomeShape(Diff(args), model);
        }
    }
}

TEST_F(DiffRun, TextReportOfPlantedDifferences) {
    const Outcome outcome = Diff({a, b});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "");
    ExpectFile(kGolden / "planted.txt", outcome.out);
}

TEST_F(DiffRun, JsonAloneOnStandardOutput) {
    const Outcome outcome = Diff({"--json", "-", "--max-report", "2", a, b});
    EXPECT_EQ(outcome.status, 1);
    ExpectFile(kGolden / "planted.json", outcome.out);
}

TEST_F(DiffRun, JsonFileBesideTheText) {
    const Outcome outcome = Diff({"--max-report=2", "--json", Path("report.json"), a, b});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(Normalise(ReadText(Path("report.json"))),
              ReadText((kGolden / "planted.json").string()));
    EXPECT_NE(outcome.out.find(" differ\n"), std::string::npos);
}

TEST_F(DiffRun, EqualModelsSayItInOneLine) {
    const Outcome outcome = Diff({a, a});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
              "$WORK/a.zol and $WORK/a.zol are equal: 9 arrays, 143 values compared\n");
    ExpectFile(kGolden / "equal.json", Diff({"--json", "-", a, a}).out);
}

TEST_F(DiffRun, QuietPrintsNothing) {
    for (const auto& pair : {std::pair{a, b}, std::pair{a, a}}) {
        const Outcome outcome = Diff({"-q", "--json", Path("quiet.json"), pair.first, pair.second});
        EXPECT_EQ(outcome.status, pair.second == b ? 1 : 0);
        EXPECT_EQ(outcome.out + outcome.err, "");
        EXPECT_TRUE(fs::exists(Path("quiet.json")));
    }
}

TEST_F(DiffRun, HelpAndVersion) {
    const Outcome help = Diff({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("Usage: ZolDiff [options] A.zol B.zol\n", 0), 0u);
    const Outcome version = Diff({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("ZolDiff ", 0), 0u);
}

}  // namespace
