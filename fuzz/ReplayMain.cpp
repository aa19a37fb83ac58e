// Runs a fuzz target's entry points on saved inputs, without libFuzzer or clang, so that every
// build replays the findings: each file argument, and each file in a directory argument, in
// name order. An input that makes the target abort or crash ends the run; its name is printed
// first so the failure names it.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            inputs.emplace_back(argv[i]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            inputs.push_back(entry.path());
        }
    }
    std::sort(inputs.begin(), inputs.end());
    // The target may change the working directory.
    for (std::filesystem::path& path : inputs) path = std::filesystem::absolute(path);
    LLVMFuzzerInitialize(&argc, &argv);
    for (const std::filesystem::path& path : inputs) {
        std::cerr << "replaying " << path.string() << std::endl;
        std::ifstream in(path, std::ios::binary);
        if (!in) {
            std::cerr << "can't read it" << std::endl;
            return 1;
        }
        const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::cerr << inputs.size() << " inputs replayed" << std::endl;
    return inputs.empty() ? 1 : 0;
}
