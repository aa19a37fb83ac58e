#pragma once
#include <cstdint>
#include <exception>

#include "Mrl/Hbf/BlockTransformation.h"
#include "Mrl/Hbf/SpareBuffers.h"

namespace MrlHbf {

// A block whose zlib stream doesn't inflate. Its text is the bare standard exception's, as the
// tool reports it; the zlib result code travels with it for callers that say more.
class InflateError : public std::exception {
public:
    explicit InflateError(int code) : code(code) {}
    const char* what() const noexcept override { return "std::exception"; }
    int Code() const noexcept { return code; }

private:
    int code;
};

// Unpacks a block stored as a u32 unpacked size followed by one zlib stream.
class BlockZlibUnCompressor : public BlockTransformation {
public:
    // Inflates into kept memory where `spares` has a buffer large enough; memory set aside
    // anew is at least `reserve` bytes, untouched beyond the block, for the blocks after it.
    explicit BlockZlibUnCompressor(SpareBuffers* spares = nullptr, uint64_t reserve = 0)
        : spares(spares), reserve(reserve) {}

    void operator()(Block& block) override;

    // The most bytes a deflate stream of storedBytes can give: the format's ratio is at most
    // 1032 to 1. Memory is set aside by this bound, never by a larger claim.
    static uint64_t OutputBound(uint64_t storedBytes) { return storedBytes * 1032 + 1024; }

private:
    SpareBuffers* spares;
    uint64_t reserve;
};

}  // namespace MrlHbf
