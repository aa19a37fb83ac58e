#include "Mrl/Zol/ArrayRecord.h"

#include <cstring>
#include <exception>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Util/Exception.h"
#include "Mrl/Zol/DataLoader.h"

namespace MrlZol {

size_t ArrayRecord::Size() const {
    if (loader) return count;
    return isFloat ? floatValues.size() : intValues.size();
}

void ArrayRecord::LoadValues() {
    if (!loader || count == 0) return;
    if (InMemory()) return;
    // One block of the name in memory at a time, whatever order the caller asks in.
    loader->file.GetIndex().ReleaseBlocksOutside(loader->blockName, loader->position);
    try {
        isFloat ? loader->LoadTo(floatValues) : loader->LoadTo(intValues);
    } catch (const std::exception&) {
        // Cannot happen after a good check but for exhausted memory; the record then has
        // no values, and every reader sizes its lines by what is there.
        ReleaseValues();
        count = 0;
    }
}

void ArrayRecord::ReleaseValues() {
    if (!loader) return;
    std::vector<float>().swap(floatValues);
    std::vector<uint32_t>().swap(intValues);
}

void ArrayRecord::ReadRange(size_t first, size_t n, uint32_t* destination) const {
    if (InMemory()) {
        // The loader checks ranges against the payload; values in memory are checked here.
        if (first > Size() || n > Size() - first) {
            MRL_THROW(Mrl::Util::Kind::OutOfBounds, "Not enough values in the array",
                      "Mrl/Zol/ArrayRecord", "MrlZol::ArrayRecord::ReadRange");
        }
        const void* values = isFloat ? static_cast<const void*>(floatValues.data() + first)
                                     : static_cast<const void*>(intValues.data() + first);
        std::memcpy(destination, values, n * 4);
        return;
    }
    loader->file.GetIndex().ReleaseBlocksOutside(loader->blockName, loader->position);
    loader->ReadRange(isFloat ? FloatElementTag : UnsignedElementTag, first,
                      static_cast<uint32_t>(n), destination);
}

uint64_t ArrayRecord::BlockEntry() const {
    if (!loader || count == 0 || InMemory()) return MrlHbf::Index::kNoEntry;
    return loader->file.GetIndex().EntryHolding(loader->blockName, loader->position);
}

}  // namespace MrlZol
