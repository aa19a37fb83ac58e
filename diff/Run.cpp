#include "diff/Run.h"

#include <Mrl/Model.h>
#include <sys/stat.h>

#include <fstream>
#include <new>
#include <optional>

#include "diff/JsonReport.h"
#include "diff/ModelCompare.h"
#include "diff/Options.h"
#include "diff/TextReport.h"

namespace ZolDiff {

namespace {

// A failure that ends the run with status 2, its text on standard error.
struct Refusal {
    std::string text;
};

bool SameFile(const std::string& a, const std::string& b) {
    struct stat first {
    }, second{};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// A model that loads only in part (a step of its report failed) would compare as less than it
// is, so its warnings refuse it like a failure to load.
Mrl::Model Open(const std::string& path) {
    std::optional<Mrl::Error> warning;
    Mrl::Model model = Mrl::Model::Open(path, [&warning](const Mrl::Error& error) {
        if (!warning) warning = error;
    });
    if (warning) throw *warning;
    return model;
}

void WriteJson(const std::string& path, const std::string& json, std::ostream& out) {
    if (path == "-") {
        out << json;
        return;
    }
    std::ofstream file(path, std::ios::out | std::ios::trunc | std::ios::binary);
    file << json;
    file.close();
    if (!file) throw Refusal{"can't write the JSON report to " + path};
}

int Compare(const Options& options, std::ostream& out) {
    if (options.json && *options.json != "-" &&
        (SameFile(*options.json, options.pathA) || SameFile(*options.json, options.pathB))) {
        throw Refusal{"the JSON report would replace a model: " + *options.json};
    }
    const Mrl::Model a = Open(options.pathA);
    const Mrl::Model b = Open(options.pathB);
    const DiffReport report = CompareModels(a, b, options);
    if (options.json) WriteJson(*options.json, FormatJson(report), out);
    const bool jsonAlone = options.json && *options.json == "-";
    if (!options.quiet && !jsonAlone) out << FormatText(report);
    out.flush();
    return report.Equal() ? 0 : 1;
}

}  // namespace

int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        Trouble& trouble) {
    const std::string program = args.empty() ? "ZolDiff" : args[0];
    std::string error;
    const std::optional<Options> options = ParseOptions(args, error);
    trouble = Trouble::None;
    if (!options) {
        trouble = Trouble::Arguments;
        err << "ZolDiff: " << error << '\n';
        return 2;
    }
    if (options->help) {
        out << Usage(program);
        return 0;
    }
    if (options->version) {
        out << "ZolDiff " << Mrl::Version() << '\n';
        return 0;
    }
    try {
        return Compare(*options, out);
    } catch (const Refusal& refusal) {
        err << "ZolDiff: " << refusal.text << '\n';
    } catch (const Mrl::Error& failure) {
        err << "ZolDiff: " << failure.what() << '\n';
    } catch (const std::bad_alloc&) {
        err << "ZolDiff: out of memory\n";
    }
    trouble = Trouble::Model;
    return 2;
}

int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    Trouble trouble = Trouble::None;
    return Run(args, out, err, trouble);
}

}  // namespace ZolDiff
