// Prints the minimum, maximum, mean and number of NaNs of one result, for every array that
// holds it, reading the values in ranges of 64K so that memory stays flat however big the
// model is.
#include <Mrl/Model.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t kRange = 65536;

struct Statistics {
    double min = std::numeric_limits<double>::infinity();
    double max = -std::numeric_limits<double>::infinity();
    double sum = 0;
    std::uint64_t counted = 0;
    std::uint64_t nans = 0;

    void Add(double value) {
        if (std::isnan(value)) {
            ++nans;
            return;
        }
        min = std::min(min, value);
        max = std::max(max, value);
        sum += value;
        ++counted;
    }
};

// One buffer, refilled range by range.
template <class T>
Statistics Measure(const Mrl::Array& array) {
    Statistics statistics;
    std::vector<T> values(static_cast<size_t>(std::min(array.Size(), kRange)));
    for (std::uint64_t first = 0; first < array.Size(); first += kRange) {
        std::uint64_t count = std::min(kRange, array.Size() - first);
        array.Read(first, count, values.data());
        for (std::uint64_t i = 0; i < count; ++i) statistics.Add(values[i]);
    }
    return statistics;
}

void Print(const Mrl::Array& array, const Statistics& statistics) {
    std::cout << array.Analysis() << " / " << array.Geometry() << " / " << array.Result();
    if (!array.Instance().empty()) std::cout << " @ " << array.Instance();
    std::cout << ": " << array.Size() << " values";
    if (statistics.counted > 0) {
        std::cout << ", min " << statistics.min << ", max " << statistics.max << ", mean "
                  << statistics.sum / static_cast<double>(statistics.counted);
    }
    std::cout << ", " << statistics.nans << " NaN\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " <zol_file> <result>\n";
        return 1;
    }
    const std::string result = argv[2];
    try {
        Mrl::Model model = Mrl::Model::Open(argv[1]);
        bool found = false;
        for (const Mrl::Array& array : model.Arrays()) {
            if (array.Result() != result) continue;
            found = true;
            Print(array, array.IsFloat() ? Measure<float>(array) : Measure<std::uint32_t>(array));
        }
        if (!found) {
            std::cerr << argv[1] << ": no result named \"" << result << "\"\n";
            return 1;
        }
    } catch (const Mrl::Error& error) {
        std::cerr << error.what() << '\n';
        return 2;
    }
    return 0;
}
