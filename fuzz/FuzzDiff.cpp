// ZolDiff in-process on arbitrary bytes: the input against itself (every array read and
// matched), with tolerances and a JSON report, against the example model, and against the
// tests' plate both ways, whose ids send a mutated plate through the matching by ids. A run
// must end with status 0, 1 or 2 and give back every block buffer.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "DiffModel.h"
#include "FuzzInput.h"
#include "PooledBuffers.h"
#include "diff/Run.h"

namespace {

std::string inputPath, jsonPath, platePath;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const std::string directory = MakeScratchDirectory("fuzz-diff");
    inputPath = directory + "/input.zol";
    jsonPath = directory + "/report.json";
    platePath = directory + "/plate.zol";
    ZolTest::WriteFile(platePath, ZolTest::Plate().Build());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    WriteInput(inputPath, data, size);
    const std::string example = ZOL_EXAMPLE;
    const std::vector<std::vector<std::string>> runs = {
        {"ZolDiff", inputPath, inputPath},
        {"ZolDiff", "--match", "order", "--rtol", "1e-6", "--json", jsonPath, inputPath, inputPath},
        {"ZolDiff", "--ulps", "2", example, inputPath},
        {"ZolDiff", "--json", "-", inputPath, example},
        {"ZolDiff", "--max-report", "3", platePath, inputPath},
        {"ZolDiff", inputPath, platePath},
    };
    for (const std::vector<std::string>& args : runs) {
        std::ostringstream out, err;
        const int status = ZolDiff::Run(args, out, err);
        if (status < 0 || status > 2) std::abort();
        if (PooledBuffersInUse() != 0) std::abort();
    }
    return 0;
}
