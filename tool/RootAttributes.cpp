#include "RootAttributes.h"

#include "FileTypes.h"
#include "Mrl/Zol/Group.h"

namespace ZolInfo {

void CollectRootAttributes(MrlZol::Tree& tree, MrlZol::AttributeMap& rootAttributes,
                           std::ostream& err) {
    try {
        auto& entries = tree.GetEntries();
        if (entries.empty()) return;
        const MrlZol::Node* first = entries.begin()->second.data;
        if (first == nullptr || first->GetClassName() != "Group") return;
        const auto* group = dynamic_cast<const MrlZol::Group*>(first);
        if (group == nullptr) return;
        for (const auto& [name, value] : group->attributes) rootAttributes[name] = value;
    } catch (const std::exception& failure) {
        err << "Exception: " << failure.what() << '\n';
    }
}

void WriteRootEntries(ReportWriter& writer, const MrlZol::AttributeMap& rootAttributes) {
    struct Row {
        const char* attribute;
        const char* key;
        const char* typeKey;  // null: the row has no format entry
    };
    static const Row rows[] = {
        {"Model File", "Model File", "Model File Type"},
        {"Model File Size", "Native Model File Size", nullptr},
        {"Results File", "Results File", "Results File Type"},
        {"Results File Size", "Native Results File Size", nullptr},
        {"Number of Nodes in the Model", "Number of Nodes", nullptr},
        {"Number of Elements in the Model", "Number of Elements", nullptr},
    };
    for (const Row& row : rows) {
        auto found = rootAttributes.find(row.attribute);
        if (found == rootAttributes.end()) continue;
        std::string text = MrlZol::AttributesToText(found->second);
        writer.AddAttribute(row.key, text);
        if (row.typeKey != nullptr) writer.AddAttribute(row.typeKey, GetFileTypeName(text));
    }
}

}  // namespace ZolInfo
