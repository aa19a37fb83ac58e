// Lists a model's history and arrays, with the first values of each, through the installed
// library's public API alone.
#include <Mrl/Model.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <vector>

namespace {

constexpr std::uint64_t kShown = 4;

template <class T>
void PrintFirstValues(const Mrl::Array& array) {
    std::vector<T> values(static_cast<size_t>(std::min(array.Size(), kShown)));
    array.Read(0, values.size(), values.data());
    std::cout << "    " << array.Size() << " values:";
    for (T value : values) std::cout << ' ' << value;
    std::cout << '\n';
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " <zol_file>\n";
        return 1;
    }
    try {
        Mrl::Model model = Mrl::Model::Open(argv[1], [](const Mrl::Error& warning) {
            std::cerr << "warning: " << warning.what() << '\n';
        });
        std::cout << "Version " << model.Version() << "\nHistory:\n";
        for (const Mrl::Translation& step : model.History()) {
            std::cout << "  " << step.date << ' ' << step.applicationName << ' '
                      << step.applicationVersion << " by " << step.userName << ": " << step.comment
                      << '\n';
        }
        for (const Mrl::Array& array : model.Arrays()) {
            std::cout << array.Analysis() << " / " << array.Geometry() << " / " << array.Result();
            if (!array.Instance().empty()) std::cout << " @ " << array.Instance();
            std::cout << " (kind " << array.Kind() << ", " << array.Components()
                      << " components)\n";
            if (array.IsFloat()) {
                PrintFirstValues<float>(array);
            } else {
                PrintFirstValues<std::uint32_t>(array);
            }
        }
    } catch (const Mrl::Error& error) {
        std::cerr << error.what() << '\n';
        return 2;
    }
    return 0;
}
