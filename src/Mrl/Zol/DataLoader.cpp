#include "Mrl/Zol/DataLoader.h"

#include <bit>
#include <cstring>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Util/Exception.h"

#if defined(__SSE2__) && defined(MRL_FAST_PATHS)
#include <emmintrin.h>
#endif

static_assert(std::endian::native == std::endian::little, "stored values are little-endian");

namespace MrlZol {

DataLoader::DataLoader(MrlHbf::HbFile& file, std::string blockName, uint64_t position,
                       uint64_t byteSize, uint8_t components, bool isPlanar, uint32_t elementTag)
    : file(file),
      blockName(std::move(blockName)),
      position(position),
      byteSize(byteSize),
      components(components),
      isPlanar(isPlanar ? 1 : 0),
      elementTag(elementTag) {}

namespace {

// Float targets are written through this type: it may alias any storage.
typedef uint32_t __attribute__((may_alias)) AliasWord;

// Contiguous destination: 16 elements per step with byte and word interleaves.
void UndoBytePlanesContiguous(const uint8_t* source, size_t plane, size_t n,
                              AliasWord* destination) {
    const uint8_t* p0 = source;
    const uint8_t* p1 = source + plane;
    const uint8_t* p2 = source + 2 * plane;
    const uint8_t* p3 = source + 3 * plane;
    size_t j = 0;
#if defined(__SSE2__) && defined(MRL_FAST_PATHS)
    for (; j + 16 <= n; j += 16) {
        __m128i b0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p0 + j));
        __m128i b1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p1 + j));
        __m128i b2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p2 + j));
        __m128i b3 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p3 + j));
        __m128i low01 = _mm_unpacklo_epi8(b0, b1);
        __m128i high01 = _mm_unpackhi_epi8(b0, b1);
        __m128i low23 = _mm_unpacklo_epi8(b2, b3);
        __m128i high23 = _mm_unpackhi_epi8(b2, b3);
        __m128i* out = reinterpret_cast<__m128i*>(destination + j);
        _mm_storeu_si128(out + 0, _mm_unpacklo_epi16(low01, low23));
        _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(low01, low23));
        _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(high01, high23));
        _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(high01, high23));
    }
#endif
    for (; j < n; ++j) {
        destination[j] =
            uint32_t{p0[j]} | uint32_t{p1[j]} << 8 | uint32_t{p2[j]} << 16 | uint32_t{p3[j]} << 24;
    }
}

}  // namespace

void UndoBytePlanes(const uint8_t* source, size_t plane, size_t n, uint32_t* words, size_t stride) {
    AliasWord* destination = words;
    if (stride == 1) {
        UndoBytePlanesContiguous(source, plane, n, destination);
        return;
    }
    // Strided: decode a chunk at a time on the stack, then spread it out.
    constexpr size_t kChunk = 1024;
    uint32_t chunk[kChunk];
    for (size_t start = 0; start < n; start += kChunk) {
        size_t count = n - start < kChunk ? n - start : kChunk;
        const uint8_t* p = source + start;
        for (size_t j = 0; j < count; ++j) {
            chunk[j] = uint32_t{p[j]} | uint32_t{p[plane + j]} << 8 |
                       uint32_t{p[2 * plane + j]} << 16 | uint32_t{p[3 * plane + j]} << 24;
        }
        AliasWord* out = destination + start * stride;
        for (size_t j = 0; j < count; ++j) out[j * stride] = chunk[j];
    }
}

void DecodeRange(const uint8_t* payload, size_t n, uint8_t components, bool isPlanar, size_t first,
                 size_t count, uint32_t* destination) {
    size_t end = first + count;
    if (!isPlanar || components == 0) {
        std::memcpy(destination, payload + first * 4, count * 4);
        return;
    }
    if (components == 1) {
        UndoBytePlanes(payload + first, n, count, destination, 1);
        return;
    }
    size_t k = components;
    size_t m = n / k;
    // Element c + i * k is value i of run c; the range takes a slice of every run.
    size_t tail = m * k;
    size_t runEnd = end < tail ? end : tail;
    for (size_t c = 0; c < k && first < runEnd; ++c) {
        size_t from = first <= c ? 0 : (first - c + k - 1) / k;
        size_t to = runEnd <= c ? 0 : (runEnd - c + k - 1) / k;
        if (to <= from) continue;
        UndoBytePlanes(payload + c * m * 4 + from, m, to - from,
                       destination + (c + from * k - first), k);
    }
    // Elements behind the last whole item belong to no run and stay as stored.
    size_t rawFrom = first > tail ? first : tail;
    if (end > rawFrom) {
        std::memcpy(destination + (rawFrom - first), payload + rawFrom * 4, (end - rawFrom) * 4);
    }
}

void DecodePayload(const uint8_t* payload, size_t n, uint8_t components, bool isPlanar,
                   uint32_t* destination) {
    DecodeRange(payload, n, components, isPlanar, 0, n, destination);
}

MrlHbf::Block* DataLoader::SeekPayload(uint32_t acceptedTag) const {
    if (elementTag != NoElementTag && elementTag != acceptedTag) {
        MRL_THROW(Mrl::Util::Kind::BadCasting, nullptr, "Mrl/Zol/DataLoader",
                  "MrlZol::DataLoader::LoadTo");
    }
    MrlHbf::Index& index = file.GetIndex();
    index.SetPosition(blockName, position, file.GetStream());
    if (static_cast<uint32_t>(byteSize >> 2) == 0) return nullptr;
    return &index.GetBlock(index.GetReadingBlockIndex(blockName, file.GetStream()));
}

const uint8_t* DataLoader::TakePayload(ElementTag acceptedTag, uint32_t& count) const {
    count = 0;
    MrlHbf::Block* block = SeekPayload(acceptedTag);
    if (block == nullptr) return nullptr;
    // The payload is taken in one piece from one block, checked against what that block
    // holds before anything is sized by it.
    const uint8_t* payload = block->Take(static_cast<uint32_t>(byteSize));
    count = static_cast<uint32_t>(byteSize >> 2);
    return payload;
}

template <class T>
void DataLoader::LoadInto(std::vector<T>& target, uint32_t acceptedTag) const {
    uint32_t n = 0;
    const uint8_t* payload = TakePayload(static_cast<ElementTag>(acceptedTag), n);
    if (payload == nullptr) return;
    target.resize(n);
    DecodePayload(payload, n, components, isPlanar != 0,
                  reinterpret_cast<uint32_t*>(target.data()));
}

void DataLoader::ReadRange(ElementTag acceptedTag, uint64_t first, uint32_t count,
                           uint32_t* destination) const {
    uint32_t n = 0;
    const uint8_t* payload = TakePayload(acceptedTag, n);
    if (first > n || count > n - first) {
        MRL_THROW(Mrl::Util::Kind::OutOfBounds, "Not enough bytes in the block",
                  "Mrl/Zol/DataLoader", "MrlZol::DataLoader::ReadRange");
    }
    if (count == 0) return;
    DecodeRange(payload, n, components, isPlanar != 0, first, count, destination);
}

uint32_t DataLoader::CheckLoad(ElementTag acceptedTag) const {
    MrlHbf::Block* block = SeekPayload(acceptedTag);
    if (block == nullptr) return 0;
    block->Require(byteSize);
    return static_cast<uint32_t>(byteSize >> 2);
}

void DataLoader::LoadTo(std::vector<float>& target) const {
    LoadInto(target, FloatElementTag);
}

void DataLoader::LoadTo(std::vector<uint32_t>& target) const {
    LoadInto(target, UnsignedElementTag);
}

}  // namespace MrlZol
