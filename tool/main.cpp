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
    // Block buffers and whole arrays are mappings of their own, so that each one's memory goes
    // back to the system when it is freed: the dump holds one block at a time, and a freed one
    // left in the heap would count as much as a held one.
    mallopt(M_MMAP_THRESHOLD, 4 << 20);
    std::ios::sync_with_stdio(false);
    WidenOutputPipe();
    std::vector<std::string> args(argv, argv + argc);
    return ZolInfo::Run(args, std::cout, std::cerr);
}
