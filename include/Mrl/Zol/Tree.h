#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Mrl/Adt/AdtTree.h"
#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/Node.h"
#include "Mrl/Zol/TranslationRecord.h"

namespace MrlZol {

// The loaded model: history, the tree of nodes and the open file their arrays come from.
class Tree : public MrlAdt::Tree<Node*> {
public:
    Tree() = default;
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    ~Tree() override;

    void Load(const std::string& path, int32_t& openMode, int32_t& loadKind);
    void Load(const std::string& path, std::map<uint32_t, uint32_t>& idMap, int32_t& openMode,
              int32_t& loadKind);
    void UpdateLinkedBuffers();

    std::string version;
    std::vector<TranslationRecord> translations;
    MrlHbf::HbFile file;

private:
    void Walk(MrlHbf::HbFile& source, std::map<uint32_t, uint32_t>& idMap, uint32_t mergeParent,
              bool wideOffsets);
    void Attach(uint32_t entryId, const uint32_t links[5], Node* payload, bool underMergeParent,
                uint32_t mergeParent);
    void AttachLoaders(MrlHbf::HbFile& source);
};

}  // namespace MrlZol
