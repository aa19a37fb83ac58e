#include "diff/Options.h"

#include <fnmatch.h>

namespace ZolDiff {

namespace {

bool Matches(const std::string& glob, const std::string& text) {
    return fnmatch(glob.c_str(), text.c_str(), 0) == 0;
}

bool AnyMatches(const std::vector<std::string>& globs, const std::string& text) {
    for (const std::string& glob : globs) {
        if (Matches(glob, text)) return true;
    }
    return false;
}

// Reads the options one at a time; a value comes as the next argument or behind '='.
class Scanner {
public:
    Scanner(const std::vector<std::string>& args, std::string& error)
        : args_(args), error_(error) {}

    bool Scan(Options& options);

private:
    bool Option(const std::string& name, const std::optional<std::string>& inlineValue,
                Options& options);
    std::optional<std::string> Value(const std::string& name,
                                     const std::optional<std::string>& inlineValue);
    bool Fail(const std::string& text) {
        error_ = text;
        return false;
    }

    const std::vector<std::string>& args_;
    std::string& error_;
    size_t next_ = 1;
};

bool Scanner::Scan(Options& options) {
    std::vector<std::string> paths;
    bool optionsEnded = false;
    while (next_ < args_.size()) {
        const std::string arg = args_[next_++];
        if (optionsEnded || arg == "-" || arg.empty() || arg[0] != '-') {
            paths.push_back(arg);
        } else if (arg == "--") {
            optionsEnded = true;
        } else {
            const size_t equals = arg.find('=');
            const bool hasValue = arg.compare(0, 2, "--") == 0 && equals != std::string::npos;
            const std::optional<std::string> inlineValue =
                hasValue ? std::optional(arg.substr(equals + 1)) : std::nullopt;
            if (!Option(hasValue ? arg.substr(0, equals) : arg, inlineValue, options)) return false;
        }
    }
    if (options.help || options.version) return true;
    if (paths.size() != 2) {
        return Fail("needs two models, " + std::to_string(paths.size()) +
                    " given (ZolDiff [options] A.zol B.zol)");
    }
    options.pathA = paths[0];
    options.pathB = paths[1];
    return true;
}

std::optional<std::string> Scanner::Value(const std::string& name,
                                          const std::optional<std::string>& inlineValue) {
    if (inlineValue) return inlineValue;
    if (next_ >= args_.size()) {
        Fail(name + " needs a value");
        return std::nullopt;
    }
    return args_[next_++];
}

bool Scanner::Option(const std::string& name, const std::optional<std::string>& inlineValue,
                     Options& options) {
    const bool takesValue = name == "--atol" || name == "--rtol" || name == "--ulps" ||
                            name == "--tolerance" || name == "--ignore" ||
                            name == "--ignore-entry" || name == "--match" ||
                            name == "--max-report" || name == "--json";
    if (!takesValue) {
        if (inlineValue) return Fail(name + " takes no value");
        if (name == "-q" || name == "--quiet") {
            options.quiet = true;
        } else if (name == "-h" || name == "--help") {
            options.help = true;
        } else if (name == "--version") {
            options.version = true;
        } else {
            return Fail("unknown option " + name);
        }
        return true;
    }
    const std::optional<std::string> value = Value(name, inlineValue);
    if (!value) return false;
    const std::string bad = "bad value for " + name + ": \"" + *value + "\"";
    if (name == "--atol" || name == "--rtol") {
        const std::optional<double> limit = ParseLimit(*value);
        if (!limit) return Fail(bad + " (a number, 0 or more)");
        (name == "--atol" ? options.defaults.atol : options.defaults.rtol) = *limit;
    } else if (name == "--ulps" || name == "--max-report") {
        const std::optional<uint64_t> count = ParseCount(*value);
        if (!count) return Fail(bad + " (a whole number, 0 or more)");
        (name == "--ulps" ? options.defaults.ulps : options.maxReport) = *count;
    } else if (name == "--tolerance") {
        const size_t equals = value->rfind('=');
        if (equals == std::string::npos || equals == 0) {
            return Fail(bad + " (GLOB=rtol:R,atol:A,ulps:U)");
        }
        std::string why;
        const std::optional<PartialTolerance> tolerance =
            ParseTolerance(value->substr(equals + 1), why);
        if (!tolerance) return Fail(bad + ": " + why);
        options.patterns.push_back({value->substr(0, equals), *tolerance});
    } else if (name == "--ignore") {
        options.ignore.push_back(*value);
    } else if (name == "--ignore-entry") {
        options.ignoreEntry.push_back(*value);
    } else if (name == "--match") {
        if (*value != "ids" && *value != "order") return Fail(bad + " (ids or order)");
        options.match = *value == "ids" ? Match::Ids : Match::Order;
    } else {
        if (value->empty()) return Fail(bad);
        options.json = *value;
    }
    return true;
}

}  // namespace

Tolerance Options::For(const std::string& result) const {
    for (const TolerancePattern& pattern : patterns) {
        if (Matches(pattern.glob, result)) return pattern.tolerance.Over(defaults);
    }
    return defaults;
}

bool Options::Ignored(const std::string& result) const {
    return AnyMatches(ignore, result);
}

bool Options::EntryIgnored(const std::string& name) const {
    return AnyMatches(ignoreEntry, name);
}

std::optional<Options> ParseOptions(const std::vector<std::string>& args, std::string& error) {
    Options options;
    if (!Scanner(args, error).Scan(options)) return std::nullopt;
    return options;
}

std::string Usage(const std::string& program) {
    return "Usage: " + program +
           " [options] A.zol B.zol\n"
           "Compares two Zol models: report entries, arrays and every value.\n"
           "Exit status: 0 equal within the tolerances, 1 different, 2 trouble.\n"
           "\n"
           "  --atol X            absolute tolerance (default 0)\n"
           "  --rtol X            relative tolerance (default 0)\n"
           "  --ulps N            units in the last place (default 0)\n"
           "  --tolerance G=T     per result name glob G: T is rtol:X,atol:X,ulps:N\n"
           "                      (repeatable; the first match wins)\n"
           "  --ignore G          leave out arrays whose result name matches G\n"
           "  --ignore-entry G    leave out report entries whose name matches G\n"
           "  --match ids|order   match nodes and elements by id (default) or position\n"
           "  --max-report N      differences listed per array (default 10)\n"
           "  --json FILE         write the report as JSON (- for standard output)\n"
           "  -q, --quiet         print nothing; the status tells\n"
           "  -h, --help          this text\n"
           "  --version           the version\n";
}

}  // namespace ZolDiff
