#pragma once
// Byte-exact writer of Zol files for test fixtures. It checks almost nothing, so that tests can
// build damaged files too.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ZolTest {

using Bytes = std::vector<uint8_t>;

// Little-endian value writer for the contents of one block.
class BlockWriter {
public:
    BlockWriter& U8(uint8_t v) { return Put(v); }
    BlockWriter& U32(uint32_t v) { return Put(v); }
    BlockWriter& I32(int32_t v) { return Put(static_cast<uint32_t>(v)); }
    BlockWriter& U64(uint64_t v) { return Put(v); }
    BlockWriter& F32(float v);
    BlockWriter& F64(double v);
    BlockWriter& Str(std::string_view s);  // u32 length + bytes, no terminator
    BlockWriter& Raw(const void* p, size_t n);
    BlockWriter& Raw(const Bytes& b) { return Raw(b.data(), b.size()); }

    size_t Size() const { return data_.size(); }
    const Bytes& Data() const { return data_; }
    Bytes Take() { return std::move(data_); }

private:
    template <typename T>
    BlockWriter& Put(T v) {
        for (size_t i = 0; i < sizeof(T); ++i) data_.push_back(static_cast<uint8_t>(v >> (8 * i)));
        return *this;
    }
    Bytes data_;
};

// u32 total size (or sizeOverride) + version string + fields + surplus bytes. The surplus is
// 0xA5, so that a reader which fails to skip it trips over a huge length or count.
Bytes VersionedRecord(std::string_view version, const Bytes& fields, size_t surplus = 0,
                      std::optional<uint32_t> sizeOverride = {});
// u32 unpacked size (or override) + zlib stream of `contents`.
Bytes CompressedForm(const Bytes& contents, std::optional<uint32_t> unpackedSizeOverride = {});
// Byte planes: element j's byte p goes to offset p*N + j (N = elements.size()).
Bytes Planes(const std::vector<uint32_t>& elements);
// Items of k components (k = 0: plain words): k runs of N/k elements, each in byte planes,
// element c + i*k being value i of run c; the N - (N/k)*k elements behind them as plain words.
Bytes PlanarPayload(const std::vector<uint32_t>& elements, uint8_t components);
// Plain little-endian words.
Bytes Words(const std::vector<uint32_t>& elements);
std::vector<uint32_t> FloatBits(const std::vector<float>& v);

// One physical block. id 0 means "assign from the entry's place in the file, counting from 1".
struct BlockEntry {
    uint8_t id = 0;
    std::string name{};
    Bytes stored{};
    uint8_t flags = 0;
    uint8_t flags2 = 0;
    std::optional<uint32_t> storedSizeOverride{};  // index field lie; the bytes are written as is
};

// Name prefix that makes the last primary entry a continuation index.
inline const std::string kIndexBlockPrefix = std::string("\x0B") + "Index Block ";

class ZolFileBuilder {
public:
    ZolFileBuilder& Version(std::string v);   // up to 4 chars, NUL padded; default "1.1"
    ZolFileBuilder& Magic(Bytes eightBytes);  // override for bad-magic tests
    ZolFileBuilder& Plain(std::string name, Bytes contents);
    ZolFileBuilder& Compressed(std::string name, Bytes contents,
                               std::optional<uint32_t> unpackedSizeOverride = {});
    ZolFileBuilder& Raw(BlockEntry e);  // exact stored bytes and flags
    // Every block added after this call goes into a continuation index block named
    // kIndexBlockPrefix + suffix, the LAST entry of the primary index.
    ZolFileBuilder& StartContinuation(bool compressed = false, std::string suffix = "");
    ZolFileBuilder& IndexTrailer(Bytes extra);  // bytes after the last entry of the primary index
    ZolFileBuilder& IndexSizeOverride(uint32_t size);
    ZolFileBuilder& IndexCountOverride(uint32_t count);

    Bytes Build() const;
    void WriteTo(const std::string& path) const;

private:
    std::string version_ = "1.1";
    Bytes magic_ = {0x89, 0x48, 0x42, 0x46, 0x0D, 0x0A, 0x1A, 0x0A};
    std::vector<BlockEntry> primary_, continuation_;
    bool continued_ = false, continuationCompressed_ = false;
    std::string continuationSuffix_;
    Bytes indexTrailer_;
    std::optional<uint32_t> indexSizeOverride_, indexCountOverride_;
};

void WriteFile(const std::string& path, const Bytes& bytes);

// ---- Model records ----

// The seven texts of one translation, in file order.
struct TranslationFields {
    std::string applicationName{}, applicationVersion{}, zolVersion{}, date{}, extraText{},
        userName{}, comment{};
};
Bytes TranslationFieldBytes(const TranslationFields& t);
// "Global Information": u32 count + one versioned record per (record version, texts).
Bytes GlobalInformation(const std::vector<std::pair<std::string, TranslationFields>>& records,
                        size_t surplusEach = 0);

struct TreeRecord {
    uint32_t id = 0, parent = 0, prev = 0, next = 0, firstChild = 0, lastChild = 0;
    std::string name{}, classWord{}, objectVersion{};
    uint64_t lightOffset = 0;
};
Bytes TreeRecordBytes(const TreeRecord& r, bool wideOffsets);
// "Zol Tree": i32 count (or override) + records; lightOffset is u64 when wideOffsets, else u32.
Bytes ZolTree(const std::vector<TreeRecord>& records, bool wideOffsets,
              std::optional<int32_t> countOverride = {});

struct Attr {
    std::string name{};
    uint8_t tag = 0;  // 0 unsigned, 1 float, 2 text, 3 double; others get no value
    uint32_t u = 0;
    float f = 0;
    double d = 0;
    std::string text{};

    static Attr Text(std::string name, std::string s) { return {std::move(name), 2, 0, 0, 0, s}; }
    static Attr Unsigned(std::string name, uint32_t u) { return {std::move(name), 0, u, 0, 0, {}}; }
    static Attr Float(std::string name, float f) { return {std::move(name), 1, 0, f, 0, {}}; }
    static Attr Double(std::string name, double d) { return {std::move(name), 3, 0, 0, d, {}}; }
};
// Six lists: names, tags (u8), unsigned (u32), floats, doubles, texts. Each value goes to the
// list of its tag; an empty map is 24 zero bytes.
void AttributeMap(BlockWriter& w, const std::vector<Attr>& attrs);
Bytes AttributeMap(const std::vector<Attr>& attrs);

// Values written by MaterialRecord. All exact in binary and all unlike the reader's defaults;
// the fourth floats of emissive and ambient are stored but must be ignored by the reader.
struct MaterialFields {
    float diffuse[4] = {0.5f, 1.5f, 2.5f, 3.5f};
    float specular[4] = {4.5f, 5.5f, 6.5f, 7.5f};
    float emissive[4] = {8.5f, 9.5f, 10.5f, 99.0f};
    float ambient[4] = {11.5f, 12.5f, 13.5f, 99.0f};
    float shininess = 14.5f;
    float ambientFactor = 15.5f;  // not in "0.1"
    uint8_t materialFlag = 0;     // not in "0.1", "0.2"
};
// Fields by the record version chain: 68 bytes for "0.1", 72 for "0.2", 73 for any other.
Bytes MaterialFieldBytes(std::string_view recordVersion, const MaterialFields& m = {});
Bytes MaterialRecord(std::string_view recordVersion, const MaterialFields& m = {},
                     size_t surplus = 0);

struct GeomItem {
    std::string name{};
    uint32_t kind = 0;
    bool link = false;
    uint32_t linkedGeometryId = 0, linkedDataIndex = 0;
    uint32_t byteSize = 0;
    uint8_t components = 1, flag1 = 0, flag2 = 0;
    float value1 = 0, value2 = 0;
    uint8_t flag3 = 0;
    uint64_t position = 0;
    std::vector<Attr> attributes{};
    uint8_t reserved = 0;
};

// An item that borrows the array at `dataIndex` of the Geometry with id `geometryId`.
inline GeomItem LinkItem(std::string name, uint32_t kind, uint32_t geometryId, uint32_t dataIndex) {
    return {.name = std::move(name),
            .kind = kind,
            .link = true,
            .linkedGeometryId = geometryId,
            .linkedDataIndex = dataIndex};
}

// Splits `contents` at the given offsets into physical blocks of one name (plain or compressed).
// Named apart from the overload below: a braced {28} would pick that one and cut every 28 bytes.
void AddPiecesCutAt(ZolFileBuilder& file, const std::string& name, const Bytes& contents,
                    bool compressed, const std::vector<size_t>& cuts);
// The same with pieces of pieceSize bytes (the last may be shorter); 0 means one piece.
// Values and payloads must not straddle a cut: the reader never reads across blocks.
void AddPieces(ZolFileBuilder& file, const std::string& name, const Bytes& contents,
               bool compressed, size_t pieceSize);

struct GroupData {
    float translation[3] = {0, 0, 0};
    float rotation[4] = {0, 0, 1, 0};
    float scale[3] = {1, 1, 1};
    bool mergeable = false;
    std::vector<Attr> attributes{};
};

// Accumulates the six blocks of a model. Nodes must be added in the order of their tree
// records, since "Light Data" (without offsets), "Attributes" and "Resources" are consumed in it.
class ModelBuilder {
public:
    bool wideOffsets = true;  // must match the file version ("0.7" and later: true)
    std::vector<TreeRecord> tree;
    BlockWriter globalInformation, lightData, heavyData, attributes, resources;

    // Group data in "Light Data": nothing for "0.0a"/"0.1", translation/rotation/scale for
    // "0.2"/"0.3", those and the mergeable byte for any other; the map from "0.3" on.
    ModelBuilder& Group(const TreeRecord& rec, const GroupData& g = {});
    // A material record in "Resources", except for "0.0a"/"0.1".
    ModelBuilder& Shape(const TreeRecord& rec, std::string_view materialVersion = "0.3");
    // "0.5"/"0.6"/"0.7": item layout with links (position u32, u64 for "0.7"), reserved byte
    // last, one map per item. Any other version: the older layout with the fields of that
    // version, the map only for versions other than "0.0a", "0.1", "0.2", "0.3", position u32
    // last; links can't be written there and throw std::invalid_argument.
    ModelBuilder& Geometry(const TreeRecord& rec, const std::vector<GeomItem>& items);

    // Appends a payload to "Heavy Data" and returns its position there.
    uint64_t AddHeavy(const Bytes& payload);
    // Stores `elements` and returns an item that points at it. Planar with k = components:
    // m = N/k; k runs of m elements in byte planes, then the N-m*k tail elements as plain
    // words; k == 0 or !planar: plain words.
    GeomItem HeavyItem(std::string name, uint32_t kind, const std::vector<uint32_t>& elements,
                       uint8_t components = 1, bool planar = true);

    Bytes TreeBlock() const { return ZolTree(tree, wideOffsets); }
    // Adds the non-empty blocks in the order "Global Information", "Zol Tree", "Light Data",
    // "Heavy Data", "Attributes", "Resources".
    void EmitTo(ZolFileBuilder& file, bool compressed = false, size_t pieceSize = 0) const;
    Bytes Build(const std::string& fileVersion = "1.1") const;
};

}  // namespace ZolTest
