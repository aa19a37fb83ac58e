// Writes a synthetic Zol model of any size, for measuring the tool on realistic volumes.
//
//   zolgen -o out.zol [--nodes N] [--elements E] [--results R] [--components 1|3|6]
//          [--parts P] [--compressed|--plain] [--piece-mib S] [--version 0.6|0.7|1.1]
//          [--seed X] [--cdl out.cdl] [--cdl-steps M] [--noise F] [--threads T]
//
// The model is a root group, an "Analysis" group, a "Geometry" group and P shapes, each with a
// Geometry of hexahedra holding its share of the nodes and elements and R result instances
// "Stress" at "Step i" with a "Time" attribute. Values are a smooth field plus seeded noise.
//
// Memory stays bounded by one "Heavy Data" piece per thread (or the largest array, if that is
// larger): the layout of the heavy data is planned first, because a payload's position doesn't
// depend on the values; then the small blocks are built in memory, which fixes the size of the
// index; the index area is reserved, the pieces are generated, packed and appended a batch at a
// time, and the index with the stored sizes is written into its place at the end.
//
// The CDL text holds the same result values for ncgen: one float variable per instance over the
// dimensions nodes and components, nodes in part order.
//
// On success prints what it wrote and what a dump of the model holds, for checks.
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ZolFileBuilder.h"

using ZolTest::Attr;
using ZolTest::Bytes;
using ZolTest::GeomItem;
using ZolTest::ModelBuilder;

namespace {

constexpr uint64_t kMiB = uint64_t{1} << 20;
constexpr uint64_t kU32Max = 0xFFFFFFFFu;
constexpr uint32_t kNodesPerElement = 8;
// Fixed items of every Geometry, ahead of the results.
enum Item : uint32_t { kCoordinates, kNodeIds, kPolylength, kConnectivity, kFirstResult };

struct Options {
    uint64_t nodes = 1000;
    uint64_t elements = UINT64_MAX;  // as many as nodes unless given
    uint32_t results = 2;
    uint32_t components = 1;
    uint32_t parts = 1;
    bool compressed = true;
    double pieceMib = 64;
    std::string version = "1.1";
    uint64_t seed = 1;
    std::string output;
    std::string cdl;
    uint32_t cdlSteps = UINT32_MAX;
    float noise = 2e-3f;
    uint32_t threads = std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
};

[[noreturn]] void Fail(const std::string& text) {
    throw std::runtime_error(text);
}

void Usage(const char* program) {
    std::fprintf(stderr,
                 "usage: %s -o out.zol [--nodes N] [--elements E] [--results R]\n"
                 "       [--components 1|3|6] [--parts P] [--compressed|--plain]\n"
                 "       [--piece-mib S] [--version 0.6|0.7|1.1] [--seed X]\n"
                 "       [--cdl out.cdl] [--cdl-steps M] [--noise F] [--threads T]\n",
                 program);
}

uint64_t ParseCount(const std::string& option, const char* text) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long v = std::strtoull(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || text[0] == '-') {
        Fail("bad number for " + option + ": " + text);
    }
    return v;
}

Options ParseOptions(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&]() -> const char* {
            if (i + 1 >= argc) Fail("missing value for " + a);
            return argv[++i];
        };
        if (a == "-o") {
            o.output = value();
        } else if (a == "--nodes") {
            o.nodes = ParseCount(a, value());
        } else if (a == "--elements") {
            o.elements = ParseCount(a, value());
        } else if (a == "--results") {
            o.results = static_cast<uint32_t>(ParseCount(a, value()));
        } else if (a == "--components") {
            o.components = static_cast<uint32_t>(ParseCount(a, value()));
        } else if (a == "--parts") {
            o.parts = static_cast<uint32_t>(ParseCount(a, value()));
        } else if (a == "--compressed") {
            o.compressed = true;
        } else if (a == "--plain") {
            o.compressed = false;
        } else if (a == "--piece-mib") {
            const char* text = value();
            o.pieceMib = std::strtod(text, nullptr);
        } else if (a == "--version") {
            o.version = value();
        } else if (a == "--seed") {
            o.seed = ParseCount(a, value());
        } else if (a == "--cdl") {
            o.cdl = value();
        } else if (a == "--cdl-steps") {
            o.cdlSteps = static_cast<uint32_t>(ParseCount(a, value()));
        } else if (a == "--noise") {
            o.noise = std::strtof(value(), nullptr);
        } else if (a == "--threads") {
            o.threads = static_cast<uint32_t>(ParseCount(a, value()));
        } else if (a == "-h" || a == "--help") {
            Usage(argv[0]);
            std::exit(0);
        } else {
            Fail("unknown option " + a);
        }
    }
    if (o.output.empty()) Fail("no output file (-o)");
    if (o.elements == UINT64_MAX) o.elements = o.nodes;
    if (o.components != 1 && o.components != 3 && o.components != 6) {
        Fail("--components must be 1, 3 or 6");
    }
    if (o.version != "0.6" && o.version != "0.7" && o.version != "1.1") {
        Fail("--version must be 0.6, 0.7 or 1.1");
    }
    if (o.threads == 0) Fail("--threads must be at least 1");
    if (o.parts == 0 || o.nodes < o.parts) Fail("need at least one node per part");
    if (!(o.pieceMib > 0) ||
        o.pieceMib * static_cast<double>(kMiB) >= static_cast<double>(kU32Max)) {
        Fail("--piece-mib must be above 0 and below 4096");
    }
    return o;
}

// Counter-based noise: the same (key, index) always gives the same value, so the CDL text can be
// written in another order than the payloads.
uint64_t Mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

float Noise(uint64_t key, uint64_t index) {
    // 24 random bits to [-1, 1).
    return static_cast<float>(static_cast<int32_t>(Mix(key ^ index) >> 40) - (1 << 23)) *
           (1.0f / (1 << 23));
}

uint32_t Bits(float v) {
    uint32_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

struct Part {
    uint64_t nodes = 0;
    uint64_t elements = 0;
    uint64_t firstNode = 0;  // global index of its first node
    uint64_t grid = 1;       // nodes per edge of the block of nodes
};

std::vector<Part> SplitParts(const Options& o) {
    std::vector<Part> parts(o.parts);
    uint64_t first = 0;
    for (uint32_t p = 0; p < o.parts; ++p) {
        Part& part = parts[p];
        part.nodes = o.nodes / o.parts + (p < o.nodes % o.parts ? 1 : 0);
        part.elements = o.elements / o.parts + (p < o.elements % o.parts ? 1 : 0);
        part.firstNode = first;
        first += part.nodes;
        while (part.grid * part.grid * part.grid < part.nodes) ++part.grid;
    }
    return parts;
}

// The stress field of one part at one step: a level for each component with a gentle wave over
// the part, as stress varies between neighbouring nodes of a fine mesh. The wave is separable,
// so that it comes from two small tables and each value costs a few multiplies and a hash. Its
// small swing keeps the sign, exponent and top mantissa byte planes nearly constant; the noise
// fills the low ones.
class ResultField {
public:
    ResultField(const Options& o, const Part& part, uint32_t partIndex, uint32_t step)
        : part_(part), noise_(o.noise), components_(o.components) {
        const double time = 0.1 * (step + 1);
        const double h = 10.0 / static_cast<double>(part.grid);
        level_.resize(components_);
        for (uint32_t c = 0; c < components_; ++c) {
            level_[c] = static_cast<float>((c % 2 == 0 ? 1 : -1) * (80.0 + 45.0 * c) *
                                           (1.0 + 0.5 * time + 0.1 * partIndex));
        }
        across_.resize(part.grid * components_);
        along_.resize(part.grid);
        for (uint64_t i = 0; i < part.grid; ++i) {
            const double x = static_cast<double>(i) * h;
            for (uint32_t c = 0; c < components_; ++c) {
                across_[i * components_ + c] =
                    static_cast<float>(kSwing * std::sin(0.7 * x + 0.5 * c + 0.3 * partIndex));
            }
            along_[i] = static_cast<float>(std::cos(0.45 * x - time));
        }
        slope_ = static_cast<float>(kSwing * time / static_cast<double>(part.grid));
        key_ = Mix(o.seed * 0x100000001B3ull ^ (uint64_t{partIndex} << 32 | step));
    }

    // Value of node i (local to the part), component c.
    float operator()(uint64_t i, uint32_t c) const {
        const uint64_t g = part_.grid;
        const uint64_t ix = i % g;
        const uint64_t iy = (i / g) % g;
        const uint64_t iz = i / (g * g);
        const float wave =
            across_[ix * components_ + c] * along_[iy] + slope_ * static_cast<float>(iz);
        return level_[c] * (1.0f + wave) * (1.0f + noise_ * Noise(key_, i * components_ + c));
    }

private:
    static constexpr double kSwing = 0.01;
    const Part& part_;
    float noise_;
    uint32_t components_;
    std::vector<float> level_, across_, along_;
    float slope_ = 0;
    uint64_t key_ = 0;
};

std::string StepName(uint32_t step) {
    return "Step " + std::to_string(step + 1);
}

float StepTime(uint32_t step) {
    return static_cast<float>(0.1 * (step + 1));
}

// One array of one part and where it lands in "Heavy Data".
struct Payload {
    uint32_t part = 0;
    uint32_t item = 0;
    uint32_t components = 1;
    uint64_t count = 0;  // 32-bit elements
    uint64_t position = 0;
};

struct HeavyPlan {
    std::vector<Payload> payloads;
    std::vector<uint64_t> pieceSizes;  // unpacked
    std::vector<size_t> firstPayload;  // of each piece, into payloads
    uint64_t total = 0;
};

uint64_t ItemCount(const Options& o, const Part& part, uint32_t item) {
    switch (item) {
        case kCoordinates:
            return 3 * part.nodes;
        case kNodeIds:
            return part.nodes;
        case kPolylength:
            return part.elements;
        case kConnectivity:
            return kNodesPerElement * part.elements;
        default:
            return o.components * part.nodes;
    }
}

// Payloads never straddle two pieces: a payload that doesn't fit behind what the piece holds
// starts a new one, and one larger than a piece is a piece of its own.
HeavyPlan PlanHeavy(const Options& o, const std::vector<Part>& parts) {
    HeavyPlan plan;
    const auto limit = static_cast<uint64_t>(o.pieceMib * static_cast<double>(kMiB));
    uint64_t used = 0;
    bool open = false;
    auto close = [&] {
        plan.pieceSizes.push_back(used);
        plan.total += used;
        used = 0;
        open = false;
    };
    for (uint32_t p = 0; p < parts.size(); ++p) {
        for (uint32_t item = 0; item < kFirstResult + o.results; ++item) {
            Payload payload;
            payload.part = p;
            payload.item = item;
            payload.count = ItemCount(o, parts[p], item);
            payload.components = item == kCoordinates ? 3 : item >= kFirstResult ? o.components : 1;
            const uint64_t bytes = 4 * payload.count;
            if (bytes > kU32Max) Fail("an array of more than 4 GiB can't be stored");
            if (used != 0 && used + bytes > limit) close();
            if (!open) {
                plan.firstPayload.push_back(plan.payloads.size());
                open = true;
            }
            payload.position = plan.total + used;
            used += bytes;
            plan.payloads.push_back(payload);
            if (used >= limit) close();
        }
    }
    if (open) close();
    if (o.version == "0.6" && plan.total > kU32Max) {
        Fail("version 0.6 stores 32-bit positions: the heavy data of this model passes 4 GiB");
    }
    return plan;
}

std::string ItemName(uint32_t item) {
    switch (item) {
        case kCoordinates:
            return "Coordinates";
        case kNodeIds:
            return "Node Ids";
        case kPolylength:
            return "Polylength";
        case kConnectivity:
            return "Connectivity";
        default:
            return "Stress\x1E" + StepName(item - kFirstResult);
    }
}

uint32_t ItemKind(uint32_t item) {
    switch (item) {
        case kCoordinates:
            return 0;
        case kPolylength:
            return 5;
        case kConnectivity:
            return 4;
        default:
            return 12;
    }
}

std::string ModelName(const std::string& path) {
    std::string name = path.substr(path.find_last_of('/') + 1);
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot != 0) name.resize(dot);
    return name.empty() ? "model" : name;
}

uint32_t Clamp32(uint64_t v) {
    return v > kU32Max ? static_cast<uint32_t>(kU32Max) : static_cast<uint32_t>(v);
}

// The small blocks, in the order of the tree records.
ModelBuilder BuildSmallBlocks(const Options& o, const std::vector<Part>& parts,
                              const HeavyPlan& plan) {
    ModelBuilder model;
    model.wideOffsets = o.version != "0.6";
    const std::string geometryVersion = o.version == "0.6" ? "0.6" : "0.7";
    model.globalInformation.Raw(ZolTest::GlobalInformation(
        {{"0.7", {"zolgen", "1.0", o.version, "2024-01-01", "", "bench", "synthetic model"}}}));

    const std::string name = ModelName(o.output);
    ZolTest::GroupData root;
    root.attributes = {Attr::Text("Model File", name + ".odb"),
                       Attr::Unsigned("Model File Size", Clamp32(plan.total)),
                       Attr::Unsigned("Number of Nodes in the Model", Clamp32(o.nodes)),
                       Attr::Unsigned("Number of Elements in the Model", Clamp32(o.elements))};
    const auto count = static_cast<uint32_t>(parts.size());
    auto shapeId = [](uint32_t p) { return 4 + 2 * p; };
    model.Group({1, 0, 0, 0, 2, 2, name, "Group", "0.4"}, root);
    model.Group({2, 1, 0, 0, 3, 3, "Analysis", "Group", "0.4"});
    model.Group({3, 2, 0, 0, shapeId(0), shapeId(count - 1), "Geometry", "Group", "0.4"});
    size_t next = 0;
    for (uint32_t p = 0; p < count; ++p) {
        const std::string partName = "Part " + std::to_string(p + 1);
        const uint32_t id = shapeId(p);
        model.Shape({id, 3, p == 0 ? 0 : id - 2, p + 1 == count ? 0 : id + 2, id + 1, id + 1,
                     partName, "Shape", "0.2"});
        std::vector<GeomItem> items;
        for (; next < plan.payloads.size() && plan.payloads[next].part == p; ++next) {
            const Payload& payload = plan.payloads[next];
            GeomItem item;
            item.name = ItemName(payload.item);
            item.kind = ItemKind(payload.item);
            item.byteSize = static_cast<uint32_t>(4 * payload.count);
            item.components = static_cast<uint8_t>(payload.components);
            item.position = payload.position;
            if (payload.item >= kFirstResult) {
                item.attributes = {Attr::Float("Time", StepTime(payload.item - kFirstResult))};
            }
            items.push_back(std::move(item));
        }
        model.Geometry({id + 1, id, 0, 0, 0, 0, partName, "Geometry", geometryVersion}, items);
    }
    return model;
}

// First node of cell c of the part's grid, cells counted x fastest.
uint64_t CellBase(const Part& part, uint64_t c) {
    const uint64_t g = part.grid, row = g - 1;
    return c % row + (c / row) % row * g + c / (row * row) * g * g;
}

// The cells whose eight nodes all exist: a prefix of the cells, since a cell's last node
// grows with its number.
uint64_t CompleteCells(const Part& part) {
    const uint64_t g = part.grid;
    if (g < 2) return 0;
    const uint64_t span = g * g + g + 1;  // from a cell's first node to its last
    uint64_t low = 0, high = (g - 1) * (g - 1) * (g - 1);
    while (low < high) {
        const uint64_t middle = (low + high + 1) / 2;
        if (CellBase(part, middle - 1) + span < part.nodes) {
            low = middle;
        } else {
            high = middle - 1;
        }
    }
    return low;
}

// Writes element i of a run of m elements in byte planes.
inline void PutPlanar(uint8_t* run, uint64_t m, uint64_t i, uint32_t bits) {
    run[i] = static_cast<uint8_t>(bits);
    run[m + i] = static_cast<uint8_t>(bits >> 8);
    run[2 * m + i] = static_cast<uint8_t>(bits >> 16);
    run[3 * m + i] = static_cast<uint8_t>(bits >> 24);
}

void FillPayload(const Options& o, const std::vector<Part>& parts, const Payload& payload,
                 uint8_t* out) {
    const Part& part = parts[payload.part];
    const uint64_t m = payload.count / payload.components;
    const uint64_t g = part.grid;
    const double h = 10.0 / static_cast<double>(g);
    switch (payload.item) {
        case kCoordinates:
            for (uint64_t i = 0; i < m; ++i) {
                const uint64_t ix = i % g, iy = (i / g) % g, iz = i / (g * g);
                PutPlanar(out, m, i, Bits(static_cast<float>((ix + payload.part * g) * h)));
                PutPlanar(out + 4 * m, m, i, Bits(static_cast<float>(iy * h)));
                PutPlanar(out + 8 * m, m, i, Bits(static_cast<float>(iz * h)));
            }
            break;
        case kNodeIds:
            for (uint64_t i = 0; i < m; ++i) {
                PutPlanar(out, m, i, Bits(static_cast<float>(part.firstNode + i + 1)));
            }
            break;
        case kPolylength:
            for (uint64_t i = 0; i < m; ++i) PutPlanar(out, m, i, kNodesPerElement);
            break;
        case kConnectivity: {
            // Corners of a cell of the node grid, in VTK's hexahedron order: the bottom face
            // counter-clockwise seen from above, then the top face, so that every volume is
            // positive. Elements go through the complete cells and start again when there are
            // more elements than cells; a part too small for one cell wraps into its nodes.
            const uint64_t corner[kNodesPerElement] = {0,     1,         g + 1,         g,
                                                       g * g, g * g + 1, g * g + g + 1, g * g + g};
            const uint64_t cells = CompleteCells(part);
            for (uint64_t e = 0; e < part.elements; ++e) {
                const uint64_t base = cells == 0 ? e : CellBase(part, e % cells);
                for (uint32_t k = 0; k < kNodesPerElement; ++k) {
                    const uint64_t local = (base + corner[k]) % part.nodes;
                    PutPlanar(out, m, e * kNodesPerElement + k,
                              static_cast<uint32_t>(part.firstNode + local + 1));
                }
            }
            break;
        }
        default: {
            const ResultField field(o, part, payload.part, payload.item - kFirstResult);
            for (uint32_t c = 0; c < payload.components; ++c) {
                uint8_t* run = out + 4 * m * c;
                for (uint64_t i = 0; i < m; ++i) PutPlanar(run, m, i, Bits(field(i, c)));
            }
            break;
        }
    }
}

// Non-zeroing byte buffer that only grows: pieces are refilled completely every time.
class Buffer {
public:
    uint8_t* Reserve(size_t size) {
        if (size > capacity_) {
            data_ = std::make_unique_for_overwrite<uint8_t[]>(size);
            capacity_ = size;
        }
        return data_.get();
    }
    uint8_t* Data() { return data_.get(); }

private:
    std::unique_ptr<uint8_t[]> data_;
    size_t capacity_ = 0;
};

struct Span {
    const uint8_t* data = nullptr;
    size_t size = 0;
};

// Order-0 entropy of a chunk in bits per byte; noise planes come close to 8.
double Entropy(const uint8_t* data, size_t size) {
    uint32_t counts[256] = {};
    for (size_t i = 0; i < size; ++i) ++counts[data[i]];
    double bits = 0;
    for (uint32_t c : counts) {
        if (c != 0) bits -= c * std::log2(static_cast<double>(c) / static_cast<double>(size));
    }
    return bits / static_cast<double>(size);
}

// u32 unpacked size + one zlib stream. Chunks that are noise go into stored deflate blocks and
// the rest through level 1: the stream is as valid as any, and packing costs a fraction of
// running the matcher over bytes that can't shrink.
class Packer {
public:
    Packer() {
        if (deflateInit(&z_, 1) != Z_OK) Fail("deflateInit failed");
    }
    ~Packer() { deflateEnd(&z_); }
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;

    Span Pack(const uint8_t* data, size_t size) {
        constexpr size_t kChunk = 64 << 10;
        constexpr double kNoiseBits = 7.9;
        if (deflateReset(&z_) != Z_OK) Fail("deflateReset failed");
        if (deflateParams(&z_, 1, Z_DEFAULT_STRATEGY) != Z_OK) Fail("deflateParams failed");
        int level = 1;
        // Each switch of level ends a block; the stored blocks add 5 bytes in 64 KiB.
        const size_t bound = deflateBound(&z_, static_cast<uLong>(size)) + size / 256 + 4096;
        uint8_t* out = out_.Reserve(4 + bound);
        z_.next_out = out + 4;
        z_.avail_out = static_cast<uInt>(bound);
        for (size_t at = 0; at < size; at += kChunk) {
            const size_t length = std::min(kChunk, size - at);
            const int wanted = Entropy(data + at, length) > kNoiseBits ? 0 : 1;
            if (wanted != level) {
                if (deflateParams(&z_, wanted, Z_DEFAULT_STRATEGY) != Z_OK) {
                    Fail("deflateParams failed");
                }
                level = wanted;
            }
            z_.next_in = const_cast<uint8_t*>(data + at);
            z_.avail_in = static_cast<uInt>(length);
            if (deflate(&z_, Z_NO_FLUSH) != Z_OK || z_.avail_in != 0) Fail("deflate failed");
        }
        z_.next_in = nullptr;
        z_.avail_in = 0;
        if (deflate(&z_, Z_FINISH) != Z_STREAM_END) Fail("deflate failed to finish");
        const size_t packed = bound - z_.avail_out;
        for (int b = 0; b < 4; ++b) out[b] = static_cast<uint8_t>(size >> (8 * b));
        return {out, 4 + packed};
    }

private:
    z_stream z_{};
    Buffer out_;
};

// One worker's piece: generated, then packed in place of the caller.
struct PieceSlot {
    Packer packer;
    Buffer piece;
    Span stored;
    std::exception_ptr failure;
};

struct Entry {
    std::string name;
    uint64_t storedSize = 0;
    uint8_t flags = 0;
};

class OutputFile {
public:
    explicit OutputFile(const std::string& path) : path_(path), f_(std::fopen(path.c_str(), "wb")) {
        if (f_ == nullptr) Fail("can't create " + path + ": " + std::strerror(errno));
    }
    ~OutputFile() {
        if (f_ != nullptr) std::fclose(f_);
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(const void* data, size_t size) {
        if (size != 0 && std::fwrite(data, 1, size, f_) != size)
            Fail("write to " + path_ + " failed");
    }
    void Seek(uint64_t offset) {
        if (fseeko(f_, static_cast<off_t>(offset), SEEK_SET) != 0) Fail("seek failed");
    }
    void Close() {
        const int rc = std::fclose(f_);
        f_ = nullptr;
        if (rc != 0) Fail("closing " + path_ + " failed");
    }

private:
    std::string path_;
    FILE* f_;
};

Bytes IndexBlock(const std::vector<Entry>& entries) {
    ZolTest::BlockWriter w;
    w.U32(static_cast<uint32_t>(entries.size()));
    for (size_t i = 0; i < entries.size(); ++i) {
        const Entry& e = entries[i];
        if (e.storedSize > kU32Max) Fail("a block of more than 4 GiB can't be stored");
        // Ids mean nothing to a reader; they count from 1 and wrap like the reader's own.
        w.U8(static_cast<uint8_t>(i + 1)).Str(e.name).U32(static_cast<uint32_t>(e.storedSize));
        w.U8(e.flags).U8(0);
    }
    return w.Take();
}

struct Written {
    uint64_t fileBytes = 0;
    uint64_t heavyStored = 0;
};

Written WriteModel(const Options& o, const std::vector<Part>& parts, const HeavyPlan& plan,
                   const ModelBuilder& model) {
    Packer packer;
    auto stored = [&](const Bytes& contents) -> Bytes {
        if (!o.compressed) return contents;
        const Span packed = packer.Pack(contents.data(), contents.size());
        return Bytes(packed.data, packed.data + packed.size);
    };
    const uint8_t flags = o.compressed ? 1 : 0;
    std::vector<std::pair<std::string, Bytes>> before, after;
    auto add = [&](auto& list, const char* name, const Bytes& contents) {
        if (!contents.empty()) list.emplace_back(name, stored(contents));
    };
    add(before, "Global Information", model.globalInformation.Data());
    add(before, "Zol Tree", model.TreeBlock());
    add(before, "Light Data", model.lightData.Data());
    add(after, "Attributes", model.attributes.Data());
    add(after, "Resources", model.resources.Data());

    std::vector<Entry> entries;
    for (const auto& [name, bytes] : before) entries.push_back({name, bytes.size(), flags});
    const size_t firstHeavy = entries.size();
    for (size_t i = 0; i < plan.pieceSizes.size(); ++i) entries.push_back({"Heavy Data", 0, flags});
    for (const auto& [name, bytes] : after) entries.push_back({name, bytes.size(), flags});
    // Entry sizes don't depend on the values of the stored sizes, so this is the final size.
    const size_t indexSize = IndexBlock(entries).size();

    OutputFile file(o.output);
    const uint8_t magic[8] = {0x89, 0x48, 0x42, 0x46, 0x0D, 0x0A, 0x1A, 0x0A};
    char version[4] = {0, 0, 0, 0};
    std::memcpy(version, o.version.data(), o.version.size());
    ZolTest::BlockWriter head;
    head.Raw(magic, 8).Raw(version, 4).U32(static_cast<uint32_t>(indexSize));
    file.Write(head.Data().data(), head.Size());
    const Bytes reserved(indexSize, 0);
    file.Write(reserved.data(), reserved.size());
    Written written;
    written.fileBytes = head.Size() + indexSize;
    for (const auto& [name, bytes] : before) {
        file.Write(bytes.data(), bytes.size());
        written.fileBytes += bytes.size();
    }

    // Pieces are made in batches, one per worker, and written in their order.
    auto makePiece = [&](size_t i, PieceSlot& slot) {
        try {
            uint8_t* piece = slot.piece.Reserve(plan.pieceSizes[i]);
            const uint64_t base = plan.payloads[plan.firstPayload[i]].position;
            const size_t end =
                i + 1 < plan.firstPayload.size() ? plan.firstPayload[i + 1] : plan.payloads.size();
            for (size_t j = plan.firstPayload[i]; j < end; ++j) {
                FillPayload(o, parts, plan.payloads[j], piece + (plan.payloads[j].position - base));
            }
            slot.stored = o.compressed ? slot.packer.Pack(piece, plan.pieceSizes[i])
                                       : Span{piece, plan.pieceSizes[i]};
        } catch (...) {
            slot.failure = std::current_exception();
        }
    };
    std::vector<PieceSlot> slots(o.threads);
    for (size_t first = 0; first < plan.pieceSizes.size(); first += slots.size()) {
        const size_t batch = std::min(slots.size(), plan.pieceSizes.size() - first);
        std::vector<std::thread> workers;
        for (size_t t = 1; t < batch; ++t)
            workers.emplace_back(makePiece, first + t, std::ref(slots[t]));
        makePiece(first, slots[0]);
        for (std::thread& worker : workers) worker.join();
        for (size_t t = 0; t < batch; ++t) {
            if (slots[t].failure) std::rethrow_exception(slots[t].failure);
            file.Write(slots[t].stored.data, slots[t].stored.size);
            entries[firstHeavy + first + t].storedSize = slots[t].stored.size;
            written.fileBytes += slots[t].stored.size;
            written.heavyStored += slots[t].stored.size;
        }
    }
    for (const auto& [name, bytes] : after) {
        file.Write(bytes.data(), bytes.size());
        written.fileBytes += bytes.size();
    }
    const Bytes index = IndexBlock(entries);
    file.Seek(head.Size());
    file.Write(index.data(), index.size());
    file.Close();
    return written;
}

void WriteCdl(const Options& o, const std::vector<Part>& parts) {
    FILE* f = std::fopen(o.cdl.c_str(), "w");
    if (f == nullptr) Fail("can't create " + o.cdl + ": " + std::strerror(errno));
    const uint32_t steps = std::min(o.results, o.cdlSteps);
    std::string text = "netcdf " + ModelName(o.cdl) +
                       " {\ndimensions:\n\tnodes = " + std::to_string(o.nodes) +
                       " ;\n\tcomponents = " + std::to_string(o.components) + " ;\nvariables:\n";
    auto variable = [](uint32_t step) { return "Stress_Step_" + std::to_string(step + 1); };
    for (uint32_t s = 0; s < steps; ++s) {
        char time[32];
        std::snprintf(time, sizeof time, "%#.7g", static_cast<double>(StepTime(s)));
        text += "\tfloat " + variable(s) + "(nodes, components) ;\n\t\t" + variable(s) +
                ":time = " + time + "f ;\n";
    }
    text += "data:\n";
    std::fputs(text.c_str(), f);
    std::vector<char> line;
    for (uint32_t s = 0; s < steps; ++s) {
        std::string head = "\n " + variable(s) + " =\n  ";
        std::fputs(head.c_str(), f);
        for (uint32_t p = 0; p < parts.size(); ++p) {
            const ResultField field(o, parts[p], p, s);
            const bool lastPart = p + 1 == parts.size();
            for (uint64_t i = 0; i < parts[p].nodes; ++i) {
                line.clear();
                for (uint32_t c = 0; c < o.components; ++c) {
                    char number[32];
                    // The shortest text that reads back as the same float.
                    const auto result = std::to_chars(number, number + sizeof number, field(i, c));
                    line.insert(line.end(), number, result.ptr);
                    const bool last = lastPart && i + 1 == parts[p].nodes && c + 1 == o.components;
                    line.push_back(last ? ' ' : ',');
                    line.push_back(last ? ';' : ' ');
                }
                line.push_back('\n');
                std::fwrite(line.data(), 1, line.size(), f);
            }
        }
    }
    std::fputs("\n}\n", f);
    if (std::fclose(f) != 0) Fail("write to " + o.cdl + " failed");
}

// What a dump of the model prints. All parts are in one analysis: the last "Node Ids" gives the
// node count of the rows and the mesh section shows the last part only.
void PrintExpectations(const Options& o, const std::vector<Part>& parts) {
    const Part& last = parts.back();
    const uint64_t rows = last.nodes;
    uint64_t columns = 0;
    for (const Part& part : parts) {
        columns += part.nodes / rows + o.components * part.nodes / rows;
    }
    const uint64_t valueLines = o.results * rows;
    // Heads of the analysis, element sets (the first record's: one), results and instances;
    // the mesh sections; a "Data : " section of five fixed lines and the rows per instance.
    const uint64_t lines = 6 + 4 + (o.results != 0 ? 1 : 0) + o.results + 4 + last.nodes +
                           last.elements + o.results * (5 + rows);
    std::printf(
        "expect: node-lines %llu element-lines %llu value-lines %llu values %llu lines %llu\n",
        static_cast<unsigned long long>(last.nodes), static_cast<unsigned long long>(last.elements),
        static_cast<unsigned long long>(valueLines),
        static_cast<unsigned long long>(valueLines * columns),
        static_cast<unsigned long long>(lines));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options o = ParseOptions(argc, argv);
        const auto start = std::chrono::steady_clock::now();
        const std::vector<Part> parts = SplitParts(o);
        const HeavyPlan plan = PlanHeavy(o, parts);
        const ModelBuilder model = BuildSmallBlocks(o, parts, plan);
        const Written written = WriteModel(o, parts, plan, model);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        std::printf(
            "wrote %s: %llu bytes, version %s, %s, heavy data %llu bytes in %zu pieces "
            "(stored %llu, %.2f:1), %.1f s\n",
            o.output.c_str(), static_cast<unsigned long long>(written.fileBytes), o.version.c_str(),
            o.compressed ? "compressed" : "plain", static_cast<unsigned long long>(plan.total),
            plan.pieceSizes.size(), static_cast<unsigned long long>(written.heavyStored),
            written.heavyStored == 0
                ? 0.0
                : static_cast<double>(plan.total) / static_cast<double>(written.heavyStored),
            elapsed.count());
        if (!o.cdl.empty()) WriteCdl(o, parts);
        PrintExpectations(o, parts);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zolgen: %s\n", e.what());
        Usage(argv[0]);
        return 1;
    }
    return 0;
}
