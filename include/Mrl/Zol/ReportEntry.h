#pragma once
#include <string>

namespace MrlZol {

// One fact of a report, keyed in the metadata vocabulary.
struct ReportEntry {
    std::string key;
    std::string value;

    bool operator==(const ReportEntry&) const = default;
};

// The EKM form of a key: first character lower-cased, white space dropped.
std::string ToEkmKey(const std::string& key);

}  // namespace MrlZol
