#include "Run.h"

#include <sys/stat.h>

#include <fstream>

#include "DataDump.h"
#include "Mrl/Log/LogManager.h"
#include "Mrl/Util/ErrorStream.h"
#include "Mrl/Zol/ModelFacts.h"
#include "Mrl/Zol/Tree.h"
#include "PeakMemory.h"
#include "ReportWriter.h"

namespace ZolInfo {

namespace {

struct Arguments {
    ReportMode mode = ReportMode::Metadata;
    std::vector<std::string> positionals;
};

Arguments ScanArguments(const std::vector<std::string>& args) {
    Arguments scanned;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--ekm-meta-data") {
            scanned.mode = ReportMode::EkmMetaData;
        } else if (arg == "--extract-data") {
            scanned.mode = ReportMode::ExtractData;
        } else if (arg.compare(0, 2, "--") != 0) {
            scanned.positionals.push_back(arg);
        }
    }
    return scanned;
}

// True when both paths name one existing file: the output must never replace the model.
bool SameFile(const std::string& a, const std::string& b) {
    struct stat first {
    }, second{};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// Opens the output file that applies, if any; one that would replace the model file counts
// as one that can't be opened.
void OpenOutput(std::ofstream& file, const Arguments& arguments, const std::string& zolPath) {
    std::string path;
    if (arguments.mode == ReportMode::EkmMetaData) {
        path = "ekm-meta-data.xml";
    } else if (arguments.positionals.size() > 1) {
        path = arguments.positionals[1];
    }
    if (path.empty() || SameFile(path, zolPath)) return;
    file.open(path, std::ios::out | std::ios::trunc);
}

// Points the library's direct error messages at this run's stream while it lasts.
class ErrorStreamScope {
public:
    explicit ErrorStreamScope(std::ostream& err) { Mrl::Util::SetErrorStream(&err); }
    ~ErrorStreamScope() { Mrl::Util::SetErrorStream(nullptr); }
};

}  // namespace

int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ErrorStreamScope errorScope(err);
    Mrl::Log::SetupTraceLog(err);
    Arguments arguments = ScanArguments(args);
    if (arguments.positionals.empty()) {
        out << "Usage: " << (args.empty() ? std::string() : args[0])
            << " [options] <zol_file_path> [output_file_path]" << '\n';
        return 1;
    }
    const std::string zolPath = arguments.positionals[0];
    auto report = [&err](const std::exception& failure) {
        err << "Exception: " << failure.what() << '\n';
    };
    MrlZol::Tree tree;
    const std::string zolFileSizeText = MrlZol::FileSizeText(zolPath);
    try {
        int32_t openMode = 1;
        int32_t loadKind = 0;
        tree.Load(zolPath, openMode, loadKind);
    } catch (const std::exception& failure) {
        report(failure);
        return 2;
    }
    MrlZol::ModelFacts facts = MrlZol::CollectModelFacts(
        tree, zolFileSizeText, arguments.mode == ReportMode::ExtractData, report);

    out << "Peak Memory Usage: " << FormatPeakMemory() << '\n';

    std::ofstream outputFile;
    OpenOutput(outputFile, arguments, zolPath);
    std::ostream& target = outputFile.is_open() ? static_cast<std::ostream&>(outputFile) : out;
    if (arguments.mode == ReportMode::ExtractData) {
        // The pass has checked every array it kept, so a read fails here only when memory
        // runs out; the dump then ends where it stands, reported like a collecting failure.
        try {
            WriteDataDump(facts.arrays, target);
        } catch (const std::exception& failure) {
            report(failure);
        }
    } else {
        target << FormatReport(MrlZol::ReportEntries(facts), arguments.mode);
    }
    target.flush();
    if (outputFile.is_open()) outputFile.close();
    return 0;
}

}  // namespace ZolInfo
