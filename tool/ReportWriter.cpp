#include "ReportWriter.h"

namespace ZolInfo {

namespace {
// Only the paths of the namespace URIs are fixed; the host is a neutral one.
constexpr const char* kMetadataUri = "http://example.org/xml/namespace";
constexpr const char* kEkmUri = "http://example.org/ekm/metaData";
}  // namespace

void ReportWriter::SetMode(ReportMode newMode) {
    mode = newMode;
    bool ekm = mode == ReportMode::EkmMetaData;
    tags[0] = ekm ? "ekmMetaData" : "mrl";
    tags[1] = ekm ? kEkmUri : kMetadataUri;
    tags[2] = ekm ? "meta-data" : "metadata";
    tags[3] = ekm ? "data" : "attribute";
    tags[4] = "name";
    tags[5] = "value";
}

void ReportWriter::AddAttribute(const std::string& key, const std::string& value) {
    body += "        <";
    body += tags[3];
    body += ' ';
    body += tags[4];
    body += "=\"";
    body += mode == ReportMode::EkmMetaData ? ToEkmKey(key) : key;
    body += "\" ";
    body += tags[5];
    body += "=\"";
    body += value;
    body += "\"/>\n";
}

void ReportWriter::AddAttribute(const std::string& key, uint64_t value) {
    AddAttribute(key, std::to_string(value));
}

void ReportWriter::AddAttribute(const std::string& key, int64_t value) {
    AddAttribute(key, std::to_string(value));
}

std::string ReportWriter::GetReport() const {
    const std::string& prefix = tags.at(0);
    const std::string& root = tags.at(2);
    return "<" + prefix + ":" + root + " xmlns:" + prefix + "=\"" + tags.at(1) + "\">\n" + body +
           "</" + prefix + ":" + root + ">\n";
}

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

}  // namespace ZolInfo
