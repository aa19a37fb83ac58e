#include "Mrl/Log/LogManager.h"

#include <unistd.h>

#include <cstdlib>

namespace Mrl::Log {

namespace {
thread_local bool quiet = false;
}

QuietScope::QuietScope() : wasQuiet(quiet) {
    quiet = true;
}

QuietScope::~QuietScope() {
    quiet = wasQuiet;
}

LogManager& LogManager::Instance() {
    // Never destroyed: records may be published from destructors of other statics.
    static LogManager* instance = new LogManager();
    return *instance;
}

LogManager::LogManager() {
    AddLevelFilter("__Default__", 2000);
    AddDefaultFormatter("__Default__");
}

void LogManager::Publish(const Util::LogRecord& record) {
    if (quiet) return;
    for (const Route& route : routes) {
        if (!(*filters[route.filter])(record)) continue;
        std::string text = (*formatters[route.formatter])(record);
        publishers[route.publisher]->Publish(text.c_str());
        publishers[route.publisher]->Flush();
    }
}

void LogManager::AddPublisher(const std::string& name, Publisher* publisher) {
    uint64_t index = publishers.size();
    publishers.emplace_back(publisher);
    publisherNames[name] = index;
    routes.push_back({index, filterNames.at("__Default__"), formatterNames.at("__Default__")});
}

void LogManager::AddLevelFilter(const std::string& name, unsigned level) {
    if (filterNames.count(name) != 0) return;
    if (level >= 2000) {
        filters.emplace_back(new LevelFilter<2000>());
    } else {
        filters.emplace_back(new LevelFilter<1000>());
    }
    filterNames[name] = filters.size() - 1;
}

void LogManager::AddDefaultFormatter(const std::string& name) {
    if (formatterNames.count(name) != 0) return;
    formatters.emplace_back(new DefaultFormatter());
    formatterNames[name] = formatters.size() - 1;
}

void LogManager::SetPublisherFilter(const std::string& publisherName,
                                    const std::string& filterName) {
    auto publisher = publisherNames.find(publisherName);
    auto filter = filterNames.find(filterName);
    if (publisher == publisherNames.end() || filter == filterNames.end()) return;
    for (Route& route : routes) {
        if (route.publisher == publisher->second) route.filter = filter->second;
    }
}

namespace {

void TurnOn(const char* publisherName, Publisher* (*make)(const char*), const char* path) {
    LogManager& manager = LogManager::Instance();
    manager.AddLevelFilter("trace log", 1000);
    if (!manager.HasPublisher(publisherName)) manager.AddPublisher(publisherName, make(path));
    manager.SetPublisherFilter(publisherName, "trace log");
}

}  // namespace

void SetLogFile(const char* path) {
    TurnOn(
        "log file", [](const char* p) -> Publisher* { return new FilePublisher(p); }, path);
}

void LogToNull() {
    TurnOn(
        "log to null", [](const char*) -> Publisher* { return new NullPublisher(); }, "");
}

void SetupTraceLog(std::ostream& err) {
    std::string directory;
    if (const char* temp = std::getenv("MORLANE_TEMP_PATH")) directory = temp;
    if (directory.empty()) {
        if (const char* home = std::getenv("HOME")) directory = home;
    }
    directory += '/';
    if (access(directory.c_str(), W_OK) != 0) {
        err << "Unable to set log file."
            << "Log information will be discorded." << '\n';
        LogToNull();
        return;
    }
    std::string path = directory + "ZolInfo_trace.log";
    err << "Writing log to \"" << path << "\"" << '\n';
    SetLogFile(path.c_str());
}

}  // namespace Mrl::Log
