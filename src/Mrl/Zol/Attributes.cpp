#include "Mrl/Zol/Attributes.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Util/Exception.h"

namespace MrlZol {

using Mrl::Util::Kind;

AttributeValue AttributeValue::Unsigned(uint32_t value) {
    AttributeValue made;
    made.tag = UnsignedTag;
    made.unsignedValue = value;
    return made;
}

AttributeValue AttributeValue::Float(float value) {
    AttributeValue made;
    made.tag = FloatTag;
    made.floatValue = value;
    return made;
}

AttributeValue AttributeValue::Double(double value) {
    AttributeValue made;
    made.tag = DoubleTag;
    made.doubleValue = value;
    return made;
}

AttributeValue AttributeValue::Text(const std::string& value) {
    AttributeValue made;
    made.tag = TextTag;
    std::memset(made.textValue, 0, kTextField);
    std::memcpy(made.textValue, value.data(), std::min(value.size(), kTextField));
    return made;
}

void LoadAttributes(MrlHbf::HbFile& file, const std::string& blockName, AttributeMap& map) {
    std::vector<std::string> names;
    std::vector<uint8_t> tags;
    std::vector<uint32_t> unsignedValues;
    std::vector<float> floatValues;
    std::vector<double> doubleValues;
    std::vector<std::string> textValues;
    try {
        file.CopyFromBlock(blockName, names);
        file.CopyFromBlock(blockName, tags);
        file.CopyFromBlock(blockName, unsignedValues);
        file.CopyFromBlock(blockName, floatValues);
        file.CopyFromBlock(blockName, doubleValues);
        file.CopyFromBlock(blockName, textValues);
    } catch (const Mrl::Util::Exception& failure) {
        if (failure.GetKind() != Kind::OutOfBounds && failure.GetKind() != Kind::ElementNotFound) {
            throw;
        }
        return;
    }
    size_t nextUnsigned = 0, nextFloat = 0, nextDouble = 0, nextText = 0;
    for (size_t i = 0; i < names.size(); ++i) {
        // A file whose tags outrun its lists or its values is damaged: the rest of it is
        // dropped rather than read past the ends of the lists.
        if (i >= tags.size()) break;
        AttributeValue value;
        switch (tags[i]) {
            case UnsignedTag:
                if (nextUnsigned >= unsignedValues.size()) return;
                value = AttributeValue::Unsigned(unsignedValues[nextUnsigned++]);
                break;
            case FloatTag:
                if (nextFloat >= floatValues.size()) return;
                value = AttributeValue::Float(floatValues[nextFloat++]);
                break;
            case DoubleTag:
                if (nextDouble >= doubleValues.size()) return;
                value = AttributeValue::Double(doubleValues[nextDouble++]);
                break;
            case TextTag:
                if (nextText >= textValues.size()) return;
                value = AttributeValue::Text(textValues[nextText++]);
                break;
            default:
                // An unknown tag keeps its number and has no value: it reports as empty text.
                value.tag = tags[i];
                break;
        }
        map[names[i]] = value;
    }
}

std::string AttributesToText(const AttributeValue& value) {
    char text[64];
    switch (value.tag) {
        case UnsignedTag:
            return std::to_string(value.unsignedValue);
        case FloatTag:
            std::snprintf(text, sizeof text, "%g", static_cast<double>(value.floatValue));
            return text;
        case DoubleTag:
            std::snprintf(text, sizeof text, "%g", value.doubleValue);
            return text;
        case TextTag:
            return std::string(value.textValue,
                               strnlen(value.textValue, AttributeValue::kTextField));
        default:
            return std::string();
    }
}

}  // namespace MrlZol
