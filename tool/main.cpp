#include <malloc.h>

#include <iostream>
#include <string>
#include <vector>

#include "Run.h"

int main(int argc, char** argv) {
    // Block buffers and arrays come and go in large sizes; keeping them in the heap instead of
    // fresh mappings lets the next one reuse pages that are already there.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    std::ios::sync_with_stdio(false);
    std::vector<std::string> args(argv, argv + argc);
    return ZolInfo::Run(args, std::cout, std::cerr);
}
