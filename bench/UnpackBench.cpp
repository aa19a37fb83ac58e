// The unpacking cost alone: reads every array of the given models through the public API, a
// million values at a time as ZolDiff does, the models on two threads at once as ZolDiff reads
// them, and compares nothing. What ZolDiff takes beyond this is its comparison.
//
//   zol_unpack A.zol [B.zol]
#include <Mrl/Model.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <future>
#include <string>
#include <vector>

namespace {

constexpr uint64_t kChunk = uint64_t{1} << 20;

// A sum of the values' bits, so that no read can be left out.
uint64_t ReadAll(const std::string& path) {
    const Mrl::Model model = Mrl::Model::Open(path);
    std::vector<float> floats(kChunk);
    std::vector<uint32_t> words(kChunk);
    uint64_t sum = 0;
    for (const Mrl::Array& array : model.Arrays()) {
        for (uint64_t first = 0; first < array.Size(); first += kChunk) {
            const uint64_t count = std::min(kChunk, array.Size() - first);
            if (array.IsFloat()) {
                array.Read(first, count, floats.data());
                for (uint64_t k = 0; k < count; ++k) sum += static_cast<uint64_t>(floats[k]);
            } else {
                array.Read(first, count, words.data());
                for (uint64_t k = 0; k < count; ++k) sum += words[k];
            }
        }
    }
    return sum;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: %s A.zol [B.zol]\n", argv[0]);
        return 2;
    }
    try {
        std::future<uint64_t> other;
        if (argc == 3) other = std::async(std::launch::async, ReadAll, std::string(argv[2]));
        uint64_t sum = ReadAll(argv[1]);
        if (argc == 3) sum += other.get();
        std::printf("%llu\n", static_cast<unsigned long long>(sum));
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 2;
    }
    return 0;
}
