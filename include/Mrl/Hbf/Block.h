#pragma once
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "Mrl/Hbf/FileStream.h"

namespace MrlHbf {

// One block of a block file in memory: a growable byte buffer with a read position.
// Every read of file bytes goes through Take/Get, which check the count against the bytes
// that remain before anything is copied or allocated.
class Block {
public:
    static constexpr uint64_t kGrowthFloor = 10485760;  // 10 MiB: buffers grow rarely

    Block() = default;
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    Block(Block&& other) noexcept;
    Block& operator=(Block&& other) noexcept;
    ~Block();

    void Get(void* destination, uint32_t count);
    // The next count bytes in place; the position moves past them.
    const uint8_t* Take(uint32_t count);
    void Read(FileStream& stream, uint32_t count);
    void SetPosition(uint32_t newPosition);
    void SetPosition(uint64_t newPosition);
    void AllocateAdditionalMemory(uint64_t extra);

    uint8_t* GetBuffer() const { return buffer; }
    uint64_t GetCapacity() const { return capacity; }
    uint32_t GetSize() const { return size; }
    uint32_t GetPosition() const { return position; }
    uint32_t Remaining() const { return size - position; }
    bool HasBuffer() const { return buffer != nullptr; }

    // Throws the short-read failure unless count bytes remain.
    void Require(uint64_t count) const;
    // Frees the buffer but keeps size and position, so that the block counts as used up.
    void Release();
    // As Release, but hands the malloc'ed buffer and its capacity to the caller.
    uint8_t* Surrender(uint64_t& bufferCapacity);
    // Frees the buffer and returns to the empty state.
    void Reset();
    // Hands the buffer and its contents' size to the caller, leaving the block empty.
    uint8_t* TakeBuffer(uint32_t& contentsSize);
    // Appends bytes at the position, growing by at least the floor, as a fresh fill does.
    void Append(const uint8_t* bytes, uint32_t count);
    // Adopts a malloc'ed buffer of the given capacity holding count bytes of contents.
    void Adopt(uint8_t* adopted, uint64_t adoptedCapacity, uint32_t count);

private:
    [[noreturn]] static void FailShort();

    uint8_t* buffer = nullptr;
    uint64_t capacity = 0;
    uint32_t size = 0;
    uint32_t position = 0;
};

// Asks the system to back a large buffer with huge pages where it can: a block is filled once,
// front to back, and the faults of its 4 KiB pages cost more than the inflation into them.
void AdviseHugePages(void* buffer, uint64_t size);
// Gives the pages of buffer[used, size) back to the system, keeping the address range: a kept
// buffer larger than its next contents would otherwise hold memory the contents don't need.
void ReturnPagesBeyond(void* buffer, uint64_t used, uint64_t size);

// Value readers over a block: strings and vectors in the block layout
// (u32 length or count, then the bytes or the elements).
void CopyFromBlock(Block& block, std::string& destination);
void CopyFromBlock(Block& block, std::vector<std::string>& destination);

template <class T>
requires std::is_arithmetic_v<T>
void CopyFromBlock(Block& block, std::vector<T>& destination) {
    uint32_t count = 0;
    block.Get(&count, 4);
    if (count == 0) {
        destination.clear();
        return;
    }
    block.Require(uint64_t{count} * sizeof(T));
    destination.resize(count);
    block.Get(destination.data(), static_cast<uint32_t>(count * sizeof(T)));
}

}  // namespace MrlHbf
