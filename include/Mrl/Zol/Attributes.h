#pragma once
#include <cstdint>
#include <map>
#include <string>

namespace MrlHbf {
class HbFile;
}

namespace MrlZol {

enum AttributeTag : uint32_t {
    UnsignedTag = 0,
    FloatTag = 1,
    TextTag = 2,
    DoubleTag = 3,
};

// A tagged value; a text lives in a fixed 256-byte field, cut there.
struct AttributeValue {
    static constexpr size_t kTextField = 256;

    uint32_t tag = UnsignedTag;
    union {
        uint32_t unsignedValue;
        float floatValue;
        char textValue[kTextField];
        double doubleValue;
    };

    AttributeValue() : textValue{} {}
    static AttributeValue Unsigned(uint32_t value);
    static AttributeValue Float(float value);
    static AttributeValue Double(double value);
    static AttributeValue Text(const std::string& value);
};

using AttributeMap = std::map<std::string, AttributeValue>;

// Reads one map (six lists: names, tags, unsigned, float, double and text values) from the
// named block. A map cut short leaves `map` as it was: attribute damage never stops a load.
void LoadAttributes(MrlHbf::HbFile& file, const std::string& blockName, AttributeMap& map);

// The one way from a value to report text: numbers as a default-configured stream prints them.
std::string AttributesToText(const AttributeValue& value);

}  // namespace MrlZol
