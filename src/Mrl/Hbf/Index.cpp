#include "Mrl/Hbf/Index.h"

#include <algorithm>
#include <cstring>

#include "Mrl/Hbf/BlockZlibUnCompressor.h"
#include "Mrl/Util/Exception.h"

namespace MrlHbf {

using Mrl::Util::Kind;

namespace {

constexpr const char* kSource = "Mrl/Hbf/Index";
constexpr const char* kReadMethod = "MrlHbf::Index::ReadIndexBufferFromFileStream";
constexpr char kIndexBlockPrefix[] = "\x0BIndex Block ";
constexpr uint32_t kSmallestEntry = 11;  // id, name length, stored size, two flag bytes

IndexEntry ReadEntry(Block& block) {
    IndexEntry entry;
    block.Get(&entry.id, 1);
    uint32_t length = 0;
    block.Get(&length, 4);
    const char* name = reinterpret_cast<const char*>(block.Take(length));
    entry.name.assign(name, length == 0 ? 0 : strnlen(name, length));
    block.Get(&entry.storedSize, 4);
    block.Get(&entry.flags, 1);
    block.Get(&entry.flags2, 1);
    return entry;
}

void ReadEntries(Block& block, std::vector<IndexEntry>& into) {
    uint32_t count = 0;
    block.Get(&count, 4);
    block.Require(uint64_t{count} * kSmallestEntry);
    into.reserve(into.size() + count);
    for (uint32_t i = 0; i < count; ++i) into.push_back(ReadEntry(block));
}

}  // namespace

bool IsIndexBlockName(const std::string& name) {
    return name.size() >= 13 && std::memcmp(name.data(), kIndexBlockPrefix, 13) == 0;
}

void Index::FailNotFound(const char* method) {
    MRL_THROW(Kind::ElementNotFound, nullptr, kSource, method);
}

void Index::ReadIndexBufferFromFileStream(FileStream& stream, uint64_t size) {
    MRL_LOG(1000, "Reading index block ... ", kSource, kReadMethod);
    indexPosition = stream.Tell();
    Block primary;
    primary.Read(stream, static_cast<uint32_t>(size));
    indexSize = size;
    primary.SetPosition(uint32_t{0});
    entries.clear();
    ReadEntries(primary, entries);
    UpdateBlockPositions();

    if (!entries.empty() && IsIndexBlockName(entries.back().name)) {
        const IndexEntry& last = entries.back();
        Block continuation;
        stream.Seek(last.filePosition);
        continuation.Read(stream, last.storedSize);
        if (last.flags & 1) BlockZlibUnCompressor()(continuation);
        continuation.SetPosition(uint32_t{0});
        std::vector<IndexEntry> more;
        ReadEntries(continuation, more);
        entries.insert(entries.end(), more.begin(), more.end());
    }
    UpdateBlockPositions();

    blocks.clear();
    blocks.resize(entries.size());
    names.clear();
    for (uint64_t i = 0; i < entries.size(); ++i) AddName(i);
    MRL_LOG(1000, "Index block read. ", kSource, kReadMethod);
}

void Index::AddName(uint64_t entryNumber) {
    names[entries[entryNumber].name].entryNumbers.push_back(entryNumber);
}

uint64_t Index::StartOf(uint64_t entryNumber) const {
    if (entryNumber == 0) return indexPosition + indexSize;
    const IndexEntry& previous = entries[entryNumber - 1];
    return previous.filePosition + previous.storedSize;
}

void Index::UpdateBlockPositions() {
    for (uint64_t i = 0; i < entries.size(); ++i) entries[i].filePosition = StartOf(i);
}

const BlockSet& Index::GetBlockSizeLimiter(const std::string& name) const {
    auto found = names.find(name);
    if (found == names.end()) FailNotFound("MrlHbf::Index::GetBlockSizeLimiter");
    return found->second;
}

uint64_t Index::GetReadingBlockIndex(const std::string& name) {
    constexpr const char* kMethod = "MrlHbf::Index::GetReadingBlockIndex";
    auto found = names.find(name);
    if (found == names.end()) FailNotFound(kMethod);
    for (uint64_t number : found->second.entryNumbers) {
        const Block& block = blocks[number];
        if (block.GetPosition() != block.GetSize()) return number;
    }
    FailNotFound(kMethod);
}

uint64_t Index::GetReadingBlockIndex(const std::string& name, FileStream& stream) {
    constexpr const char* kMethod = "MrlHbf::Index::GetReadingBlockIndex";
    auto found = names.find(name);
    if (found == names.end()) FailNotFound(kMethod);
    const std::vector<uint64_t>& numbers = found->second.entryNumbers;
    for (size_t k = 0; k < numbers.size(); ++k) {
        uint64_t number = numbers[k];
        Block& block = blocks[number];
        if (block.GetSize() == 0 && !entries[number].loaded) LoadBlock(number, stream);
        if (block.GetPosition() != block.GetSize()) return number;
        // The last block is handed back used up, so that the read fails as a short read.
        if (k + 1 == numbers.size()) return number;
    }
    FailNotFound(kMethod);
}

void Index::CopyFromBlock(const std::string& name, void* destination, uint32_t count) {
    try {
        blocks[GetReadingBlockIndex(name)].Get(destination, count);
    } catch (const Mrl::Util::Exception& failure) {
        if (failure.GetKind() != Kind::ElementNotFound) throw;
    }
}

void Index::CopyFromBlock(const std::string& name, void* destination, uint32_t count,
                          FileStream& stream) {
    try {
        blocks[GetReadingBlockIndex(name, stream)].Get(destination, count);
    } catch (const Mrl::Util::Exception& failure) {
        if (failure.GetKind() != Kind::ElementNotFound) throw;
    }
}

void Index::SetPosition(const std::string& name, uint64_t position, FileStream& stream) {
    if (names.find(name) == names.end()) AddBlock(name);
    const std::vector<uint64_t>& numbers = names.find(name)->second.entryNumbers;
    uint64_t remaining = position;
    uint64_t stop = numbers.back();
    for (size_t k = 0; k < numbers.size(); ++k) {
        uint64_t number = numbers[k];
        Block& block = blocks[number];
        if (!entries[number].loaded && block.GetSize() == 0) LoadBlock(number, stream);
        if (remaining < block.GetSize() || k + 1 == numbers.size()) {
            stop = number;
            break;
        }
        remaining -= block.GetSize();
        if (entries[number].loaded) {
            // Passed over: keep size and position so it counts as used up, free the bytes.
            block.SetPosition(block.GetSize());
            GiveBack(block);
            entries[number].loaded = false;
        }
    }
    if (!entries[stop].loaded) LoadBlock(stop, stream);
    blocks[stop].SetPosition(remaining);
}

uint64_t Index::EntryHolding(const std::string& name, uint64_t position) const {
    auto found = names.find(name);
    if (found == names.end()) return kNoEntry;
    const std::vector<uint64_t>& numbers = found->second.entryNumbers;
    uint64_t start = 0;
    for (size_t k = 0; k < numbers.size(); ++k) {
        uint64_t number = numbers[k];
        const Block& block = blocks[number];
        // A block never loaded has no known size, so the offsets behind it are unknown.
        if (!entries[number].loaded && block.GetSize() == 0) return kNoEntry;
        // The same walk as a positioning: the first block the remaining offset falls inside,
        // or the last one.
        if (position - start < block.GetSize() || k + 1 == numbers.size()) return number;
        start += block.GetSize();
    }
    return kNoEntry;
}

void Index::ReleaseBlocksOutside(const std::string& name, uint64_t position) {
    auto found = names.find(name);
    if (found == names.end()) return;
    uint64_t holding = EntryHolding(name, position);
    for (uint64_t number : found->second.entryNumbers) {
        if (entries[number].loaded && number != holding) {
            blocks[number].SetPosition(blocks[number].GetSize());
            GiveBack(blocks[number]);
            entries[number].loaded = false;
        }
    }
}

void Index::GiveBack(Block& block) {
    uint64_t capacity = 0;
    uint8_t* buffer = block.Surrender(capacity);
    spares.Give(buffer, capacity);
}

uint64_t Index::LargestUnpackedBlock(FileStream& stream) {
    // Small blocks gain nothing, and reading every block's first bytes costs a seek each.
    constexpr uint64_t kLargeStored = uint64_t{1} << 20;
    // A lying size can't make this set more aside than a block the size of the name limit.
    constexpr uint64_t kMost = uint64_t{256} << 20;
    if (largestUnpacked != UINT64_MAX) return largestUnpacked;
    largestUnpacked = 0;
    const uint64_t resume = stream.Tell();
    for (uint64_t number = 0; number < entries.size(); ++number) {
        const IndexEntry& entry = entries[number];
        uint32_t claimed = 0;
        if ((entry.flags & 1) == 0 || entry.storedSize < kLargeStored ||
            !stream.Seek(StartOf(number)) || stream.Remaining() < 4 ||
            stream.Read(&claimed, 4) != 4) {
            continue;
        }
        const uint64_t size = std::min(
            {uint64_t{claimed}, BlockZlibUnCompressor::OutputBound(entry.storedSize), kMost});
        largestUnpacked = std::max(largestUnpacked, size);
    }
    stream.Seek(resume);
    return largestUnpacked;
}

void Index::LoadBlock(uint64_t entryNumber, FileStream& stream) {
    IndexEntry& entry = entries[entryNumber];
    entry.filePosition = StartOf(entryNumber);
    stream.Seek(entry.filePosition);
    Block& block = blocks[entryNumber];
    block.Reset();
    block.Read(stream, entry.storedSize);
    if (entry.flags & 1) {
        BlockZlibUnCompressor inflate(&spares, LargestUnpackedBlock(stream));
        inflate(block);
    }
    // Memory is kept beside small blocks only, for the next large one.
    if (block.GetSize() > Block::kGrowthFloor) spares.Clear();
    entry.loaded = true;
    block.SetPosition(uint32_t{0});
}

uint64_t Index::AddBlock(const std::string& name) {
    uint64_t number = entries.size();
    IndexEntry entry;
    entry.id = nextId;
    entry.name = name;
    entries.push_back(entry);
    blocks.emplace_back();
    AddName(number);
    ++nextId;
    return number;
}

}  // namespace MrlHbf
