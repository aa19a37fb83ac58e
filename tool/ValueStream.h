#pragma once
// The dump reads every array front to back, so it never needs one whole: a stream decodes a
// window of values at a time from the array's block into a small buffer of its own.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Mrl/Zol/ArrayRecord.h"

namespace ZolInfo {

class ValueStream {
public:
    // A null record gives an empty stream.
    explicit ValueStream(const MrlZol::ArrayRecord* record);

    // The next value's bit pattern; call only while values remain.
    uint32_t Next() {
        if (at_ == end_) Refill();
        return window_[at_++];
    }
    float NextFloat() {
        uint32_t bits = Next();
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }

    // Reads the next n values now, once the window is used up, so that a caller can order the
    // reads of several streams by their blocks.
    void Fill(size_t n);
    // Appends the next n values to `into`; call only while that many remain.
    void Take(size_t n, std::vector<uint32_t>& into);

private:
    static constexpr size_t kWindow = 16384;

    void Refill() { Fill(std::min(kWindow, record_->Size() - next_)); }

    const MrlZol::ArrayRecord* record_;
    size_t next_ = 0;  // the element behind the window
    size_t at_ = 0;
    size_t end_ = 0;
    std::vector<uint32_t> window_;
};

// Readies the arrays of one part of the dump, which are read side by side, so that only one
// block is in memory while they stream: those in the block that holds most of their bytes
// stream from it, the others are read whole first, one block at a time. When those others
// take more than `limit` bytes nothing is read and the result is false.
bool ReadOutsideMainBlock(const std::vector<MrlZol::ArrayRecord*>& records,
                          size_t limit = SIZE_MAX);

}  // namespace ZolInfo
