// Speed of turning stored byte planes back into 32-bit elements, against the obvious per-byte
// loop with a division and a modulo for every byte, on the same 16 MiB of payload.
//
//   plane_decode_bench [benchmark options]
//
// Prints the usual table and then one summary line per component count with the ratio.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "Mrl/Zol/DataLoader.h"

namespace {

constexpr size_t kPayloadBytes = size_t{16} << 20;
// An odd element count, so that the runs of k = 3 and k = 6 leave a tail.
constexpr size_t kElements = kPayloadBytes / 4 - 1;

const std::vector<uint8_t>& Payload() {
    static const std::vector<uint8_t> payload = [] {
        std::vector<uint8_t> bytes(kElements * 4);
        std::mt19937 random(12345);
        for (auto& b : bytes) b = static_cast<uint8_t>(random());
        return bytes;
    }();
    return payload;
}

// What one writes first: every stored byte finds its element and byte by division.
void NaiveDecode(const uint8_t* payload, size_t n, size_t k, uint32_t* destination) {
    auto* out = reinterpret_cast<uint8_t*>(destination);
    if (k <= 1) {
        for (size_t b = 0; b < 4 * n; ++b) out[(b % n) * 4 + b / n] = payload[b];
        return;
    }
    const size_t m = n / k;
    const size_t runBytes = 4 * m;
    for (size_t b = 0; b < runBytes * k; ++b) {
        const size_t c = b / runBytes;
        const size_t inRun = b % runBytes;
        out[(c + (inRun % m) * k) * 4 + inRun / m] = payload[b];
    }
    for (size_t b = runBytes * k; b < 4 * n; ++b) out[b] = payload[b];
}

void BM_DecodePayload(benchmark::State& state) {
    const auto k = static_cast<uint8_t>(state.range(0));
    const std::vector<uint8_t>& payload = Payload();
    std::vector<uint32_t> target(kElements);
    for (auto _ : state) {
        MrlZol::DecodePayload(payload.data(), kElements, k, true, target.data());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(payload.size()));
}

void BM_NaiveDecode(benchmark::State& state) {
    const auto k = static_cast<size_t>(state.range(0));
    const std::vector<uint8_t>& payload = Payload();
    std::vector<uint32_t> target(kElements);
    for (auto _ : state) {
        NaiveDecode(payload.data(), kElements, k, target.data());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(payload.size()));
}

BENCHMARK(BM_DecodePayload)->Arg(1)->Arg(3)->Arg(6)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NaiveDecode)->Arg(1)->Arg(3)->Arg(6)->Unit(benchmark::kMillisecond);

// Keeps the rate of every run so that the two forms can be set side by side at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    // Without colours: the output goes to a log as well.
    RatioReporter() : ConsoleReporter(OO_Tabular) {}
    void ReportRuns(const std::vector<Run>& reports) override {
        for (const Run& run : reports) {
            const auto rate = run.counters.find("bytes_per_second");
            if (run.run_type == Run::RT_Iteration && rate != run.counters.end()) {
                rates[run.benchmark_name()] = rate->second.value;
            }
        }
        ConsoleReporter::ReportRuns(reports);
    }
    std::map<std::string, double> rates;
};

bool SameResult() {
    const std::vector<uint8_t>& payload = Payload();
    for (uint8_t k : {1, 3, 6}) {
        std::vector<uint32_t> fast(kElements), naive(kElements);
        MrlZol::DecodePayload(payload.data(), kElements, k, true, fast.data());
        NaiveDecode(payload.data(), kElements, k, naive.data());
        if (fast != naive) {
            std::fprintf(stderr, "k = %u: DecodePayload and the naive loop differ\n", k);
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (!SameResult()) return 1;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (int k : {1, 3, 6}) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, "/%d", k);
        const auto fast = reporter.rates.find(std::string("BM_DecodePayload") + suffix);
        const auto naive = reporter.rates.find(std::string("BM_NaiveDecode") + suffix);
        if (fast == reporter.rates.end() || naive == reporter.rates.end()) continue;
        std::printf("plane decode k=%d: DecodePayload %.2f GB/s, naive %.2f GB/s, ratio %.1fx\n", k,
                    fast->second / 1e9, naive->second / 1e9, fast->second / naive->second);
    }
    benchmark::Shutdown();
    return 0;
}
