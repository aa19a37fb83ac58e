#pragma once
#include <cstdint>
#include <string>

namespace MrlZol {

// One translation that made or modified the file.
struct TranslationRecord {
    uint8_t flag = 0;
    std::string applicationName;
    std::string applicationVersion;
    std::string zolVersion;
    std::string date;
    std::string extraText;
    std::string userName;
    std::string comment;
};

}  // namespace MrlZol
