#pragma once
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "Mrl/Hbf/Block.h"
#include "Mrl/Hbf/FileStream.h"
#include "Mrl/Hbf/Index.h"
#include "Mrl/Util/Exception.h"

namespace MrlHbf {

// A block file as a whole: the open stream and its index. Everything above asks for data by
// block name through the CopyFromBlock family; an absent name reads as nothing.
class HbFile {
public:
    static constexpr uint8_t kMagic[8] = {0x89, 0x48, 0x42, 0x46, 0x0D, 0x0A, 0x1A, 0x0A};

    HbFile() = default;
    HbFile(const HbFile&) = delete;
    HbFile& operator=(const HbFile&) = delete;
    virtual ~HbFile();
    virtual void CloseFile();

    void OpenFile(const std::string& path, const char* mode);
    bool CheckMagic();
    std::string GetFileVersion();
    static void CheckSupport(const std::string& version, bool& wideOffsets);
    void ReadIndex();

    bool IsOpen() const { return stream.IsOpen(); }
    Index& GetIndex() { return index; }
    FileStream& GetStream() { return stream; }

    // The shared preamble of every read by name. reader(Block&) takes its value out of the
    // block that stands next in the name's stream. Without an open stream, a missing block
    // is swallowed only when swallowWhenClosed is set.
    template <class Reader>
    void ReadNamed(const std::string& name, Reader&& reader, bool swallowWhenClosed = false) {
        if (index.IsEmpty() && stream.IsOpen()) ReadIndex();
        if (!stream.IsOpen() && !swallowWhenClosed) {
            reader(index.GetBlock(index.GetReadingBlockIndex(name)));
            return;
        }
        try {
            uint64_t number = stream.IsOpen() ? index.GetReadingBlockIndex(name, stream)
                                              : index.GetReadingBlockIndex(name);
            reader(index.GetBlock(number));
        } catch (const Mrl::Util::Exception& failure) {
            if (failure.GetKind() != Mrl::Util::Kind::ElementNotFound) throw;
        }
    }

    // Raw bytes.
    void CopyFromBlock(const std::string& name, void* destination, uint32_t count);
    // Array of 32-bit values.
    template <class T>
    requires(sizeof(T) == 4 && std::is_arithmetic_v<T>) void CopyFromBlock(const std::string& name,
                                                                           T* destination,
                                                                           uint32_t count) {
        uint64_t bytes = uint64_t{count} * 4;
        ReadNamed(
            name,
            [&](Block& block) {
                block.Require(bytes);
                block.Get(destination, static_cast<uint32_t>(bytes));
            },
            true);
    }
    // One value of 1, 4 or 8 bytes.
    template <class T>
    requires std::is_arithmetic_v<T>
    void CopyFromBlock(const std::string& name, T& value) {
        ReadNamed(name, [&](Block& block) { block.Get(&value, sizeof(T)); });
    }
    void CopyFromBlock(const std::string& name, std::string& value);
    void CopyFromBlock(const std::string& name, std::vector<std::string>& values);
    template <class T>
    requires std::is_arithmetic_v<T>
    void CopyFromBlock(const std::string& name, std::vector<T>& values) {
        ReadNamed(name, [&](Block& block) { MrlHbf::CopyFromBlock(block, values); });
    }

private:
    FileStream stream;
    Index index;
};

}  // namespace MrlHbf
