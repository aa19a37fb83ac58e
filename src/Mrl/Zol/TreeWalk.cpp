// The walk over "Zol Tree": one loop over flat records, no recursion; the links are data.
#include <memory>

#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Group.h"
#include "Mrl/Zol/Shape.h"
#include "Mrl/Zol/Tree.h"

namespace MrlZol {

namespace {

const std::string kZolTree = "Zol Tree";
const std::string kLightData = "Light Data";
const std::string kHeavyData = "Heavy Data";
const std::string kAttributes = "Attributes";
const std::string kResources = "Resources";

std::unique_ptr<Node> MakePayload(MrlHbf::HbFile& source, const std::string& name,
                                  const std::string& classWord, const std::string& objectVersion,
                                  uint32_t idOffset) {
    if (classWord == "Group") {
        auto group = std::make_unique<Group>(name, AttributeMap());
        group->Load(source, kLightData, kAttributes, objectVersion);
        return group;
    }
    if (classWord == "Shape") {
        auto shape = std::make_unique<Shape>(name);
        shape->Load(source, kResources, objectVersion);
        return shape;
    }
    if (classWord == "Geometry") {
        auto geometry = std::make_unique<Geometry>(name);
        geometry->Load(source, kLightData, kHeavyData, kAttributes, objectVersion, idOffset);
        return geometry;
    }
    return nullptr;
}

}  // namespace

void Tree::Walk(MrlHbf::HbFile& source, std::map<uint32_t, uint32_t>& idMap, uint32_t mergeParent,
                bool wideOffsets) {
    uint32_t idOffset = mergeParent != 0 ? nextId - 1 : 0;
    int32_t count = 0;
    source.CopyFromBlock(kZolTree, count);
    for (int32_t record = 0; record < count; ++record) {
        uint32_t id = 0;
        source.CopyFromBlock(kZolTree, id);
        uint32_t entryId = id + idOffset;
        idMap[entryId] = id;

        // parent, previous sibling, next sibling, first child, last child
        uint32_t links[5] = {};
        for (uint32_t& link : links) source.CopyFromBlock(kZolTree, link);
        links[0] = links[0] == 0 ? mergeParent : links[0] + idOffset;
        for (int k = 1; k < 5; ++k) {
            if (links[k] != 0) links[k] += idOffset;
        }

        std::string name, classWord, objectVersion;
        source.CopyFromBlock(kZolTree, name);
        source.CopyFromBlock(kZolTree, classWord);
        source.CopyFromBlock(kZolTree, objectVersion);
        uint64_t lightOffset = 0;
        if (wideOffsets) {
            source.CopyFromBlock(kZolTree, lightOffset);
        } else {
            uint32_t narrow = 0;
            source.CopyFromBlock(kZolTree, narrow);
            lightOffset = narrow;
        }
        if (lightOffset != 0) {
            source.GetIndex().SetPosition(kLightData, lightOffset, source.GetStream());
        }

        std::unique_ptr<Node> payload =
            MakePayload(source, name, classWord, objectVersion, idOffset);
        Attach(entryId, links, payload.release(), record == 0 && mergeParent != 0, mergeParent);
    }
    AttachLoaders(source);
}

void Tree::Attach(uint32_t entryId, const uint32_t links[5], Node* payload, bool underMergeParent,
                  uint32_t mergeParent) {
    if (underMergeParent) {
        SetCurrentId(mergeParent);
        AddChild();
        Entry& entry = GetCurrentNode();
        entry.data = payload;
        entry.nextSibling = links[2];
        entry.firstChild = links[3];
        entry.lastChild = links[4];
        return;
    }
    Entry& entry = entries[entryId];
    // A later record with the same id takes the entry over; its old payload goes.
    delete entry.data;
    entry.id = entryId;
    entry.parent = links[0];
    entry.previousSibling = links[1];
    entry.nextSibling = links[2];
    entry.firstChild = links[3];
    entry.lastChild = links[4];
    entry.data = payload;
    if (nextId <= entryId) nextId = entryId + 1;
}

void Tree::AttachLoaders(MrlHbf::HbFile& source) {
    for (auto& [id, entry] : entries) {
        if (auto* geometry = dynamic_cast<Geometry*>(entry.data)) {
            geometry->LoadConnectivityBlocks(source, kHeavyData);
        }
    }
    for (auto& [id, entry] : entries) {
        if (auto* geometry = dynamic_cast<Geometry*>(entry.data)) {
            geometry->LoadOtherBlocks(source, kHeavyData);
        }
    }
}

}  // namespace MrlZol
