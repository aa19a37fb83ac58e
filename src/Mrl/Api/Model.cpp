#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "Details.h"
#include "Mrl/Util/Exception.h"
#include "Mrl/Zol/ModelFacts.h"

#ifndef MRL_VERSION
#define MRL_VERSION "0.0.0"
#endif

namespace Mrl {

namespace {

// A FIFO or a device would block the open or never end; a missing file says why.
void RequireRegularFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        int number = errno;
        char buffer[256];
        // The GNU form: returns the text, which may not be in buffer.
        const char* text = strerror_r(number, buffer, sizeof buffer);
        throw Error(Util::Kind::ReadError, path, text, std::string(), number);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Error(Util::Kind::ReadError, path, "Not a regular file");
    }
}

std::vector<Translation> ToHistory(const std::vector<MrlZol::TranslationRecord>& records) {
    std::vector<Translation> history;
    history.reserve(records.size());
    for (const MrlZol::TranslationRecord& record : records) {
        history.push_back({record.applicationName, record.applicationVersion, record.zolVersion,
                           record.date, record.extraText, record.userName, record.comment});
    }
    return history;
}

}  // namespace

Model Model::Open(const std::string& path, const WarningHandler& onWarning) {
    RequireRegularFile(path);
    auto file = std::make_shared<OpenFile>();
    file->path = path;
    auto details = std::make_shared<Details>();
    Guarded(path, std::string(), [&] {
        // The size is taken before the file is opened, as ZolInfo takes it.
        std::string fileSizeText = MrlZol::FileSizeText(path);
        int32_t openMode = 1;
        int32_t loadKind = 0;
        file->tree.Load(path, openMode, loadKind);
        auto warn = [&](const std::exception& failure) {
            if (onWarning) onWarning(ToError(failure, path));
        };
        // One pass gives the report's facts and the dump's arrays; payloads are read later.
        MrlZol::ModelFacts facts =
            MrlZol::CollectModelFacts(file->tree, fileSizeText, true, warn, false);
        for (const MrlZol::ReportEntry& entry : MrlZol::ReportEntries(facts)) {
            details->report.emplace_back(entry.key, entry.value);
            details->ekmReport.emplace_back(MrlZol::ToEkmKey(entry.key), entry.value);
        }
        details->history = ToHistory(facts.translations);
        details->version = file->tree.version;
        for (MrlZol::ArrayRecord& record : facts.arrays) {
            details->arrays.push_back(MakeArray(file, std::move(record)));
        }
    });
    details->file = std::move(file);
    return Model(std::move(details));
}

Model::Model(std::shared_ptr<const Details> details) : details(std::move(details)) {}
Model::Model(const Model&) = default;
Model::Model(Model&&) noexcept = default;
Model& Model::operator=(const Model&) = default;
Model& Model::operator=(Model&&) noexcept = default;
Model::~Model() = default;

const Model::Details& Model::Get() const {
    if (!details) throw Error(Util::Kind::NotInitialized, std::string(), "Model was moved from");
    return *details;
}

const std::string& Model::Path() const {
    return Get().file->path;
}

const std::string& Model::Version() const {
    return Get().version;
}

std::vector<std::pair<std::string, std::string>> Model::Report() const {
    return Get().report;
}

std::vector<std::pair<std::string, std::string>> Model::EkmReport() const {
    return Get().ekmReport;
}

const std::vector<Translation>& Model::History() const {
    return Get().history;
}

const std::vector<Array>& Model::Arrays() const {
    return Get().arrays;
}

const char* Version() noexcept {
    return MRL_VERSION;
}

}  // namespace Mrl
