// Checks the dump's float text (FormatFloat's float overload) against printf("%g"), then times it
// against the formatter it replaced (OldFloatFormat.cpp), as bare text and as the dump's field.
//
//   float_format_exhaustive [options]
//     --threads N    threads of the check (default: the machine's cores)
//     --stride N     check every N-th bit pattern rather than all 2^32; all subnormals and the
//                    floats around rounding boundaries of every decimal exponent are added
//     --binades A:B  also check every pattern whose biased exponent lies in A..B, both signs
//     --speed-only   skip the check
//     --check-only   skip the timing
//     --rounds N     timing rounds (default 5)
//
// Prints the number of mismatches (the first few in full) and the timings. Exits with 1 if any
// value differs. The whole check takes about an hour on two cores.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "CountingSink.h"
#include "NumberFormat.h"
#include "OldFloatFormat.h"
#include "OutputBuffer.h"

namespace {

constexpr uint64_t kPatterns = uint64_t{1} << 32;
constexpr int kShownMax = 20;

float FromBits(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

uint32_t ToBits(float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    return bits;
}

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// ---- The check ----

// Patterns begin, begin + step, ... (count of them).
struct Span {
    uint64_t begin;
    uint64_t count;
    uint64_t step;
};

struct Mismatches {
    std::mutex lock;
    std::vector<std::string> shown;
    std::atomic<uint64_t> count{0};
};

void CheckPattern(uint32_t bits, Mismatches& found) {
    char mine[ZolInfo::kNumberTextMax];
    char reference[64];
    // The float overload is the dump's; printf sees the same value widened.
    const float v = FromBits(bits);
    const size_t length = static_cast<size_t>(ZolInfo::FormatFloat(mine, v) - mine);
    const int expected = std::snprintf(reference, sizeof reference, "%g", static_cast<double>(v));
    if (length == static_cast<size_t>(expected) && std::memcmp(mine, reference, length) == 0) {
        return;
    }
    ++found.count;
    std::lock_guard<std::mutex> guard(found.lock);
    if (found.shown.size() < kShownMax) {
        char line[160];
        std::snprintf(line, sizeof line, "0x%08x: got \"%.*s\", printf gives \"%s\"", bits,
                      static_cast<int>(length), mine, reference);
        found.shown.emplace_back(line);
    }
}

// Thread `part` of `parts` takes its own slice of every span.
void CheckSpans(const std::vector<Span>& spans, unsigned part, unsigned parts, Mismatches& found,
                std::atomic<uint64_t>& done) {
    for (const Span& span : spans) {
        const uint64_t first = span.count * part / parts;
        const uint64_t last = span.count * (part + 1) / parts;
        uint64_t counted = 0;
        for (uint64_t i = first; i < last; ++i) {
            CheckPattern(static_cast<uint32_t>(span.begin + i * span.step), found);
            if (++counted == 0x10000) {
                done += counted;
                counted = 0;
            }
        }
        done += counted;
    }
}

// All subnormals, and the 17 floats around (d + 1/2) * 10^(E-5) for six-digit d at every decimal
// exponent: ties, carries such as 999999.5, and the switches between fixed and exponent form.
void AddEdges(std::vector<Span>& spans) {
    for (uint64_t sign : {uint64_t{0}, uint64_t{1} << 31}) spans.push_back({sign + 1, 0x7FFFFF, 1});
    std::mt19937 random(7);
    std::uniform_int_distribution<int> anyDigits(100000, 999999);
    for (int E = -45; E <= 38; ++E) {
        std::vector<int> digits = {100000, 100001, 499999, 500000, 999998, 999999};
        for (int i = 0; i < 200; ++i) digits.push_back(anyDigits(random));
        for (int d : digits) {
            const long double middle = (d + 0.5L) * std::pow(10.0L, E - 5);
            const auto f = static_cast<float>(middle);
            if (f == 0 || std::isinf(f)) continue;
            const uint32_t bits = ToBits(f);
            if (bits < 8) continue;
            spans.push_back({bits - 8, 17, 1});
            spans.push_back({(bits - 8) | 0x80000000u, 17, 1});
        }
    }
}

int Check(unsigned threads, uint64_t stride, int lowBinade, int highBinade) {
    std::vector<Span> spans = {{0, (kPatterns + stride - 1) / stride, stride}};
    if (stride > 1) AddEdges(spans);
    for (uint64_t sign : {uint64_t{0}, uint64_t{1} << 31}) {
        if (lowBinade > highBinade) break;
        const uint64_t begin = sign | uint64_t(lowBinade) << 23;
        spans.push_back({begin, uint64_t(highBinade - lowBinade + 1) << 23, 1});
    }
    uint64_t total = 0;
    for (const Span& span : spans) total += span.count;

    Mismatches found;
    std::atomic<uint64_t> done{0};
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> workers;
    for (unsigned t = 0; t < threads; ++t) {
        workers.emplace_back(CheckSpans, std::cref(spans), t, threads, std::ref(found),
                             std::ref(done));
    }
    std::atomic<bool> finished{false};
    std::thread progress([&] {
        for (int second = 1; !finished.load(); ++second) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            if (second % 30 == 0) {
                std::fprintf(stderr, "  %5.1f%% checked\n", 100.0 * done.load() / total);
            }
        }
    });
    for (auto& worker : workers) worker.join();
    finished = true;
    progress.join();

    std::printf(
        "checked %llu float patterns (stride %llu%s) against printf(\"%%g\") in %.1f s "
        "on %u threads\n",
        static_cast<unsigned long long>(total), static_cast<unsigned long long>(stride),
        stride > 1 ? ", with subnormals and rounding edges" : "", Seconds(start), threads);
    for (const auto& line : found.shown) std::printf("  %s\n", line.c_str());
    std::printf("mismatches: %llu\n", static_cast<unsigned long long>(found.count.load()));
    return found.count.load() == 0 ? 0 : 1;
}

// ---- The timing ----

// CPU time of the calling thread: on a shared machine the time the thread waits for a core would
// otherwise fall on whichever form happened to run then.
double CpuSeconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Every 257th bit pattern that is finite: all exponents and lengths of text alike.
std::vector<float> SpreadPatterns() {
    std::vector<float> values;
    for (uint64_t bits = 0; bits < kPatterns; bits += 257) {
        if (((bits >> 23) & 0xFF) != 0xFF) values.push_back(FromBits(static_cast<uint32_t>(bits)));
    }
    return values;
}

// Values as a solver writes them: coordinates, results of six or seven significant digits over a
// few decades, zeros, whole numbers and small values printed with an exponent, half negative.
std::vector<float> DumpLikeMix(size_t count) {
    std::mt19937 random(2024);
    std::uniform_real_distribution<double> unit(0, 1);
    std::uniform_int_distribution<int> kind(0, 19);
    std::vector<float> values(count);
    for (float& v : values) {
        const int k = kind(random);
        double x;
        if (k < 7) {
            x = unit(random) * 1000;  // a coordinate
        } else if (k < 14) {
            // A result with 6 or 7 significant digits between 1e-3 and 1e5.
            const int digits = k < 11 ? 6 : 7;
            const double mantissa =
                std::floor(unit(random) * 9 * std::pow(10, digits - 1)) + std::pow(10, digits - 1);
            x = mantissa * std::pow(10, std::floor(unit(random) * 8) - 3 - digits + 1);
        } else if (k < 16) {
            x = 0;
        } else if (k < 18) {
            x = std::floor(unit(random) * 2000);  // a whole number
        } else {
            x = unit(random) * std::pow(10, -5 - std::floor(unit(random) * 4));  // 1e-9 to 1e-5
        }
        v = static_cast<float>(random() % 2 ? -x : x);
    }
    return values;
}

// The bare text, one value after another, into a reused 64 KiB area.
template <class Format>
double TextSeconds(const std::vector<float>& values, Format format, uint64_t& bytes) {
    static char area[1 << 16];
    const double start = CpuSeconds();
    char* out = area;
    for (float v : values) {
        if (out >= area + sizeof area - 64) {
            bytes += static_cast<uint64_t>(out - area);
            out = area;
        }
        out = format(out, v);
    }
    const double seconds = CpuSeconds() - start;
    bytes += static_cast<uint64_t>(out - area);
    return seconds;
}

// The dump's field of width 10, through the buffer into a stream that counts.
template <class Buffer>
double FieldSeconds(const std::vector<float>& values, uint64_t& bytes) {
    CountingSink sink;
    std::ostream os(&sink);
    const double start = CpuSeconds();
    {
        Buffer out(os);
        for (float v : values) out.FloatField(v, 10);
    }
    const double seconds = CpuSeconds() - start;
    bytes += sink.Bytes();
    return seconds;
}

char* TodayText(char* out, float v) {
    return ZolInfo::FormatFloat(out, v);
}

// Old and today's forms alternate, round after round, and the best round of each counts, so that
// the drift of a shared machine falls on both. Returns false if their texts differ in length.
bool Compare(const char* name, const std::vector<float>& values, int rounds) {
    double best[4] = {1e300, 1e300, 1e300, 1e300};
    uint64_t bytes[4] = {};
    for (int round = 0; round < rounds; ++round) {
        uint64_t counted[4] = {};
        const double seconds[4] = {
            TextSeconds(values, OldFloatFormat::Format, counted[0]),
            TextSeconds(values, TodayText, counted[1]),
            FieldSeconds<OldFloatFormat::FieldBuffer>(values, counted[2]),
            FieldSeconds<ZolInfo::OutputBuffer>(values, counted[3]),
        };
        for (int i = 0; i < 4; ++i) {
            best[i] = std::min(best[i], seconds[i]);
            bytes[i] = counted[i];
        }
    }
    const double perValue = 1e9 / static_cast<double>(values.size());
    std::printf("  %s (%zu values):\n", name, values.size());
    std::printf("    text        old %6.2f ns/value, today %6.2f ns/value, ratio %.2f\n",
                best[0] * perValue, best[1] * perValue, best[1] / best[0]);
    std::printf("    field (10)  old %6.2f ns/value, today %6.2f ns/value, ratio %.2f\n",
                best[2] * perValue, best[3] * perValue, best[3] / best[2]);
    return bytes[0] == bytes[1] && bytes[2] == bytes[3];
}

int MeasureSpeed(int rounds) {
    std::printf(
        "float text, old formatter against today's, CPU time of the thread, best of %d "
        "rounds taken in turn:\n",
        rounds);
    bool same = Compare("every 257th finite pattern", SpreadPatterns(), rounds);
    same = Compare("dump-like mix", DumpLikeMix(4000000), rounds) && same;
    if (!same) std::printf("the old and today's texts differ in length\n");
    return same ? 0 : 1;
}

struct Options {
    unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    uint64_t stride = 1;
    int lowBinade = 1;
    int highBinade = 0;
    bool check = true;
    bool speed = true;
    int rounds = 5;
};

bool Parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (arg == "--speed-only") {
            options.check = false;
        } else if (arg == "--check-only") {
            options.speed = false;
        } else if (value == nullptr) {
            return false;
        } else if (arg == "--threads") {
            options.threads = static_cast<unsigned>(std::max(1, std::atoi(value)));
            ++i;
        } else if (arg == "--stride") {
            options.stride = std::max(1ull, std::strtoull(value, nullptr, 10));
            ++i;
        } else if (arg == "--rounds") {
            options.rounds = std::max(1, std::atoi(value));
            ++i;
        } else if (arg == "--binades") {
            if (std::sscanf(value, "%d:%d", &options.lowBinade, &options.highBinade) != 2 ||
                options.lowBinade < 0 || options.highBinade > 255) {
                return false;
            }
            ++i;
        } else {
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!Parse(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: %s [--threads N] [--stride N] [--binades A:B] [--speed-only | "
                     "--check-only] [--rounds N]\n",
                     argv[0]);
        return 2;
    }
    int status = 0;
    if (options.check) {
        status = Check(options.threads, options.stride, options.lowBinade, options.highBinade);
    }
    if (options.speed) status = std::max(status, MeasureSpeed(options.rounds));
    return status;
}
