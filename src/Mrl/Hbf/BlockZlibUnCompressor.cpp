#include "Mrl/Hbf/BlockZlibUnCompressor.h"

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

#include "Mrl/Hbf/Block.h"
#include "Mrl/Util/ErrorStream.h"
#include "Mrl/Util/Exception.h"

#ifdef MRL_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

namespace MrlHbf {

using Mrl::Util::Kind;

namespace {

constexpr const char* kSource = "Mrl/Hbf/BlockZlibUnCompressor";
constexpr const char* kMethod = "MrlHbf::BlockZlibUnCompressor::operator ()";

struct FreeDeleter {
    void operator()(uint8_t* p) const { std::free(p); }
};
using MallocBuffer = std::unique_ptr<uint8_t, FreeDeleter>;

// Returns zlib's result code and the bytes produced. A fast inflater serves the common case;
// whenever it reports anything but success, zlib itself runs on the same input so that the
// code and every other effect are zlib's.
int Inflate(uint8_t* out, uint64_t outLimit, const uint8_t* in, uint64_t inSize,
            uint64_t& produced) {
#ifdef MRL_HAVE_LIBDEFLATE
    // A decompressor must not be used by two threads at once: each thread keeps its own.
    struct Decompressor {
        libdeflate_decompressor* state = libdeflate_alloc_decompressor();
        ~Decompressor() { libdeflate_free_decompressor(state); }
    };
    thread_local Decompressor decompressor;
    if (libdeflate_decompressor* fast = decompressor.state) {
        size_t used = 0;
        size_t made = 0;
        if (libdeflate_zlib_decompress_ex(fast, in, inSize, out, outLimit, &used, &made) ==
            LIBDEFLATE_SUCCESS) {
            produced = made;
            return Z_OK;
        }
    }
#endif
    uLongf length = static_cast<uLongf>(outLimit);
    int result = uncompress(out, &length, in, static_cast<uLong>(inSize));
    produced = length;
    return result;
}

}  // namespace

void BlockZlibUnCompressor::operator()(Block& block) {
    uint32_t storedSize = 0;
    MallocBuffer stored(block.TakeBuffer(storedSize));
    if (storedSize < 4) {
        MRL_THROW(Kind::OutOfBounds, "Not enough bytes in the block", kSource, kMethod);
    }
    uint32_t claimed = 0;
    std::memcpy(&claimed, stored.get(), 4);

    uint64_t limit = claimed;
    if (limit > OutputBound(storedSize)) limit = OutputBound(storedSize);
    uint64_t room = limit > Block::kGrowthFloor ? limit : Block::kGrowthFloor;
    // Only large blocks use kept memory; small ones in between leave it for the next large one.
    const bool large = limit > Block::kGrowthFloor && spares != nullptr;
    uint64_t kept = 0;
    MallocBuffer out(large ? spares->Take(limit, kept) : nullptr);
    if (out) {
        room = kept;
        ReturnPagesBeyond(out.get(), limit, kept);
    } else {
        // Kept buffers too small for this block go first, so that memory never holds them
        // and a fresh buffer at once.
        if (large) {
            spares->Clear();
            room = std::max(room, reserve);
        }
        out.reset(static_cast<uint8_t*>(std::malloc(room)));
        if (!out) MRL_THROW(Kind::MemoryAllocationError, nullptr, kSource, kMethod);
        AdviseHugePages(out.get(), room);
    }

    uint64_t produced = 0;
    int result = Inflate(out.get(), limit, stored.get() + 4, storedSize - 4, produced);
    stored.reset();
    if (result != Z_OK) {
        if (std::ostream* errors = Mrl::Util::ErrorStream()) {
            *errors << "Error " << result << " while uncompressing block " << '\n';
        }
        throw InflateError(result);
    }
    // Give back what the bound set aside beyond the contents and the growth floor; memory
    // kept or set aside for the blocks after this one stays whole.
    uint64_t keep = produced > Block::kGrowthFloor ? produced : Block::kGrowthFloor;
    if (large) keep = std::max(keep, reserve);
    if (kept == 0 && keep < room) {
        if (void* shrunk = std::realloc(out.get(), keep)) {
            out.release();
            out.reset(static_cast<uint8_t*>(shrunk));
            room = keep;
        }
    }
    block.Adopt(out.release(), room, static_cast<uint32_t>(produced));
}

}  // namespace MrlHbf
