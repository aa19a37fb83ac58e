#include "Mrl/Zol/Tree.h"

#include <memory>

#include "Mrl/Util/Exception.h"
#include "Mrl/Zol/BlockVersionedIo.h"
#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Group.h"

namespace MrlZol {

namespace {
constexpr const char* kSource = "Mrl/Zol/Tree";
}

Tree::~Tree() {
    for (auto& [id, entry] : entries) {
        delete entry.data;
        entry.data = nullptr;
    }
    file.CloseFile();
}

void Tree::Load(const std::string& path, int32_t& openMode, int32_t& loadKind) {
    std::map<uint32_t, uint32_t> idMap;
    Load(path, idMap, openMode, loadKind);
}

void Tree::Load(const std::string& path, std::map<uint32_t, uint32_t>& idMap, int32_t& openMode,
                int32_t& loadKind) {
    if (loadKind != 0) return;
    std::unique_ptr<MrlHbf::HbFile> local;
    if (openMode != 1) local = std::make_unique<MrlHbf::HbFile>();
    MrlHbf::HbFile& source = openMode == 1 ? file : *local;

    source.OpenFile(path, "rb");
    if (!source.CheckMagic()) {
        std::string text = path + " is not a Zol file";
        MRL_THROW(Mrl::Util::Kind::FormatNotSupported, text.c_str(), kSource, "MrlZol::Tree::Load");
    }
    version = source.GetFileVersion();
    bool wideOffsets = false;
    MrlHbf::HbFile::CheckSupport(version, wideOffsets);

    SetCurrentId(1);
    const Group* root = dynamic_cast<const Group*>(GetCurrentNode().data);
    uint32_t mergeParent = root != nullptr && root->mergeable != 0 ? 1 : 0;

    CopyFromBlock(source, "Global Information", translations);
    Walk(source, idMap, mergeParent, wideOffsets);
    UpdateLinkedBuffers();

    if (local) {
        local->CloseFile();
        // The loaders would outlive the file they read from: take them away with it.
        for (auto& [id, entry] : entries) {
            if (auto* geometry = dynamic_cast<Geometry*>(entry.data)) {
                geometry->positions.clear();
                for (GeometryData& item : geometry->data) item.array.loader.reset();
            }
        }
    }
}

void Tree::UpdateLinkedBuffers() {
    MRL_LOG(1000, "Updating buffer links ... ", kSource, "MrlZol::Tree::UpdateLinkedBuffers");
    std::map<std::pair<uint32_t, uint32_t>, NumericArray> linkedBuffers;
    for (auto& [id, entry] : entries) {
        if (auto* geometry = dynamic_cast<Geometry*>(entry.data)) {
            for (uint32_t i = 0; i < geometry->data.size(); ++i) {
                linkedBuffers[{entry.id, i}] = geometry->data[i].array;
            }
        }
    }
    for (auto& [id, entry] : entries) {
        if (auto* geometry = dynamic_cast<Geometry*>(entry.data)) {
            for (GeometryData& item : geometry->data) {
                if (!item.linked) continue;
                item.array = linkedBuffers[{item.linkedGeometryId, item.linkedDataIndex}];
            }
        }
    }
    MRL_LOG(1000, "Buffer links updated. ", kSource, "MrlZol::Tree::UpdateLinkedBuffers");
}

}  // namespace MrlZol
