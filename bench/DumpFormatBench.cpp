// Speed of the value lines of the dump: OutputBuffer's fields against the plain iostream form
// (`os << "    " << std::setw(10) << v`), on the same records, both into a sink that counts and
// discards. Runs alternate between the two forms and the best run of each counts, because the
// machine is shared.
//
//   dump_format_bench [nodes] [columns] [runs]
//
// Exits with 1 if the two texts of a sample of rows differ.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "CountingSink.h"
#include "OutputBuffer.h"

namespace {

struct Records {
    size_t nodes = 0;
    size_t columns = 0;
    std::vector<float> ids;
    std::vector<float> values;  // columns per node, node after node
};

// A smooth field with noise and a spread of magnitudes, so that texts of all lengths occur
// (integers, fractions, exponents, negatives), as in result arrays.
Records MakeRecords(size_t nodes, size_t columns) {
    Records r;
    r.nodes = nodes;
    r.columns = columns;
    r.ids.resize(nodes);
    r.values.resize(nodes * columns);
    std::mt19937 random(2024);
    std::uniform_real_distribution<float> noise(-1e-3f, 1e-3f);
    const float scales[] = {1.0f, 250.0f, 1e-4f, 3.5e6f, 0.02f, 1e-9f};
    for (size_t i = 0; i < nodes; ++i) {
        r.ids[i] = static_cast<float>(i + 1);
        const double x = static_cast<double>(i) * 1e-4;
        for (size_t c = 0; c < columns; ++c) {
            const double smooth = std::sin(x + static_cast<double>(c)) * std::cos(0.37 * x);
            r.values[i * columns + c] =
                static_cast<float>(smooth) * scales[c % std::size(scales)] * (1.0f + noise(random));
        }
    }
    return r;
}

void WithBuffer(const Records& r, size_t begin, size_t end, std::ostream& os) {
    ZolInfo::OutputBuffer out(os);
    for (size_t i = begin; i < end; ++i) {
        out.SignedField(static_cast<int32_t>(r.ids[i]), 10);
        const float* row = r.values.data() + i * r.columns;
        for (size_t c = 0; c < r.columns; ++c) out.FloatField(row[c], 10);
        out.Put('\n');
    }
}

void WithStream(const Records& r, size_t begin, size_t end, std::ostream& os) {
    for (size_t i = begin; i < end; ++i) {
        os << "    " << std::setw(10) << static_cast<int32_t>(r.ids[i]);
        const float* row = r.values.data() + i * r.columns;
        for (size_t c = 0; c < r.columns; ++c) os << "    " << std::setw(10) << row[c];
        os << '\n';
    }
}

struct Timing {
    double seconds = 1e300;
    uint64_t bytes = 0;
};

template <class Format>
void Measure(const Records& r, Format format, Timing& best) {
    CountingSink sink;
    std::ostream os(&sink);
    const auto start = std::chrono::steady_clock::now();
    format(r, 0, r.nodes, os);
    os.flush();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    best.seconds = std::min(best.seconds, elapsed.count());
    best.bytes = sink.Bytes();
}

}  // namespace

int main(int argc, char** argv) {
    const size_t nodes = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1000000;
    const size_t columns = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 6;
    const int runs = argc > 3 ? std::atoi(argv[3]) : 3;
    if (nodes == 0 || columns == 0 || runs <= 0) {
        std::fprintf(stderr, "usage: %s [nodes] [columns] [runs]\n", argv[0]);
        return 1;
    }
    const Records records = MakeRecords(nodes, columns);

    // The same rows must give the same bytes; a sample spread over the whole range.
    size_t mismatches = 0;
    const size_t sampleRows = std::min<size_t>(nodes, 20000);
    for (size_t begin : {size_t{0}, nodes / 2, nodes - sampleRows}) {
        const size_t end = std::min(nodes, begin + sampleRows);
        std::ostringstream mine, reference;
        WithBuffer(records, begin, end, mine);
        WithStream(records, begin, end, reference);
        if (mine.str() != reference.str()) ++mismatches;
    }
    if (mismatches != 0) {
        std::fprintf(stderr, "%zu of 3 samples differ between OutputBuffer and iostream\n",
                     mismatches);
        return 1;
    }

    Timing buffer, stream;
    for (int run = 0; run < runs; ++run) {
        Measure(records, WithBuffer, buffer);
        Measure(records, WithStream, stream);
    }
    if (buffer.bytes != stream.bytes) {
        std::fprintf(stderr, "text sizes differ: %llu and %llu bytes\n",
                     static_cast<unsigned long long>(buffer.bytes),
                     static_cast<unsigned long long>(stream.bytes));
        return 1;
    }
    const double values = static_cast<double>(nodes * (columns + 1));
    const double megabytes = static_cast<double>(buffer.bytes) / 1e6;
    std::printf("dump value lines: %zu rows x %zu columns + id, %.1f MB of text, best of %d\n",
                nodes, columns, megabytes, runs);
    std::printf("  OutputBuffer: %.3f s, %.0f MB/s, %.1f ns/value\n", buffer.seconds,
                megabytes / buffer.seconds, buffer.seconds * 1e9 / values);
    std::printf("  iostream:     %.3f s, %.0f MB/s, %.1f ns/value\n", stream.seconds,
                megabytes / stream.seconds, stream.seconds * 1e9 / values);
    std::printf("  ratio (iostream time / OutputBuffer time): %.2fx; sample texts identical\n",
                stream.seconds / buffer.seconds);
    return 0;
}
