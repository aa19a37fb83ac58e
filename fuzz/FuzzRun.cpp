// The whole tool in-process on arbitrary bytes, in all three modes: a run must end with
// status 0 or 2 and nothing else.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "PooledBuffers.h"
#include "Run.h"

namespace {

std::string inputPath;

bool WriteInput(const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(inputPath.c_str(), "wb");
    if (file == nullptr) return false;
    bool ok = size == 0 || std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && ok;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Memory-backed when possible: every input is written to a file, and a disk flushes it.
    std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    pattern += "/fuzz-run-XXXXXX";
    const char* directory = mkdtemp(pattern.data());
    // The EKM mode writes its report into the current directory.
    if (directory == nullptr || chdir(directory) != 0) std::abort();
    inputPath = std::string(directory) + "/input.zol";
    // A directory that doesn't exist sends the trace log nowhere, which keeps runs fast.
    setenv("MORLANE_TEMP_PATH", "/nonexistent/fuzz-run-trace", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!WriteInput(data, size)) std::abort();
    const std::vector<std::vector<std::string>> runs = {
        {"ZolInfo", inputPath},
        {"ZolInfo", "--extract-data", inputPath},
        {"ZolInfo", "--ekm-meta-data", inputPath},
    };
    for (const std::vector<std::string>& args : runs) {
        std::ostringstream out, err;
        int status = ZolInfo::Run(args, out, err);
        if (status != 0 && status != 2) std::abort();
        // Block buffers bypass the leak checker; the tree must have given all of them back.
        if (PooledBuffersInUse() != 0) std::abort();
    }
    return 0;
}
