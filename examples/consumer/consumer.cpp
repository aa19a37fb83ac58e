// Prints a model's translation history, its shapes with their result names, and the first
// values of every array, through the installed Mrl library alone.
#include <algorithm>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "Mrl/Zol/DataLoader.h"
#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Tree.h"

namespace {

constexpr size_t kShown = 4;

template <class T>
void PrintFirstValues(const MrlZol::DataLoader& loader) {
    std::vector<T> values;
    loader.LoadTo(values);
    std::cout << "      " << values.size() << " values:";
    for (size_t i = 0; i < std::min(values.size(), kShown); ++i) std::cout << ' ' << values[i];
    std::cout << '\n';
}

void PrintGeometry(const MrlZol::Geometry& geometry) {
    for (const MrlZol::GeometryData& item : geometry.data) {
        // A name is the result name, optionally 0x1E and the instance name.
        const size_t separator = item.name.find('\x1e');
        std::cout << "    " << item.name.substr(0, separator);
        if (separator != std::string::npos) std::cout << " @ " << item.name.substr(separator + 1);
        std::cout << " (kind " << item.kind << ")\n";
        const MrlZol::DataLoader* loader = item.array.GetLoader();
        if (!loader) continue;
        if (MrlZol::IsConnectivityKind(item.kind)) {
            PrintFirstValues<uint32_t>(*loader);
        } else {
            PrintFirstValues<float>(*loader);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " <zol_file>\n";
        return 1;
    }
    try {
        MrlZol::Tree tree;
        int32_t openMode = 1;  // keeps the file open, so that arrays can be read later
        int32_t loadKind = 0;
        tree.Load(argv[1], openMode, loadKind);
        std::cout << "History:\n";
        for (const MrlZol::TranslationRecord& step : tree.translations) {
            std::cout << "  " << step.date << ' ' << step.applicationName << ' '
                      << step.applicationVersion << " by " << step.userName << ": " << step.comment
                      << '\n';
        }
        for (auto& [id, entry] : tree.GetEntries()) {
            if (entry.data == nullptr || entry.data->GetClassName() != "Shape") continue;
            std::cout << "Shape " << entry.data->name << '\n';
            auto child = tree.GetEntries().find(entry.firstChild);
            if (child == tree.GetEntries().end()) continue;
            if (auto* geometry = dynamic_cast<const MrlZol::Geometry*>(child->second.data)) {
                PrintGeometry(*geometry);
            }
        }
    } catch (const std::exception& failure) {
        std::cerr << "Exception: " << failure.what() << '\n';
        return 2;
    }
    return 0;
}
