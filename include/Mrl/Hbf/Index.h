#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Mrl/Hbf/Block.h"
#include "Mrl/Hbf/FileStream.h"
#include "Mrl/Hbf/SpareBuffers.h"

namespace MrlHbf {

struct IndexEntry {
    uint8_t id = 0;
    std::string name;
    uint64_t filePosition = 0;
    uint32_t storedSize = 0;
    uint8_t flags = 0;
    uint8_t flags2 = 0;
    bool loaded = false;
};

struct BlockSet {
    static constexpr uint32_t kSizeLimiter = 209715200;  // 200 MiB, carried for every name

    std::vector<uint64_t> entryNumbers;
    uint32_t sizeLimiter = kSizeLimiter;
};

// The table of contents of a block file and the owner of all its blocks. All blocks of one
// name read as one stream, front to back.
class Index {
public:
    static constexpr uint64_t kNoEntry = UINT64_MAX;

    void ReadIndexBufferFromFileStream(FileStream& stream, uint64_t size);
    const BlockSet& GetBlockSizeLimiter(const std::string& name) const;
    uint64_t GetReadingBlockIndex(const std::string& name);
    uint64_t GetReadingBlockIndex(const std::string& name, FileStream& stream);
    void CopyFromBlock(const std::string& name, void* destination, uint32_t count);
    void CopyFromBlock(const std::string& name, void* destination, uint32_t count,
                       FileStream& stream);
    void SetPosition(const std::string& name, uint64_t position, FileStream& stream);
    void LoadBlock(uint64_t entryNumber, FileStream& stream);
    uint64_t AddBlock(const std::string& name);
    // Frees every loaded block of the name except the one that a positioning at `position`
    // stops on; they count as used up and load again when a positioning stops on them. Lets a
    // reader that jumps about a large name hold one of its blocks at a time.
    void ReleaseBlocksOutside(const std::string& name, uint64_t position);
    // The entry that a positioning at `position` stops on, as far as the sizes of the blocks
    // before it are known; kNoEntry when they are not, or for an absent name.
    uint64_t EntryHolding(const std::string& name, uint64_t position) const;
    void UpdateBlockPositions();

    bool IsEmpty() const { return entries.empty(); }
    const std::vector<IndexEntry>& GetEntries() const { return entries; }
    Block& GetBlock(uint64_t entryNumber) { return blocks[entryNumber]; }
    const std::map<std::string, BlockSet>& GetNames() const { return names; }
    uint64_t GetIndexPosition() const { return indexPosition; }
    uint64_t GetIndexSize() const { return indexSize; }

private:
    [[noreturn]] static void FailNotFound(const char* method);
    uint64_t StartOf(uint64_t entryNumber) const;
    // Frees a block's bytes into the spares, keeping its size and position.
    void GiveBack(Block& block);
    // The most that one of the file's large packed blocks says it unpacks to, within what its
    // stored bytes can give, so that the first of them is inflated into memory that every
    // later one fits; read once, from the first bytes of those blocks.
    uint64_t LargestUnpackedBlock(FileStream& stream);
    void AddName(uint64_t entryNumber);

    std::vector<IndexEntry> entries;
    std::vector<Block> blocks;
    SpareBuffers spares;
    std::map<std::string, BlockSet> names;
    uint8_t nextId = 1;
    uint64_t indexPosition = 12;
    uint64_t indexSize = 0;
    uint64_t largestUnpacked = UINT64_MAX;  // not read yet
};

// True when a name begins with the 13 bytes that mark a continuation index.
bool IsIndexBlockName(const std::string& name);

}  // namespace MrlHbf
