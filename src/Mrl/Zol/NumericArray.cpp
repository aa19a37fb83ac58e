#include "Mrl/Zol/NumericArray.h"

#include "Mrl/Zol/DataLoader.h"

namespace MrlZol {

void NumericArray::AttachLoader(MrlHbf::HbFile& file, const std::string& blockName,
                                uint64_t position, bool isPlanar) {
    if (loader && loader.use_count() > 0) return;
    loader = std::make_shared<DataLoader>(file, blockName, position, byteSize, components, isPlanar,
                                          elementTag);
}

}  // namespace MrlZol
