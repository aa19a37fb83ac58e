// Checks FormatFloat against printf("%g") on every 32-bit float pattern, then compares its speed
// with that of an ostringstream on a sample of the same values.
//
//   float_format_exhaustive [threads | --speed-only]
//
// Prints the number of mismatches (the first few in full) and the speed ratio. Exits with 1 if
// any value differs. The check takes many minutes; --speed-only skips it.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "NumberFormat.h"
#include "OutputBuffer.h"

namespace {

constexpr uint64_t kPatterns = uint64_t{1} << 32;
constexpr int kShownMax = 20;

float FromBits(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

struct Mismatches {
    std::mutex lock;
    std::vector<std::string> shown;
    std::atomic<uint64_t> count{0};
};

void CheckRange(uint64_t begin, uint64_t end, Mismatches& found, std::atomic<uint64_t>& done) {
    char mine[ZolInfo::kNumberTextMax];
    char reference[64];
    uint64_t local = 0;
    for (uint64_t bits = begin; bits < end; ++bits) {
        // The float overload is the dump's; printf sees the same value widened.
        const float v = FromBits(static_cast<uint32_t>(bits));
        const size_t length = static_cast<size_t>(ZolInfo::FormatFloat(mine, v) - mine);
        const int expected =
            std::snprintf(reference, sizeof reference, "%g", static_cast<double>(v));
        if (length != static_cast<size_t>(expected) || std::memcmp(mine, reference, length) != 0) {
            ++local;
            std::lock_guard<std::mutex> guard(found.lock);
            if (found.shown.size() < kShownMax) {
                char line[160];
                std::snprintf(line, sizeof line, "0x%08x: got \"%.*s\", printf gives \"%s\"",
                              static_cast<unsigned>(bits), static_cast<int>(length), mine,
                              reference);
                found.shown.emplace_back(line);
            }
        }
        if ((bits & 0xFFFFFF) == 0xFFFFFF) done += 0x1000000;
    }
    found.count += local;
}

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Both contenders produce the same text into memory; only the way of making it differs.
void MeasureSpeed() {
    constexpr uint32_t kStride = 257;  // about 16.7 million values spread over all patterns
    constexpr uint64_t kCount = kPatterns / kStride;
    size_t sink = 0;

    auto start = std::chrono::steady_clock::now();
    {
        std::vector<char> text(1 << 16);
        size_t used = 0;
        for (uint64_t i = 0; i < kCount; ++i) {
            if (text.size() - used < ZolInfo::kNumberTextMax + 1) {
                sink += static_cast<unsigned char>(text[used / 2]);
                used = 0;
            }
            char* end = ZolInfo::FormatFloat(text.data() + used,
                                             FromBits(static_cast<uint32_t>(i * kStride)));
            *end = '\n';
            used = static_cast<size_t>(end + 1 - text.data());
        }
        sink += used;
    }
    const double mineSeconds = Seconds(start);

    start = std::chrono::steady_clock::now();
    {
        std::ostringstream os;
        for (uint64_t i = 0; i < kCount; ++i) {
            if ((i & 0xFFF) == 0) {
                sink += static_cast<size_t>(os.tellp());
                os.seekp(0);
            }
            os << FromBits(static_cast<uint32_t>(i * kStride)) << '\n';
        }
        sink += os.str().size();
    }
    const double streamSeconds = Seconds(start);

    // The same comparison for whole dump fields.
    start = std::chrono::steady_clock::now();
    {
        std::ostringstream os;
        ZolInfo::OutputBuffer out(os, 1 << 16);
        for (uint64_t i = 0; i < kCount; ++i) {
            if ((i & 0xFFF) == 0) {
                out.Flush();
                os.seekp(0);
            }
            out.FloatField(FromBits(static_cast<uint32_t>(i * kStride)), 10);
        }
        out.Flush();
        sink += os.str().size();
    }
    const double fieldSeconds = Seconds(start);

    start = std::chrono::steady_clock::now();
    {
        std::ostringstream os;
        for (uint64_t i = 0; i < kCount; ++i) {
            if ((i & 0xFFF) == 0) os.seekp(0);
            os << "    " << std::setw(10) << FromBits(static_cast<uint32_t>(i * kStride));
        }
        sink += os.str().size();
    }
    const double streamFieldSeconds = Seconds(start);

    std::printf("speed on %llu values (every %u-th pattern):\n",
                static_cast<unsigned long long>(kCount), kStride);
    std::printf("  FormatFloat         %7.3f s  %6.1f ns/value\n", mineSeconds,
                mineSeconds * 1e9 / kCount);
    std::printf("  ostringstream <<    %7.3f s  %6.1f ns/value\n", streamSeconds,
                streamSeconds * 1e9 / kCount);
    std::printf("  ratio               %.1fx faster\n", streamSeconds / mineSeconds);
    std::printf("  FloatField(v, 10)   %7.3f s  %6.1f ns/value\n", fieldSeconds,
                fieldSeconds * 1e9 / kCount);
    std::printf("  << setw(10) <<      %7.3f s  %6.1f ns/value\n", streamFieldSeconds,
                streamFieldSeconds * 1e9 / kCount);
    std::printf("  ratio               %.1fx faster\n", streamFieldSeconds / fieldSeconds);
    std::printf("  (checksum %zu)\n", sink);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--speed-only") == 0) {
        MeasureSpeed();
        return 0;
    }
    unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    if (argc > 1) threads = static_cast<unsigned>(std::max(1, std::atoi(argv[1])));

    Mismatches found;
    std::atomic<uint64_t> done{0};
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> workers;
    const uint64_t share = kPatterns / threads;
    for (unsigned t = 0; t < threads; ++t) {
        const uint64_t begin = share * t;
        const uint64_t end = t + 1 == threads ? kPatterns : begin + share;
        workers.emplace_back(CheckRange, begin, end, std::ref(found), std::ref(done));
    }
    std::atomic<bool> finished{false};
    std::thread progress([&] {
        for (int second = 1; !finished.load(); ++second) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            if (second % 30 == 0) {
                std::fprintf(stderr, "  %5.1f%% checked\n", 100.0 * done.load() / kPatterns);
            }
        }
    });
    for (auto& worker : workers) worker.join();
    finished = true;
    progress.join();

    std::printf("checked %llu float patterns against printf(\"%%g\") in %.1f s on %u threads\n",
                static_cast<unsigned long long>(kPatterns), Seconds(start), threads);
    for (const auto& line : found.shown) std::printf("  %s\n", line.c_str());
    std::printf("mismatches: %llu\n", static_cast<unsigned long long>(found.count.load()));

    MeasureSpeed();
    return found.count.load() == 0 ? 0 : 1;
}
