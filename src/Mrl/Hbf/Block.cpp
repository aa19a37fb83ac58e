#include "Mrl/Hbf/Block.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "Mrl/Util/Exception.h"

namespace MrlHbf {

using Mrl::Util::Kind;

namespace {
constexpr const char* kSource = "Mrl/Hbf/Block";
}

Block::Block(Block&& other) noexcept
    : buffer(std::exchange(other.buffer, nullptr)),
      capacity(std::exchange(other.capacity, 0)),
      size(std::exchange(other.size, 0)),
      position(std::exchange(other.position, 0)) {}

Block& Block::operator=(Block&& other) noexcept {
    if (this != &other) {
        std::free(buffer);
        buffer = std::exchange(other.buffer, nullptr);
        capacity = std::exchange(other.capacity, 0);
        size = std::exchange(other.size, 0);
        position = std::exchange(other.position, 0);
    }
    return *this;
}

Block::~Block() {
    std::free(buffer);
}

void Block::FailShort() {
    MRL_THROW(Kind::OutOfBounds, "Not enough bytes in the block", kSource, "MrlHbf::Block::Get");
}

void Block::Require(uint64_t count) const {
    if (count > uint64_t{size} - position) FailShort();
}

const uint8_t* Block::Take(uint32_t count) {
    if (count == 0) return buffer + position;
    Require(count);
    const uint8_t* at = buffer + position;
    position += count;
    return at;
}

void Block::Get(void* destination, uint32_t count) {
    if (count == 0) return;
    std::memcpy(destination, Take(count), count);
}

void Block::Read(FileStream& stream, uint32_t count) {
    if (count == 0) return;
    // A read that runs past the end of the file fails on its end-of-file indicator; refusing
    // it up front gives the same failure without setting memory aside for a size that lies.
    if (count > stream.Remaining()) {
        MRL_THROW(Kind::ReadError, "Unable to read from file", kSource, "MrlHbf::Block::Read");
    }
    if (uint64_t{position} + count >= capacity) {
        AllocateAdditionalMemory(count > kGrowthFloor ? count : kGrowthFloor);
    }
    size_t got = stream.Read(buffer + position, count);
    if (got != count || stream.AtEnd()) {
        MRL_THROW(Kind::ReadError, "Unable to read from file", kSource, "MrlHbf::Block::Read");
    }
    if (position + count > size) size = position + count;
}

void Block::SetPosition(uint32_t newPosition) {
    SetPosition(uint64_t{newPosition});
}

void Block::SetPosition(uint64_t newPosition) {
    if (newPosition > size) {
        MRL_THROW(Kind::OutOfBounds, "Invalid block position", kSource,
                  "MrlHbf::Block::SetPosition");
    }
    position = static_cast<uint32_t>(newPosition);
}

void Block::AllocateAdditionalMemory(uint64_t extra) {
    void* grown = std::realloc(buffer, capacity + extra);
    if (grown == nullptr) {
        MRL_THROW(Kind::MemoryAllocationError, nullptr, kSource,
                  "MrlHbf::Block::AllocateAdditionalMemory");
    }
    buffer = static_cast<uint8_t*>(grown);
    capacity += extra;
    AdviseHugePages(buffer, capacity);
}

void AdviseHugePages(void* buffer, uint64_t size) {
#ifdef MADV_HUGEPAGE
    constexpr uintptr_t kHuge = uintptr_t{2} << 20;
    const auto begin = reinterpret_cast<uintptr_t>(buffer);
    const uintptr_t first = (begin + kHuge - 1) & ~(kHuge - 1);
    const uintptr_t last = (begin + size) & ~(kHuge - 1);
    // Only whole huge pages inside the buffer; a refusal changes nothing but the speed.
    if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
    (void)buffer;
    (void)size;
#endif
}

void ReturnPagesBeyond(void* buffer, uint64_t used, uint64_t size) {
#ifdef MADV_DONTNEED
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<uintptr_t>(buffer);
    const uintptr_t first = (begin + used + page - 1) & ~(page - 1);
    const uintptr_t last = (begin + size) & ~(page - 1);
    if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
#else
    (void)buffer;
    (void)used;
    (void)size;
#endif
}

void Block::Release() {
    std::free(buffer);
    buffer = nullptr;
    capacity = 0;
}

void Block::Reset() {
    Release();
    size = 0;
    position = 0;
}

uint8_t* Block::Surrender(uint64_t& bufferCapacity) {
    bufferCapacity = capacity;
    capacity = 0;
    return std::exchange(buffer, nullptr);
}

uint8_t* Block::TakeBuffer(uint32_t& contentsSize) {
    contentsSize = size;
    uint8_t* taken = buffer;
    buffer = nullptr;
    capacity = 0;
    size = 0;
    position = 0;
    return taken;
}

void Block::Append(const uint8_t* bytes, uint32_t count) {
    if (uint64_t{position} + count >= capacity) {
        AllocateAdditionalMemory(count > kGrowthFloor ? count : kGrowthFloor);
    }
    if (count != 0) std::memcpy(buffer + position, bytes, count);
    position += count;
    if (position > size) size = position;
}

void Block::Adopt(uint8_t* adopted, uint64_t adoptedCapacity, uint32_t count) {
    std::free(buffer);
    buffer = adopted;
    capacity = adoptedCapacity;
    size = count;
    position = count;
}

void CopyFromBlock(Block& block, std::string& destination) {
    uint32_t length = 0;
    block.Get(&length, 4);
    if (length == 0) return;
    const char* text = reinterpret_cast<const char*>(block.Take(length));
    destination.assign(text, strnlen(text, length));
}

void CopyFromBlock(Block& block, std::vector<std::string>& destination) {
    uint32_t count = 0;
    block.Get(&count, 4);
    if (count == 0) {
        destination.clear();
        return;
    }
    // Each string holds at least its 4-byte length.
    block.Require(uint64_t{count} * 4);
    destination.resize(count);
    for (std::string& text : destination) CopyFromBlock(block, text);
}

}  // namespace MrlHbf
