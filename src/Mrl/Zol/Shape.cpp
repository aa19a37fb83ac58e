#include "Mrl/Zol/Shape.h"

#include "Mrl/Zol/BlockVersionedIo.h"

namespace MrlZol {

void Shape::Load(MrlHbf::HbFile& file, const std::string& resourcesBlock,
                 const std::string& objectVersion) {
    if (objectVersion == "0.0a" || objectVersion == "0.1") return;
    CopyFromBlock(file, resourcesBlock, material);
}

}  // namespace MrlZol
