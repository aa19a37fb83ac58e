#include "Mrl/Hbf/SpareBuffers.h"

#include <cstdlib>
#include <utility>

namespace MrlHbf {

SpareBuffers::SpareBuffers(SpareBuffers&& other) noexcept {
    for (int k = 0; k < 2; ++k) std::swap(spares[k], other.spares[k]);
}

SpareBuffers& SpareBuffers::operator=(SpareBuffers&& other) noexcept {
    if (this != &other) {
        Clear();
        for (int k = 0; k < 2; ++k) std::swap(spares[k], other.spares[k]);
    }
    return *this;
}

SpareBuffers::~SpareBuffers() {
    Clear();
}

uint8_t* SpareBuffers::Take(uint64_t minimum, uint64_t& capacity) {
    Spare* best = nullptr;
    for (Spare& spare : spares) {
        if (spare.buffer != nullptr && spare.capacity > minimum &&
            (best == nullptr || spare.capacity < best->capacity)) {
            best = &spare;
        }
    }
    if (best == nullptr) return nullptr;
    capacity = best->capacity;
    return std::exchange(*best, Spare{}).buffer;
}

void SpareBuffers::Give(uint8_t* buffer, uint64_t capacity) {
    if (buffer == nullptr) return;
    Spare* smallest = &spares[0];
    for (Spare& spare : spares) {
        if (spare.buffer == nullptr) {
            spare = {buffer, capacity};
            return;
        }
        if (spare.capacity < smallest->capacity) smallest = &spare;
    }
    if (smallest->capacity >= capacity) {
        std::free(buffer);
        return;
    }
    std::free(smallest->buffer);
    *smallest = {buffer, capacity};
}

void SpareBuffers::Clear() {
    for (Spare& spare : spares) std::free(std::exchange(spare, Spare{}).buffer);
}

}  // namespace MrlHbf
