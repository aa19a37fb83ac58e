#pragma once
#include <cstdint>

namespace MrlHbf {

// Block memory that released blocks give back, for the next large block of the same file to
// inflate into. Fresh memory costs a page fault and a cleared page for every page touched,
// which is more than the inflation into it; a buffer filled before costs neither. The next
// large load takes one or frees them all, so that memory never holds them beside a loaded
// large block; small blocks loaded in between leave them be.
class SpareBuffers {
public:
    SpareBuffers() = default;
    SpareBuffers(const SpareBuffers&) = delete;
    SpareBuffers& operator=(const SpareBuffers&) = delete;
    SpareBuffers(SpareBuffers&& other) noexcept;
    SpareBuffers& operator=(SpareBuffers&& other) noexcept;
    ~SpareBuffers();

    // The smallest kept buffer of more than `minimum` bytes, now the caller's (a malloc'ed
    // buffer of `capacity` bytes); null when none is large enough.
    uint8_t* Take(uint64_t minimum, uint64_t& capacity);
    // Keeps a malloc'ed buffer (null is ignored); of three, the smallest is freed.
    void Give(uint8_t* buffer, uint64_t capacity);
    // Frees everything kept.
    void Clear();

private:
    struct Spare {
        uint8_t* buffer = nullptr;
        uint64_t capacity = 0;
    };
    Spare spares[2];
};

}  // namespace MrlHbf
