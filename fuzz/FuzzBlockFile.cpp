// Block file layer on arbitrary bytes: header checks, the index (with its continuation), and
// every named block read to its end with raw, string and vector readers.
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Util/ErrorStream.h"
#include "PooledBuffers.h"

namespace {

std::string inputPath;
std::ostringstream discardedErrors;

// Reads a name's stream to its end in steps that shrink when a step no longer fits, so that
// every byte is taken and values that straddle a block boundary are tried too.
void DrainRaw(MrlHbf::HbFile& file, const std::string& name) {
    static const uint32_t steps[] = {4096, 4, 1};
    std::vector<uint8_t> sink(4096);
    size_t step = 0;
    unsigned smallReads = 0;
    while (step < std::size(steps)) {
        try {
            file.CopyFromBlock(name, sink.data(), steps[step]);
            // Back to big steps once a block's tail has surely been passed.
            if (step != 0 && ++smallReads == 1024) step = smallReads = 0;
        } catch (const std::exception&) {
            ++step;
            smallReads = 0;
        }
    }
}

// Takes values of one reader from the start of the name's stream until it fails; every
// success consumes at least 4 bytes.
template <class Read>
void DrainValues(MrlHbf::HbFile& file, const std::string& name, Read read) {
    try {
        file.GetIndex().SetPosition(name, 0, file.GetStream());
        for (;;) read(file, name);
    } catch (const std::exception&) {
    }
}

void ReadAll() {
    MrlHbf::HbFile file;
    try {
        file.OpenFile(inputPath, "rb");
        file.CheckMagic();
        bool wideOffsets = false;
        MrlHbf::HbFile::CheckSupport(file.GetFileVersion(), wideOffsets);
        file.ReadIndex();
    } catch (const std::exception&) {
        return;
    }
    std::vector<std::string> names;
    for (const auto& [name, blockSet] : file.GetIndex().GetNames()) names.push_back(name);
    for (const std::string& name : names) {
        DrainRaw(file, name);
        DrainValues(file, name, [](MrlHbf::HbFile& f, const std::string& n) {
            std::string text;
            f.CopyFromBlock(n, text);
        });
        DrainValues(file, name, [](MrlHbf::HbFile& f, const std::string& n) {
            std::vector<uint32_t> words;
            f.CopyFromBlock(n, words);
        });
        DrainValues(file, name, [](MrlHbf::HbFile& f, const std::string& n) {
            std::vector<std::string> texts;
            f.CopyFromBlock(n, texts);
        });
        // A position taken from the block's own bytes: lands anywhere, often past the end.
        try {
            uint64_t position = 0;
            file.GetIndex().SetPosition(name, 0, file.GetStream());
            file.CopyFromBlock(name, position);
            file.GetIndex().SetPosition(name, position % 0x100000, file.GetStream());
            uint8_t byte = 0;
            file.CopyFromBlock(name, byte);
        } catch (const std::exception&) {
        }
    }
    file.CloseFile();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    inputPath = MakeScratchDirectory("fuzz-block-file") + "/input.zol";
    // zlib failures are reported on this stream; keep the fuzzer's output readable.
    Mrl::Util::SetErrorStream(&discardedErrors);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    WriteInput(inputPath, data, size);
    discardedErrors.str({});
    ReadAll();
    // Block buffers bypass the leak checker; the index must have given all of them back.
    if (PooledBuffersInUse() != 0) std::abort();
    return 0;
}
