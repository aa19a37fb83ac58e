// The public API's read path against the tool's own unpacking, and its scaling over threads.
//
//   api_read_bench MODEL [ROUNDS]
//
// 1. The largest float array of MODEL: the internals' whole-array load (inflate, then decode
//    into one vector, as the tool's pass does) against Model::Open and Array::Read in ranges
//    of 64K values; each round opens the file afresh, so that both inflate the block.
// 2. Every array of MODEL read through the public API by four models, one after the other,
//    then in four threads at once.
// 3. The same split of work without memory traffic: how the machine's cores scale meanwhile.
// Each figure is the best of ROUNDS (default 5), taken in turn within one run.
#include <Mrl/Model.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Mrl/Zol/ArrayRecord.h"
#include "Mrl/Zol/ModelFacts.h"
#include "Mrl/Zol/Tree.h"

namespace {

using Clock = std::chrono::steady_clock;

template <class Body>
double Seconds(Body&& body) {
    Clock::time_point start = Clock::now();
    body();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

size_t LargestFloatArray(const Mrl::Model& model) {
    size_t best = 0;
    for (size_t i = 0; i < model.Arrays().size(); ++i) {
        const Mrl::Array& array = model.Arrays()[i];
        if (array.IsFloat() && array.Size() > model.Arrays()[best].Size()) best = i;
    }
    return best;
}

// The tool's way: the record's whole load.
float InternalLoad(const std::string& path, size_t index) {
    MrlZol::Tree tree;
    int32_t openMode = 1;
    int32_t loadKind = 0;
    tree.Load(path, openMode, loadKind);
    MrlZol::ModelFacts facts = MrlZol::CollectModelFacts(tree, "", true, nullptr, false);
    MrlZol::ArrayRecord& record = facts.arrays.at(index);
    record.LoadValues();
    return record.floatValues.empty() ? 0.0f : record.floatValues.back();
}

float PublicRead(const std::string& path, size_t index) {
    constexpr uint64_t kRange = 65536;
    Mrl::Model model = Mrl::Model::Open(path);
    const Mrl::Array& array = model.Arrays().at(index);
    std::vector<float> buffer(kRange);
    float last = 0.0f;
    for (uint64_t first = 0; first < array.Size(); first += kRange) {
        uint64_t count = std::min(kRange, array.Size() - first);
        array.Read(first, count, buffer.data());
        last = buffer[count - 1];
    }
    return last;
}

// Reads into a buffer of the caller's, filled once before the clock starts, so that the
// figure is the library's and not the page faults of the program's own fresh memory.
uint64_t ReadEverything(const std::string& path, std::vector<uint32_t>& buffer) {
    Mrl::Model model = Mrl::Model::Open(path);
    uint64_t values = 0;
    for (const Mrl::Array& array : model.Arrays()) {
        buffer.resize(array.Size());
        if (array.IsFloat()) {
            array.Read(0, buffer.size(), reinterpret_cast<float*>(buffer.data()));
        } else {
            array.Read(0, buffer.size(), buffer.data());
        }
        values += buffer.size();
    }
    return values;
}

// Work with no memory traffic, split as the models are: what the machine's cores give in
// parallel at this moment, against which the models' figure is read.
[[gnu::noinline]] uint64_t Spin(uint64_t seed) {
    uint64_t x = seed | 1;
    for (int i = 0; i < 150'000'000; ++i) x ^= x << 13, x ^= x >> 7, x ^= x << 17;
    return x;
}

template <class Work>
double InThreads(int count, Work&& work) {
    return Seconds([&] {
        std::vector<std::thread> threads;
        for (int m = 0; m < count; ++m) threads.emplace_back([&, m] { work(m); });
        for (std::thread& thread : threads) thread.join();
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s MODEL [ROUNDS]\n", argv[0]);
        return 1;
    }
    const std::string path = argv[1];
    const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
    try {
        size_t index = LargestFloatArray(Mrl::Model::Open(path));
        uint64_t size = Mrl::Model::Open(path).Arrays().at(index).Size();
        double internal = 1e30, api = 1e30, serial = 1e30, parallel = 1e30;
        double spinSerial = 1e30, spinParallel = 1e30;
        constexpr int kModels = 4;
        std::vector<uint64_t> sinks(kModels);
        uint64_t values = 0;
        std::vector<std::vector<uint32_t>> buffers(kModels);
        for (std::vector<uint32_t>& buffer : buffers) (void)ReadEverything(path, buffer);
        for (int round = 0; round < rounds; ++round) {
            internal = std::min(internal, Seconds([&] { (void)InternalLoad(path, index); }));
            api = std::min(api, Seconds([&] { (void)PublicRead(path, index); }));
            serial = std::min(serial, Seconds([&] {
                                  for (int m = 0; m < kModels; ++m) {
                                      values = ReadEverything(path, buffers[m]);
                                  }
                              }));
            parallel = std::min(
                parallel, Seconds([&] {
                    std::vector<std::thread> threads;
                    for (int m = 0; m < kModels; ++m) {
                        threads.emplace_back([&, m] { (void)ReadEverything(path, buffers[m]); });
                    }
                    for (std::thread& thread : threads) thread.join();
                }));
            auto spin = [&](int m) { sinks[m] += Spin(m); };
            spinSerial = std::min(spinSerial, Seconds([&] {
                                      for (int m = 0; m < kModels; ++m) spin(m);
                                  }));
            spinParallel = std::min(spinParallel, InThreads(kModels, spin));
        }
        std::printf(
            "api read: %llu floats, tool's whole load %.3f s (%.2f ns/value), "
            "Array::Read in 64K ranges %.3f s (%.2f ns/value): %.2fx the tool's time\n",
            static_cast<unsigned long long>(size), internal, internal * 1e9 / size, api,
            api * 1e9 / size, api / internal);
        std::printf(
            "api threads: %d models of %llu values, one after the other %.3f s, "
            "in %d threads %.3f s: %.2fx faster (%u cores)\n",
            kModels, static_cast<unsigned long long>(values), serial, kModels, parallel,
            serial / parallel, std::thread::hardware_concurrency());
        std::printf(
            "machine: the same split of work without memory traffic, in %d threads: %.2fx "
            "faster (%llu)\n",
            kModels, spinSerial / spinParallel, static_cast<unsigned long long>(sinks[0] & 1));
    } catch (const Mrl::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
    return 0;
}
