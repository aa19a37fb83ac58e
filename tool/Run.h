#pragma once
#include <ostream>
#include <string>
#include <vector>

namespace ZolInfo {

// The whole run of the tool over an argument list (args[0] is the program name) and two
// streams; returns the exit status. Nothing below it exits the process.
int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace ZolInfo
