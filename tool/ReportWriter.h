#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace MrlZol {
class DataLoader;
}

namespace ZolInfo {

enum class ReportMode : int32_t {
    Metadata = 0,
    ExtractData = 1,
    EkmMetaData = 2,
};

// One array of one Geometry for the data dump. Its values are in the vectors, or, when
// `source` is set, read again through it while the dump is written, so that a dump holds only
// the arrays it is printing.
struct DataRecord {
    std::string analysis;
    std::string resultName;
    std::string instanceName;
    uint32_t isFloat = 1;
    std::vector<float> floatValues;
    std::vector<uint32_t> intValues;
    std::vector<std::string> elementSets;
    std::shared_ptr<const MrlZol::DataLoader> source;
    size_t count = 0;  // the size while the values are read through `source`

    size_t Size() const {
        if (source) return count;
        return isFloat != 0 ? floatValues.size() : intValues.size();
    }
};

// Gathers the report's entries as one XML string, in the vocabulary of the mode.
class ReportWriter {
public:
    void SetMode(ReportMode newMode);
    ReportMode GetMode() const { return mode; }
    void AddAttribute(const std::string& key, const std::string& value);
    void AddAttribute(const std::string& key, uint64_t value);
    void AddAttribute(const std::string& key, int64_t value);
    std::string GetReport() const;

    std::vector<DataRecord> dataRecords;

private:
    ReportMode mode = ReportMode::Metadata;
    std::map<int, std::string> tags;
    std::string body;
};

// The EKM form of a key: first character lower-cased, white space dropped.
std::string ToEkmKey(const std::string& key);

}  // namespace ZolInfo
