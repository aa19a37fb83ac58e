#pragma once
// The whole run of ZolDiff over an argument list (args[0] is the program name) and two
// streams; returns the exit status: 0 equal, 1 different, 2 a model or the options refused.
// Nothing below it exits the process.
#include <ostream>
#include <string>
#include <vector>

namespace ZolDiff {

int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

// What a status of 2 was about: the arguments, or a model (or the JSON file).
enum class Trouble { None, Arguments, Model };

// The same run, also telling the trouble apart (for callers that raise errors by kind).
int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        Trouble& trouble);

}  // namespace ZolDiff
