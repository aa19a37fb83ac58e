// The whole tool in-process on arbitrary bytes, in all three modes: a run must end with
// status 0 or 2 and nothing else.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "PooledBuffers.h"
#include "Run.h"

namespace {

std::string inputPath;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const std::string directory = MakeScratchDirectory("fuzz-run");
    // The EKM mode writes its report into the current directory.
    if (chdir(directory.c_str()) != 0) std::abort();
    inputPath = directory + "/input.zol";
    // A directory that doesn't exist sends the trace log nowhere, which keeps runs fast.
    setenv("MORLANE_TEMP_PATH", "/nonexistent/fuzz-run-trace", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    WriteInput(inputPath, data, size);
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
