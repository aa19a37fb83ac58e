#pragma once
// What the public handles hold. Internal: never installed.
#include <cstdint>
#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "Mrl/Log/LogManager.h"
#include "Mrl/Model.h"
#include "Mrl/Zol/ArrayRecord.h"
#include "Mrl/Zol/Tree.h"

namespace Mrl {

// The loaded tree that a model and its arrays share. Every read moves the tree's index and
// stream, so reads take the mutex.
struct OpenFile {
    std::string path;
    std::mutex mutex;
    MrlZol::Tree tree;
};

struct Array::Details {
    std::shared_ptr<OpenFile> file;  // first: it outlives the record's loader
    MrlZol::ArrayRecord record;
    unsigned components = 1;
    std::string where;  // how errors name the array
};

struct Model::Details {
    std::shared_ptr<OpenFile> file;
    std::string version;
    std::vector<std::pair<std::string, std::string>> report;
    std::vector<std::pair<std::string, std::string>> ekmReport;
    std::vector<Translation> history;
    std::vector<Array> arrays;
};

// The public handle of one array of the file; made in Array.cpp, which knows its insides.
Array MakeArray(std::shared_ptr<OpenFile> file, MrlZol::ArrayRecord record);

// The public form of a failure of the internals: their exception, an inflate failure, or
// anything else derived from std::exception. std::bad_alloc is not converted.
Error ToError(const std::exception& failure, const std::string& file,
              const std::string& where = std::string());

// Runs body with the internals' log silenced, turning their failures into Errors.
template <class Body>
auto Guarded(const std::string& file, const std::string& where, Body&& body) {
    Log::QuietScope quiet;
    try {
        return body();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const Error&) {
        throw;
    } catch (const std::exception& failure) {
        throw ToError(failure, file, where);
    }
}

}  // namespace Mrl
