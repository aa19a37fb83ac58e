#pragma once
// Runs ZolDiff in-process on models written into a scratch directory.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "CaseFiles.h"
#include "DiffModel.h"
#include "diff/ModelCompare.h"
#include "diff/Options.h"
#include "diff/Run.h"

namespace ZolTest {

struct Outcome {
    int status = -1;
    std::string out, err;
};

class DiffFixture : public testing::Test {
protected:
    std::string Write(const DiffModel& model, const std::string& name) {
        return dir_.Write(model.Build(), name);
    }
    std::string Write(const Bytes& bytes, const std::string& name) {
        return dir_.Write(bytes, name);
    }
    std::string Path(const std::string& name) const { return dir_ / name; }

    // The run's status and streams; the scratch directory reads as $WORK.
    Outcome Diff(const std::vector<std::string>& args) const {
        std::vector<std::string> all = {"ZolDiff"};
        all.insert(all.end(), args.begin(), args.end());
        std::ostringstream out, err;
        Outcome outcome;
        outcome.status = ZolDiff::Run(all, out, err);
        outcome.out = Normalise(out.str());
        outcome.err = Normalise(err.str());
        return outcome;
    }

    // The report behind a run of these arguments (which must be good).
    ZolDiff::DiffReport Report(const std::vector<std::string>& args) const {
        std::vector<std::string> all = {"ZolDiff"};
        all.insert(all.end(), args.begin(), args.end());
        std::string error;
        const std::optional<ZolDiff::Options> options = ZolDiff::ParseOptions(all, error);
        EXPECT_TRUE(options.has_value()) << error;
        if (!options) return {};
        return ZolDiff::CompareModels(Mrl::Model::Open(options->pathA),
                                      Mrl::Model::Open(options->pathB), *options);
    }

    std::string Normalise(std::string text) const {
        const std::string root = dir_.path.string();
        for (size_t at = text.find(root); at != std::string::npos; at = text.find(root, at)) {
            text.replace(at, root.size(), "$WORK");
        }
        return text;
    }

    TempDir dir_;
};

}  // namespace ZolTest
