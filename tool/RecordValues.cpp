#include "RecordValues.h"

#include <exception>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "ValueConversion.h"

namespace ZolInfo {

size_t CheckLoad(const MrlZol::DataLoader& loader, bool asFloat) {
    uint32_t accepted = asFloat ? MrlZol::FloatElementTag : MrlZol::UnsignedElementTag;
    if (loader.elementTag != MrlZol::NoElementTag && loader.elementTag != accepted) {
        // LoadTo refuses before it reads anything; let it raise its own failure.
        std::vector<float> floats;
        std::vector<uint32_t> words;
        asFloat ? loader.LoadTo(floats) : loader.LoadTo(words);
    }
    MrlHbf::Index& index = loader.file.GetIndex();
    MrlHbf::FileStream& stream = loader.file.GetStream();
    index.ReleaseBlocksOutside(loader.blockName, loader.position);
    index.SetPosition(loader.blockName, loader.position, stream);
    size_t n = static_cast<uint32_t>(loader.byteSize >> 2);
    if (n == 0) return 0;
    index.GetBlock(index.GetReadingBlockIndex(loader.blockName, stream)).Require(loader.byteSize);
    return n;
}

void Materialize(DataRecord& record) {
    if (!record.source || record.count == 0) return;
    if (!record.floatValues.empty() || !record.intValues.empty()) return;
    // One block of the name in memory at a time, whatever order the dump asks in.
    record.source->file.GetIndex().ReleaseBlocksOutside(record.source->blockName,
                                                        record.source->position);
    try {
        if (record.isFloat == 0) {
            record.source->LoadTo(record.intValues);
            return;
        }
        record.source->LoadTo(record.floatValues);
    } catch (const std::exception&) {
        // Cannot happen after a good check but for exhausted memory; the record then has
        // no values, and every writer sizes its lines by what is there.
        Release(record);
        record.count = 0;
        return;
    }
    if (record.resultName == "Element Indices") {
        record.intValues.resize(record.floatValues.size());
        for (size_t i = 0; i < record.floatValues.size(); ++i) {
            record.intValues[i] = TruncateToUnsigned(record.floatValues[i]);
        }
    }
}

void Release(DataRecord& record) {
    if (!record.source) return;
    std::vector<float>().swap(record.floatValues);
    std::vector<uint32_t>().swap(record.intValues);
}

}  // namespace ZolInfo
