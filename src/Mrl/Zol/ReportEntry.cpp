#include "Mrl/Zol/ReportEntry.h"

namespace MrlZol {

std::string ToEkmKey(const std::string& key) {
    std::string converted;
    converted.reserve(key.size());
    for (size_t i = 0; i < key.size(); ++i) {
        char c = key[i];
        if (i == 0) {
            converted += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r') continue;
        converted += c;
    }
    return converted;
}

}  // namespace MrlZol
