#include "Mrl/Zol/ModelFacts.h"

#include "Mrl/Zol/FileTypes.h"
#include "Mrl/Zol/Group.h"
#include "Mrl/Zol/Tree.h"

namespace MrlZol {

namespace {

// The attributes of the tree's first entry, if that is a group.
void CollectRootAttributes(Tree& tree, AttributeMap& rootAttributes) {
    auto& entries = tree.GetEntries();
    if (entries.empty()) return;
    const Node* first = entries.begin()->second.data;
    if (first == nullptr || first->GetClassName() != "Group") return;
    const auto* group = dynamic_cast<const Group*>(first);
    if (group == nullptr) return;
    for (const auto& [name, value] : group->attributes) rootAttributes[name] = value;
}

std::optional<std::string> TextOf(const AttributeMap& attributes, const char* name) {
    auto found = attributes.find(name);
    if (found == attributes.end()) return std::nullopt;
    return AttributesToText(found->second);
}

std::optional<std::string> TypeOf(const std::optional<std::string>& path) {
    if (!path) return std::nullopt;
    return GetFileTypeName(*path);
}

RootFacts MakeRootFacts(const AttributeMap& attributes) {
    RootFacts root;
    root.modelFile = TextOf(attributes, "Model File");
    root.modelFileType = TypeOf(root.modelFile);
    root.modelFileSize = TextOf(attributes, "Model File Size");
    root.resultsFile = TextOf(attributes, "Results File");
    root.resultsFileType = TypeOf(root.resultsFile);
    root.resultsFileSize = TextOf(attributes, "Results File Size");
    root.nodeCount = TextOf(attributes, "Number of Nodes in the Model");
    root.elementCount = TextOf(attributes, "Number of Elements in the Model");
    return root;
}

}  // namespace

ModelFacts CollectModelFacts(Tree& tree, const std::string& fileSizeText, bool withArrays,
                             const FailureHandler& onFailure, bool checkLoads) {
    ModelFacts facts;
    facts.translations = tree.translations;
    facts.fileSizeText = fileSizeText;
    AttributeMap rootAttributes;
    try {
        CollectRootAttributes(tree, rootAttributes);
    } catch (const std::exception& failure) {
        onFailure(failure);
    }
    facts.root = MakeRootFacts(rootAttributes);
    GroupShapes groupShapes;
    std::vector<AttributeMap> resultAttributes;
    try {
        CollectModelData(tree, groupShapes, resultAttributes, withArrays ? &facts.arrays : nullptr,
                         checkLoads);
    } catch (const std::exception& failure) {
        onFailure(failure);
    }
    facts.summary = SummarizeModel(groupShapes, resultAttributes);
    return facts;
}

}  // namespace MrlZol
