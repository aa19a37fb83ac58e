#include <iostream>
#include <string>
#include <vector>

#include "diff/Run.h"

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    const std::vector<std::string> args(argv, argv + argc);
    return ZolDiff::Run(args, std::cout, std::cerr);
}
