#include "ZolFileBuilder.h"

#include <zlib.h>

#include <cstring>
#include <fstream>
#include <stdexcept>

namespace ZolTest {

namespace {

bool IsOneOf(std::string_view v, std::initializer_list<std::string_view> list) {
    for (std::string_view s : list) {
        if (v == s) return true;
    }
    return false;
}

Bytes IndexBlock(const std::vector<BlockEntry>& entries, std::optional<uint32_t> countOverride,
                 const Bytes& trailer) {
    BlockWriter w;
    w.U32(countOverride.value_or(static_cast<uint32_t>(entries.size())));
    for (const BlockEntry& e : entries) {
        w.U8(e.id).Str(e.name);
        w.U32(e.storedSizeOverride.value_or(static_cast<uint32_t>(e.stored.size())));
        w.U8(e.flags).U8(e.flags2);
    }
    return w.Raw(trailer).Take();
}

}  // namespace

BlockWriter& BlockWriter::F32(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return U32(bits);
}
BlockWriter& BlockWriter::F64(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return U64(bits);
}
BlockWriter& BlockWriter::Str(std::string_view s) {
    U32(static_cast<uint32_t>(s.size()));
    return Raw(s.data(), s.size());
}
BlockWriter& BlockWriter::Raw(const void* p, size_t n) {
    const auto* b = static_cast<const uint8_t*>(p);
    if (n != 0) data_.insert(data_.end(), b, b + n);
    return *this;
}

Bytes VersionedRecord(std::string_view version, const Bytes& fields, size_t surplus,
                      std::optional<uint32_t> sizeOverride) {
    const size_t size = 4 + 4 + version.size() + fields.size() + surplus;
    BlockWriter w;
    w.U32(sizeOverride.value_or(static_cast<uint32_t>(size))).Str(version).Raw(fields);
    Bytes out = w.Take();
    out.resize(size, 0xA5);
    return out;
}

Bytes CompressedForm(const Bytes& contents, std::optional<uint32_t> unpackedSizeOverride) {
    static const Bytef kNothing = 0;  // zlib wants a valid pointer even for no input
    uLongf packedSize = compressBound(static_cast<uLong>(contents.size()));
    Bytes packed(packedSize);
    const int rc =
        compress2(packed.data(), &packedSize, contents.empty() ? &kNothing : contents.data(),
                  static_cast<uLong>(contents.size()), 6);
    if (rc != Z_OK) throw std::runtime_error("compress2 failed: " + std::to_string(rc));
    packed.resize(packedSize);
    BlockWriter w;
    w.U32(unpackedSizeOverride.value_or(static_cast<uint32_t>(contents.size()))).Raw(packed);
    return w.Take();
}

Bytes Planes(const std::vector<uint32_t>& elements) {
    const size_t n = elements.size();
    Bytes out(4 * n);
    for (size_t j = 0; j < n; ++j) {
        for (size_t p = 0; p < 4; ++p)
            out[p * n + j] = static_cast<uint8_t>(elements[j] >> (8 * p));
    }
    return out;
}

Bytes PlanarPayload(const std::vector<uint32_t>& elements, uint8_t components) {
    if (components == 0) return Words(elements);
    const size_t k = components, m = elements.size() / k;
    BlockWriter w;
    for (size_t c = 0; c < k; ++c) {
        std::vector<uint32_t> run(m);
        for (size_t i = 0; i < m; ++i) run[i] = elements[c + i * k];
        w.Raw(Planes(run));
    }
    for (size_t j = m * k; j < elements.size(); ++j) w.U32(elements[j]);
    return w.Take();
}

Bytes Words(const std::vector<uint32_t>& elements) {
    BlockWriter w;
    for (uint32_t e : elements) w.U32(e);
    return w.Take();
}

std::vector<uint32_t> FloatBits(const std::vector<float>& v) {
    std::vector<uint32_t> out(v.size());
    if (!v.empty()) std::memcpy(out.data(), v.data(), 4 * v.size());
    return out;
}

// ---- ZolFileBuilder ----

ZolFileBuilder& ZolFileBuilder::Version(std::string v) {
    if (v.size() > 4) throw std::invalid_argument("file version has at most 4 characters");
    version_ = std::move(v);
    return *this;
}
ZolFileBuilder& ZolFileBuilder::Magic(Bytes eightBytes) {
    if (eightBytes.size() != 8) throw std::invalid_argument("magic has 8 bytes");
    magic_ = std::move(eightBytes);
    return *this;
}
ZolFileBuilder& ZolFileBuilder::Plain(std::string name, Bytes contents) {
    return Raw({0, std::move(name), std::move(contents), 0, 0, {}});
}
ZolFileBuilder& ZolFileBuilder::Compressed(std::string name, Bytes contents,
                                           std::optional<uint32_t> unpackedSizeOverride) {
    return Raw({0, std::move(name), CompressedForm(contents, unpackedSizeOverride), 1, 0, {}});
}
ZolFileBuilder& ZolFileBuilder::Raw(BlockEntry e) {
    (continued_ ? continuation_ : primary_).push_back(std::move(e));
    return *this;
}
ZolFileBuilder& ZolFileBuilder::StartContinuation(bool compressed, std::string suffix) {
    if (continued_) throw std::logic_error("only one continuation index is followed");
    continued_ = true;
    continuationCompressed_ = compressed;
    continuationSuffix_ = std::move(suffix);
    return *this;
}
ZolFileBuilder& ZolFileBuilder::IndexTrailer(Bytes extra) {
    indexTrailer_ = std::move(extra);
    return *this;
}
ZolFileBuilder& ZolFileBuilder::IndexSizeOverride(uint32_t size) {
    indexSizeOverride_ = size;
    return *this;
}
ZolFileBuilder& ZolFileBuilder::IndexCountOverride(uint32_t count) {
    indexCountOverride_ = count;
    return *this;
}

Bytes ZolFileBuilder::Build() const {
    std::vector<BlockEntry> primary = primary_, continuation = continuation_;
    // Ids follow the place in the file: primary blocks, the continuation block, its blocks.
    unsigned place = 0;
    auto assignId = [&place](BlockEntry& e) {
        ++place;
        if (e.id == 0) e.id = static_cast<uint8_t>(place);
    };
    for (BlockEntry& e : primary) assignId(e);
    if (continued_) {
        BlockEntry link{0, kIndexBlockPrefix + continuationSuffix_, {}, 0, 0, {}};
        assignId(link);
        for (BlockEntry& e : continuation) assignId(e);
        Bytes index = IndexBlock(continuation, {}, {});
        link.stored = continuationCompressed_ ? CompressedForm(index) : std::move(index);
        link.flags = continuationCompressed_ ? 1 : 0;
        primary.push_back(std::move(link));
    }
    const Bytes index = IndexBlock(primary, indexCountOverride_, indexTrailer_);
    BlockWriter w;
    char version[4] = {0, 0, 0, 0};
    std::memcpy(version, version_.data(), version_.size());
    w.Raw(magic_).Raw(version, 4);
    w.U32(indexSizeOverride_.value_or(static_cast<uint32_t>(index.size()))).Raw(index);
    for (const BlockEntry& e : primary) w.Raw(e.stored);
    for (const BlockEntry& e : continuation) w.Raw(e.stored);
    return w.Take();
}

void ZolFileBuilder::WriteTo(const std::string& path) const {
    WriteFile(path, Build());
}

void WriteFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

// ---- Model records ----

Bytes TranslationFieldBytes(const TranslationFields& t) {
    BlockWriter w;
    w.Str(t.applicationName).Str(t.applicationVersion).Str(t.zolVersion).Str(t.date);
    return w.Str(t.extraText).Str(t.userName).Str(t.comment).Take();
}

Bytes GlobalInformation(const std::vector<std::pair<std::string, TranslationFields>>& records,
                        size_t surplusEach) {
    BlockWriter w;
    w.U32(static_cast<uint32_t>(records.size()));
    for (const auto& [version, fields] : records) {
        w.Raw(VersionedRecord(version, TranslationFieldBytes(fields), surplusEach));
    }
    return w.Take();
}

Bytes TreeRecordBytes(const TreeRecord& r, bool wideOffsets) {
    BlockWriter w;
    w.U32(r.id).U32(r.parent).U32(r.prev).U32(r.next).U32(r.firstChild).U32(r.lastChild);
    w.Str(r.name).Str(r.classWord).Str(r.objectVersion);
    return (wideOffsets ? w.U64(r.lightOffset) : w.U32(static_cast<uint32_t>(r.lightOffset)))
        .Take();
}

Bytes ZolTree(const std::vector<TreeRecord>& records, bool wideOffsets,
              std::optional<int32_t> countOverride) {
    BlockWriter w;
    w.I32(countOverride.value_or(static_cast<int32_t>(records.size())));
    for (const TreeRecord& r : records) w.Raw(TreeRecordBytes(r, wideOffsets));
    return w.Take();
}

void AttributeMap(BlockWriter& w, const std::vector<Attr>& attrs) {
    w.U32(static_cast<uint32_t>(attrs.size()));
    for (const Attr& a : attrs) w.Str(a.name);
    w.U32(static_cast<uint32_t>(attrs.size()));
    for (const Attr& a : attrs) w.U8(a.tag);
    for (uint8_t tag : {0, 1, 3, 2}) {
        uint32_t n = 0;
        for (const Attr& a : attrs) n += a.tag == tag ? 1 : 0;
        w.U32(n);
        for (const Attr& a : attrs) {
            if (a.tag != tag) continue;
            if (tag == 0) w.U32(a.u);
            if (tag == 1) w.F32(a.f);
            if (tag == 3) w.F64(a.d);
            if (tag == 2) w.Str(a.text);
        }
    }
}

Bytes AttributeMap(const std::vector<Attr>& attrs) {
    BlockWriter w;
    AttributeMap(w, attrs);
    return w.Take();
}

Bytes MaterialFieldBytes(std::string_view recordVersion, const MaterialFields& m) {
    BlockWriter w;
    for (const float* four : {m.diffuse, m.specular, m.emissive, m.ambient}) {
        for (int i = 0; i < 4; ++i) w.F32(four[i]);
    }
    w.F32(m.shininess);
    if (recordVersion != "0.1") w.F32(m.ambientFactor);
    if (recordVersion != "0.1" && recordVersion != "0.2") w.U8(m.materialFlag);
    return w.Take();
}

Bytes MaterialRecord(std::string_view recordVersion, const MaterialFields& m, size_t surplus) {
    return VersionedRecord(recordVersion, MaterialFieldBytes(recordVersion, m), surplus);
}

void AddPiecesCutAt(ZolFileBuilder& file, const std::string& name, const Bytes& contents,
                    bool compressed, const std::vector<size_t>& cuts) {
    size_t start = 0;
    std::vector<size_t> ends = cuts;
    ends.push_back(contents.size());
    for (size_t end : ends) {
        if (end < start || end > contents.size()) throw std::invalid_argument("bad cut offset");
        Bytes piece(contents.begin() + static_cast<std::ptrdiff_t>(start),
                    contents.begin() + static_cast<std::ptrdiff_t>(end));
        if (compressed) {
            file.Compressed(name, std::move(piece));
        } else {
            file.Plain(name, std::move(piece));
        }
        start = end;
    }
}

void AddPieces(ZolFileBuilder& file, const std::string& name, const Bytes& contents,
               bool compressed, size_t pieceSize) {
    std::vector<size_t> cuts;
    for (size_t at = pieceSize; pieceSize != 0 && at < contents.size(); at += pieceSize) {
        cuts.push_back(at);
    }
    AddPiecesCutAt(file, name, contents, compressed, cuts);
}

// ---- ModelBuilder ----

ModelBuilder& ModelBuilder::Group(const TreeRecord& rec, const GroupData& g) {
    tree.push_back(rec);
    const std::string_view v = rec.objectVersion;
    if (!IsOneOf(v, {"0.0a", "0.1"})) {
        for (float x : g.translation) lightData.F32(x);
        for (float x : g.rotation) lightData.F32(x);
        for (float x : g.scale) lightData.F32(x);
        if (!IsOneOf(v, {"0.2", "0.3"})) lightData.U8(g.mergeable ? 1 : 0);
    }
    if (!IsOneOf(v, {"0.0a", "0.1", "0.2"})) AttributeMap(attributes, g.attributes);
    return *this;
}

ModelBuilder& ModelBuilder::Shape(const TreeRecord& rec, std::string_view materialVersion) {
    tree.push_back(rec);
    if (!IsOneOf(rec.objectVersion, {"0.0a", "0.1"})) {
        resources.Raw(MaterialRecord(materialVersion));
    }
    return *this;
}

ModelBuilder& ModelBuilder::Geometry(const TreeRecord& rec, const std::vector<GeomItem>& items) {
    tree.push_back(rec);
    const std::string_view v = rec.objectVersion;
    BlockWriter& light = lightData;
    light.U32(static_cast<uint32_t>(items.size()));
    if (IsOneOf(v, {"0.5", "0.6", "0.7"})) {
        for (const GeomItem& it : items) {
            light.Str(it.name).U32(it.kind).U8(it.link ? 1 : 0);
            if (it.link) {
                light.U32(it.linkedGeometryId).U32(it.linkedDataIndex);
            } else {
                light.U32(it.byteSize).U8(it.components).U8(it.flag1).U8(it.flag2);
                light.F32(it.value1).F32(it.value2).U8(it.flag3);
                if (v == "0.7") {
                    light.U64(it.position);
                } else {
                    light.U32(static_cast<uint32_t>(it.position));
                }
            }
            light.U8(it.reserved);
            AttributeMap(attributes, it.attributes);
        }
        return *this;
    }
    const bool bare = IsOneOf(v, {"0.0a", "0.1"});
    const bool noReserved = bare || v == "0.2";
    const bool noMap = noReserved || v == "0.3";
    for (const GeomItem& it : items) {
        if (it.link) throw std::invalid_argument("older geometry records have no links");
        light.Str(it.name).U32(it.kind).U32(it.byteSize).U8(it.components);
        if (!bare) light.U8(it.flag1).U8(it.flag2).F32(it.value1).F32(it.value2).U8(it.flag3);
        if (!noReserved) light.U8(it.reserved);
        if (!noMap) AttributeMap(attributes, it.attributes);
        light.U32(static_cast<uint32_t>(it.position));
    }
    return *this;
}

uint64_t ModelBuilder::AddHeavy(const Bytes& payload) {
    const uint64_t position = heavyData.Size();
    heavyData.Raw(payload);
    return position;
}

GeomItem ModelBuilder::HeavyItem(std::string name, uint32_t kind,
                                 const std::vector<uint32_t>& elements, uint8_t components,
                                 bool planar) {
    GeomItem item{.name = std::move(name), .kind = kind, .components = components};
    item.byteSize = static_cast<uint32_t>(4 * elements.size());
    item.position = AddHeavy(planar ? PlanarPayload(elements, components) : Words(elements));
    return item;
}

void ModelBuilder::EmitTo(ZolFileBuilder& file, bool compressed, size_t pieceSize) const {
    const Bytes treeBlock = tree.empty() ? Bytes{} : TreeBlock();
    const std::pair<const char*, const Bytes*> blocks[] = {
        {"Global Information", &globalInformation.Data()},
        {"Zol Tree", &treeBlock},
        {"Light Data", &lightData.Data()},
        {"Heavy Data", &heavyData.Data()},
        {"Attributes", &attributes.Data()},
        {"Resources", &resources.Data()}};
    for (const auto& [name, contents] : blocks) {
        if (!contents->empty()) AddPieces(file, name, *contents, compressed, pieceSize);
    }
}

Bytes ModelBuilder::Build(const std::string& fileVersion) const {
    ZolFileBuilder file;
    file.Version(fileVersion);
    EmitTo(file);
    return file.Build();
}

}  // namespace ZolTest
