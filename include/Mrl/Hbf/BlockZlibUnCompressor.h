#pragma once
#include <cstdint>

#include "Mrl/Hbf/BlockTransformation.h"

namespace MrlHbf {

// Unpacks a block stored as a u32 unpacked size followed by one zlib stream.
class BlockZlibUnCompressor : public BlockTransformation {
public:
    void operator()(Block& block) override;

    // The most bytes a deflate stream of storedBytes can give: the format's ratio is at most
    // 1032 to 1. Memory is set aside by this bound, never by a larger claim.
    static uint64_t OutputBound(uint64_t storedBytes) { return storedBytes * 1032 + 1024; }
};

}  // namespace MrlHbf
