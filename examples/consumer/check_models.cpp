// Opens each model named on the command line and reads every value of it, as a program that
// must not stop at a bad file does: a failure is reported with what Mrl::Error tells, and the
// next file is checked. The exit status is 1 when any file failed.
#include <Mrl/Model.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t kRange = 65536;

// Reads the whole array; the values themselves don't matter here, only that they can be read.
template <class T>
void ReadAll(const Mrl::Array& array) {
    std::vector<T> values(static_cast<size_t>(std::min(array.Size(), kRange)));
    for (std::uint64_t first = 0; first < array.Size(); first += kRange) {
        array.Read(first, std::min(kRange, array.Size() - first), values.data());
    }
}

void Report(const Mrl::Error& error) {
    std::cout << "  kind " << error.Kind() << ", file \"" << error.File() << "\"\n";
    if (!error.Where().empty()) std::cout << "  where: " << error.Where() << '\n';
    std::cout << "  description: " << error.Description() << '\n';
    // A failure of the system (the file is missing, unreadable) rather than of its contents.
    if (error.SystemError() != 0) {
        std::cout << "  system error " << error.SystemError()
                  << (error.SystemError() == ENOENT ? " (no such file)" : "") << '\n';
    }
    std::cout << "  what(): " << error.what() << '\n';
}

bool Check(const std::string& path) {
    std::vector<Mrl::Error> warnings;
    try {
        // Steps that can't gather a fact of the report don't stop the model from opening.
        Mrl::Model model =
            Mrl::Model::Open(path, [&](const Mrl::Error& warning) { warnings.push_back(warning); });
        std::uint64_t values = 0;
        for (const Mrl::Array& array : model.Arrays()) {
            if (array.IsFloat()) {
                ReadAll<float>(array);
            } else {
                ReadAll<std::uint32_t>(array);
            }
            values += array.Size();
        }
        std::cout << path << ": good, " << model.Arrays().size() << " arrays, " << values
                  << " values, " << warnings.size() << " warnings\n";
        for (const Mrl::Error& warning : warnings)
            std::cout << "  warning: " << warning.what() << '\n';
        return true;
    } catch (const Mrl::Error& error) {
        std::cout << path << ": failed\n";
        Report(error);
        return false;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: " << argv[0] << " <zol_file>...\n";
        return 2;
    }
    bool allGood = true;
    for (int i = 1; i < argc; ++i) allGood = Check(argv[i]) && allGood;
    return allGood ? 0 : 1;
}
