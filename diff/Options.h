#pragma once
// The command line of ZolDiff.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "diff/Tolerance.h"

namespace ZolDiff {

enum class Match {
    Ids,    // nodes and elements by their ids where both models have them, else by order
    Order,  // every value by its position
};

struct TolerancePattern {
    std::string glob;  // matched against the result name
    PartialTolerance tolerance;
};

struct Options {
    std::string pathA, pathB;
    Tolerance defaults;
    std::vector<TolerancePattern> patterns;  // first match wins
    std::vector<std::string> ignore;         // result names
    std::vector<std::string> ignoreEntry;    // report entry names
    Match match = Match::Ids;
    uint64_t maxReport = 10;
    bool quiet = false;
    std::optional<std::string> json;  // "-": standard output
    bool help = false;
    bool version = false;

    // The tolerance of an array of this result name.
    Tolerance For(const std::string& result) const;
    bool Ignored(const std::string& result) const;
    bool EntryIgnored(const std::string& name) const;
};

// Parses args (args[0] is the program name). On failure returns nothing and sets `error` to
// one line saying what is wrong.
std::optional<Options> ParseOptions(const std::vector<std::string>& args, std::string& error);

// The text of --help.
std::string Usage(const std::string& program);

}  // namespace ZolDiff
