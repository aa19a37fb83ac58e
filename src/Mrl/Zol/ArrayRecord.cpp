#include "Mrl/Zol/ArrayRecord.h"

#include <exception>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/DataLoader.h"
#include "Mrl/Zol/ValueConversion.h"

namespace MrlZol {

size_t ArrayRecord::Size() const {
    if (loader) return count;
    return isFloat ? floatValues.size() : intValues.size();
}

void ArrayRecord::LoadValues() {
    if (!loader || count == 0) return;
    if (!floatValues.empty() || !intValues.empty()) return;
    // One block of the name in memory at a time, whatever order the caller asks in.
    loader->file.GetIndex().ReleaseBlocksOutside(loader->blockName, loader->position);
    try {
        if (!isFloat) {
            loader->LoadTo(intValues);
            return;
        }
        loader->LoadTo(floatValues);
    } catch (const std::exception&) {
        // Cannot happen after a good check but for exhausted memory; the record then has
        // no values, and every reader sizes its lines by what is there.
        ReleaseValues();
        count = 0;
        return;
    }
    if (resultName == "Element Indices") {
        intValues.resize(floatValues.size());
        for (size_t i = 0; i < floatValues.size(); ++i) {
            intValues[i] = TruncateToUnsigned(floatValues[i]);
        }
    }
}

void ArrayRecord::ReleaseValues() {
    if (!loader) return;
    std::vector<float>().swap(floatValues);
    std::vector<uint32_t>().swap(intValues);
}

}  // namespace MrlZol
