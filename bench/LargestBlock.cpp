// The largest block of a model once unpacked, in bytes: the dump's memory budget is this block
// plus 64 MiB, and bench/run sets each dump's peak against it.
//
//   largest_block MODEL
#include <cstdint>
#include <cstdio>
#include <exception>

#include "Mrl/Hbf/HbFile.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s MODEL\n", argv[0]);
        return 1;
    }
    try {
        MrlHbf::HbFile file;
        file.OpenFile(argv[1], "rb");
        file.ReadIndex();
        uint64_t largest = 0;
        for (const MrlHbf::IndexEntry& entry : file.GetIndex().GetEntries()) {
            uint64_t size = entry.storedSize;
            // A packed block starts with the size it unpacks to.
            uint32_t claimed = 0;
            if ((entry.flags & 1) != 0 && file.GetStream().Seek(entry.filePosition) &&
                file.GetStream().Read(&claimed, 4) == 4) {
                size = claimed;
            }
            if (size > largest) largest = size;
        }
        std::printf("%llu\n", static_cast<unsigned long long>(largest));
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", argv[1], failure.what());
        return 2;
    }
    return 0;
}
