#include "ReportWriter.h"

namespace ZolInfo {

namespace {

// Only the paths of the namespace URIs are fixed; the host is a neutral one.
constexpr const char* kMetadataUri = "http://example.org/xml/namespace";
constexpr const char* kEkmUri = "http://example.org/ekm/metaData";

struct Vocabulary {
    const char* prefix;
    const char* uri;
    const char* root;
    const char* element;
};

constexpr Vocabulary kMetadata{"mrl", kMetadataUri, "metadata", "attribute"};
constexpr Vocabulary kEkm{"ekmMetaData", kEkmUri, "meta-data", "data"};

}  // namespace

std::string FormatReport(const std::vector<MrlZol::ReportEntry>& entries, ReportMode mode) {
    bool ekm = mode == ReportMode::EkmMetaData;
    const Vocabulary& words = ekm ? kEkm : kMetadata;
    std::string report = std::string("<") + words.prefix + ":" + words.root +
                         " xmlns:" + words.prefix + "=\"" + words.uri + "\">\n";
    for (const MrlZol::ReportEntry& entry : entries) {
        report += "        <";
        report += words.element;
        report += " name=\"";
        report += ekm ? MrlZol::ToEkmKey(entry.key) : entry.key;
        report += "\" value=\"";
        report += entry.value;
        report += "\"/>\n";
    }
    return report + "</" + words.prefix + ":" + words.root + ">\n";
}

}  // namespace ZolInfo
