#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Mrl/Log/Filter.h"
#include "Mrl/Log/Formatter.h"
#include "Mrl/Log/Publisher.h"
#include "Mrl/Util/LogRecord.h"

namespace Mrl::Log {

// The process-wide log: routes join one publisher, one filter and one formatter each.
class LogManager {
public:
    struct Route {
        uint64_t publisher;
        uint64_t filter;
        uint64_t formatter;
    };

    static LogManager& Instance();

    void Publish(const Util::LogRecord& record);
    void AddPublisher(const std::string& name, Publisher* publisher);
    void AddLevelFilter(const std::string& name, unsigned level);
    void AddDefaultFormatter(const std::string& name);
    void SetPublisherFilter(const std::string& publisherName, const std::string& filterName);

    bool HasPublisher(const std::string& name) const { return publisherNames.count(name) != 0; }
    const std::vector<Route>& GetRoutes() const { return routes; }

private:
    LogManager();

    std::vector<Route> routes;
    std::vector<std::unique_ptr<Publisher>> publishers;
    std::vector<std::unique_ptr<Filter>> filters;
    std::vector<std::unique_ptr<Formatter>> formatters;
    std::map<std::string, uint64_t> publisherNames;
    std::map<std::string, uint64_t> filterNames;
    std::map<std::string, uint64_t> formatterNames;
};

// While one lives in a thread, nothing the thread publishes reaches the log: the trace log is
// the tool's, and a program on the public API gets none.
class QuietScope {
public:
    QuietScope();
    ~QuietScope();
    QuietScope(const QuietScope&) = delete;
    QuietScope& operator=(const QuietScope&) = delete;

private:
    bool wasQuiet;
};

// Turns the trace log on, to a file; a second call keeps the first file.
void SetLogFile(const char* path);
// Turns the trace log on, to nowhere.
void LogToNull();
// Places the trace log ($MORLANE_TEMP_PATH, else $HOME), announces it on err and turns it on.
void SetupTraceLog(std::ostream& err);

}  // namespace Mrl::Log
