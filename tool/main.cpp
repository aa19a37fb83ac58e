#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Run.h"

namespace {

// A dump sent through a pipe is handed over in 1 MiB writes; a pipe that holds a whole write
// lets the tool go on formatting while the reader drains it, instead of waking it 16 times per
// write. Where the system refuses, the pipe keeps its size; the bytes are the same either way.
void WidenOutputPipe() {
    struct stat status {};
    if (fstat(STDOUT_FILENO, &status) == 0 && S_ISFIFO(status.st_mode)) {
        fcntl(STDOUT_FILENO, F_SETPIPE_SZ, 1 << 20);
    }
}

}  // namespace

int main(int argc, char** argv) {
    // Block buffers and arrays come and go in large sizes; keeping them in the heap instead of
    // fresh mappings lets the next one reuse pages that are already there.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    std::ios::sync_with_stdio(false);
    WidenOutputPipe();
    std::vector<std::string> args(argv, argv + argc);
    return ZolInfo::Run(args, std::cout, std::cerr);
}
