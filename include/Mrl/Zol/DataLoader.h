#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace MrlHbf {
class Block;
class HbFile;
}  // namespace MrlHbf

namespace MrlZol {

enum ElementTag : uint32_t {
    NoElementTag = 0,
    FloatElementTag = 1,
    UnsignedElementTag = 5,
};

// The deferred read of one array: where its payload lies and how its bytes are laid out.
// Nothing is read until LoadTo; the values go into the caller's vector.
class DataLoader {
public:
    DataLoader(MrlHbf::HbFile& file, std::string blockName, uint64_t position, uint64_t byteSize,
               uint8_t components, bool isPlanar, uint32_t elementTag);

    void LoadTo(std::vector<float>& target) const;
    void LoadTo(std::vector<uint32_t>& target) const;
    // Does all that LoadTo of the form for this tag does short of the copy (the tag, the
    // position, the payload's bounds in its block), so it fails where LoadTo would; returns
    // the number of elements LoadTo gives.
    uint32_t CheckLoad(ElementTag acceptedTag) const;
    // Elements [first, first + count) of what LoadTo gives, decoded from the payload in its
    // block into the caller's memory, checked as LoadTo checks; a range past the elements
    // fails as a short read. Holds no copy of the array.
    void ReadRange(ElementTag acceptedTag, uint64_t first, uint32_t count,
                   uint32_t* destination) const;
    // The payload as stored, checked as LoadTo checks it, and its number of elements, for a
    // caller that decodes it (DecodePayload) straight into memory of its own. Valid until
    // the file is read again; null when there are no elements.
    const uint8_t* TakePayload(ElementTag acceptedTag, uint32_t& count) const;

    MrlHbf::HbFile& file;
    std::string blockName;
    uint64_t position;
    uint64_t byteSize;
    uint8_t components;
    uint8_t isPlanar;
    uint32_t elementTag;

private:
    // Positions the block at the payload; the block that holds it, or null for no elements.
    MrlHbf::Block* SeekPayload(uint32_t acceptedTag) const;
    template <class T>
    void LoadInto(std::vector<T>& target, uint32_t acceptedTag) const;
};

// Undoes the byte planes of n 32-bit elements whose planes lie `plane` bytes apart: byte p of
// element j is source[p * plane + j]. Element j goes to destination[j * stride].
void UndoBytePlanes(const uint8_t* source, size_t plane, size_t n, uint32_t* destination,
                    size_t stride);

// Elements [first, first + count) of a stored payload of n elements, in their final order.
void DecodeRange(const uint8_t* payload, size_t n, uint8_t components, bool isPlanar, size_t first,
                 size_t count, uint32_t* destination);

// Turns a stored payload of n elements into the elements in their final order.
void DecodePayload(const uint8_t* payload, size_t n, uint8_t components, bool isPlanar,
                   uint32_t* destination);

}  // namespace MrlZol
