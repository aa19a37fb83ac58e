#include "Mrl/Zol/Group.h"

#include "Mrl/Hbf/HbFile.h"

namespace MrlZol {

void Group::Load(MrlHbf::HbFile& file, const std::string& lightBlock,
                 const std::string& attributesBlock, const std::string& objectVersion) {
    if (objectVersion == "0.0a" || objectVersion == "0.1") return;
    file.CopyFromBlock(lightBlock, translation, 3);
    file.CopyFromBlock(lightBlock, rotation, 4);
    file.CopyFromBlock(lightBlock, scale, 3);
    if (objectVersion == "0.2") return;
    LoadAttributes(file, attributesBlock, attributes);
    if (objectVersion == "0.3") return;
    file.CopyFromBlock(lightBlock, mergeable);
    mergeable = mergeable != 0 ? 1 : 0;
}

}  // namespace MrlZol
