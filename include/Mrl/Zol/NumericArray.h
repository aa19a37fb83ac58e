#pragma once
#include <cstdint>
#include <memory>
#include <string>

namespace MrlHbf {
class HbFile;
}

namespace MrlZol {

class DataLoader;

// The small description of one bulk array of 32-bit elements. A value type: a copy shares
// the loader, so an array stored once serves every link to it.
class NumericArray {
public:
    virtual ~NumericArray() = default;
    virtual uint8_t GetComponents() const { return components; }
    virtual uint64_t GetCount() const { return byteSize / 4; }

    // Gives the array a loader unless it has one in use already.
    void AttachLoader(MrlHbf::HbFile& file, const std::string& blockName, uint64_t position,
                      bool isPlanar);
    // The loader, or null if the array has none.
    DataLoader* GetLoader() const {
        return loader && loader.use_count() > 0 ? loader.get() : nullptr;
    }
    long GetLoaderUseCount() const { return loader.use_count(); }

    void* dataSlot = nullptr;
    uint64_t byteSize = 0;
    uint8_t components = 1;
    uint8_t hasData = 0;
    std::shared_ptr<DataLoader> loader;
    uint32_t elementTag = 0;
    uint8_t flag1 = 0;
    uint8_t flag2 = 0;
    float value1 = 0.0f;
    float value2 = 0.0f;
    uint8_t flag3 = 0;
};

}  // namespace MrlZol
