// Damaged files: truncations, bit flips in the header and the index blocks, and random byte
// overwrites of valid models. Every run, in every mode, must end with status 0 or 2, print
// nothing on a failed load, and never crash (the sanitizer build checks the memory side).
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <sstream>

#include "Run.h"
#include "TestSupport.h"

using namespace ZolTest;

namespace {

#if defined(__SANITIZE_ADDRESS__)
// Every block buffer has a 10 MiB floor, and the sanitizer maps and poisons each one afresh:
// a run costs tens of milliseconds there, so that build tries a sample of the mutations.
constexpr size_t kSample = 130;
#else
constexpr size_t kSample = 1;
#endif

struct Shape {
    std::string fileVersion = "1.1";
    std::string geometryVersion = "0.7";
    bool compressed = false;
    bool continuation = false;
    bool continuationCompressed = false;
    bool heavyPieces = false;   // one physical "Heavy Data" block per payload
    bool lightOffsets = false;  // tree records point into "Light Data"
};

Bytes Model(const Shape& s) {
    const bool planar = s.geometryVersion == "0.6" || s.geometryVersion == "0.7";
    ModelBuilder model;
    model.wideOffsets = s.fileVersion != "0.6";
    model.globalInformation.Raw(GlobalInformation(
        {{"0.7", {"Translator", "3.0", "0.7", "2014-02-11", "", "designer", "import"}}}, 3));
    auto at = [&](TreeRecord r) {
        if (s.lightOffsets) r.lightOffset = model.lightData.Size();
        return r;
    };
    GroupData root;
    root.attributes = {Attr::Text("Model File", "/m/wheel.odb"),
                       Attr::Unsigned("Number of Nodes in the Model", 5)};
    model.Group(at({1, 0, 0, 0, 2, 2, "wheel", "Group", "0.4"}), root);
    model.Group(at({2, 1, 0, 0, 3, 5, "Geometry", "Group", "0.4"}));
    model.Shape(at({3, 2, 0, 5, 4, 4, "Part", "Shape", "0.2"}), "0.3");
    std::vector<size_t> starts;
    auto heavy = [&](std::string name, uint32_t kind, std::vector<float> values, uint8_t k,
                     std::vector<Attr> attributes = {}) {
        GeomItem item = model.HeavyItem(std::move(name), kind, FloatBits(values), k, planar);
        item.attributes = std::move(attributes);
        if (item.position != 0) starts.push_back(item.position);
        return item;
    };
    // Components 3 over 16 and 7 elements: byte planes with tails.
    model.Geometry(at({4, 3, 0, 0, 0, 0, "Part", "Geometry", s.geometryVersion}),
                   {heavy("Coordinates", 0, {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 9}, 3),
                    heavy("Node Ids", 12, {11, 12, 13, 14, 15}, 1), heavy("Polylength", 5, {4}, 1),
                    heavy("Connectivity", 4, {1, 2, 3, 4}, 1),
                    heavy("Stress\x1EStep 1", 12, {1.5f, 2.5f, 3.5f, 4.5f, 5.5f}, 1,
                          {Attr::Float("Time", 0.5f)}),
                    heavy("Displacement\x1EStep 1", 13, {1, 2, 3, 4, 5, 6, 7}, 3,
                          {Attr::Text("Category", "Vibration")})});
    model.Shape(at({5, 2, 3, 0, 6, 6, "Cut", "Shape", "0.2"}), "0.2");
    std::vector<GeomItem> cut;
    if (planar) {
        cut = {GeomItem{.name = "Node Ids",
                        .kind = 12,
                        .link = true,
                        .linkedGeometryId = 4,
                        .linkedDataIndex = 1},
               GeomItem{.name = "Stress\x1EStep 1",
                        .kind = 12,
                        .link = true,
                        .linkedGeometryId = 4,
                        .linkedDataIndex = 4}};
    }
    model.Geometry(at({6, 5, 0, 0, 0, 0, "Cut", "Geometry", s.geometryVersion}), cut);

    ZolFileBuilder file;
    file.Version(s.fileVersion);
    AddPieces(file, "Zol Tree", model.TreeBlock(), s.compressed, 0);
    AddPieces(file, "Global Information", model.globalInformation.Data(), s.compressed, 0);
    if (s.continuation) file.StartContinuation(s.continuationCompressed, "2");
    AddPieces(file, "Light Data", model.lightData.Data(), s.compressed, 0);
    AddPiecesCutAt(file, "Heavy Data", model.heavyData.Data(), s.compressed,
                   s.heavyPieces ? starts : std::vector<size_t>{});
    AddPieces(file, "Attributes", model.attributes.Data(), s.compressed, 0);
    AddPieces(file, "Resources", model.resources.Data(), s.compressed, 0);
    return file.Build();
}

uint32_t U32At(const Bytes& b, size_t at) {
    uint32_t v = 0;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}

// Byte ranges [begin, end) of the header with the primary index, and of the continuation
// index block when the file has one.
std::vector<std::pair<size_t, size_t>> IndexRanges(const Bytes& file) {
    const size_t indexEnd = 16 + U32At(file, 12);
    std::vector<std::pair<size_t, size_t>> ranges = {{0, indexEnd}};
    size_t at = 20;
    size_t blockStart = indexEnd;
    std::string name;
    uint32_t stored = 0;
    for (uint32_t i = 0, count = U32At(file, 16); i < count; ++i) {
        blockStart += stored;
        const uint32_t length = U32At(file, at + 1);
        name.assign(reinterpret_cast<const char*>(file.data() + at + 5), length);
        stored = U32At(file, at + 5 + length);
        at += 11 + length;
    }
    if (name.rfind(kIndexBlockPrefix, 0) == 0) ranges.push_back({blockStart, blockStart + stored});
    return ranges;
}

class ToolMutation : public testing::Test {
protected:
    void SetUp() override {
        // The EKM mode writes into the current directory; with no trace log directory the log
        // goes nowhere.
        previousDirectory = std::filesystem::current_path();
        std::filesystem::current_path(dir.path);
        if (const char* temp = getenv("MORLANE_TEMP_PATH")) previousTemp = temp;
        setenv("MORLANE_TEMP_PATH", (dir / "no-such-directory").c_str(), 1);
        // Each run sets aside several 10 MiB block buffers and gives them back; without this
        // the heap is grown and trimmed by that much on every run, which dominates the sweep.
        mallopt(M_MMAP_THRESHOLD, 32 << 20);
        mallopt(M_TRIM_THRESHOLD, 512 << 20);
    }
    void TearDown() override {
        if (previousTemp) {
            setenv("MORLANE_TEMP_PATH", previousTemp->c_str(), 1);
        } else {
            unsetenv("MORLANE_TEMP_PATH");
        }
        std::filesystem::current_path(previousDirectory);
    }

    // Runs the three modes on the bytes; false (with a message) on the first bad run.
    testing::AssertionResult RunsCleanly(const Bytes& bytes) {
        const std::string path = dir.Write(bytes, "damaged.zol");
        for (const char* option : {"", "--extract-data", "--ekm-meta-data"}) {
            std::vector<std::string> args = {"ZolInfo", path};
            if (*option != '\0') args.insert(args.begin() + 1, option);
            std::ostringstream out, err;
            const int status = ZolInfo::Run(args, out, err);
            if (status == 2 && out.str().empty()) continue;
            if (status == 0 && out.str().rfind("Peak Memory Usage: ", 0) == 0) continue;
            return testing::AssertionFailure()
                   << option << ": status " << status << ", stdout begins \""
                   << out.str().substr(0, 80) << "\", stderr: " << err.str().substr(0, 400);
        }
        return testing::AssertionSuccess();
    }

    TempDir dir;
    std::filesystem::path previousDirectory;
    std::optional<std::string> previousTemp;
};

TEST_F(ToolMutation, DamagedModelsEndWithStatusZeroOrTwo) {
    const std::vector<Shape> shapes = {
        {.continuation = true, .heavyPieces = true},
        {.compressed = true, .continuation = true, .continuationCompressed = true},
        {.fileVersion = "0.6", .geometryVersion = "0.6", .heavyPieces = true, .lightOffsets = true},
        {.fileVersion = "0.6", .geometryVersion = "0.3", .compressed = true},
    };
    std::mt19937 random(20240601);
    size_t mutation = 0;
    // Takes every kSample-th mutation, so that a sample still covers every kind.
    auto sampled = [&mutation] { return mutation++ % kSample == 0; };
    for (size_t m = 0; m < shapes.size(); ++m) {
        const Bytes model = Model(shapes[m]);
        SCOPED_TRACE("model " + std::to_string(m) + ", " + std::to_string(model.size()) + " bytes");
        ASSERT_TRUE(RunsCleanly(model));

        for (size_t length = 0; length < model.size(); length += length < 4096 ? 1 : 97) {
            if (!sampled()) continue;
            ASSERT_TRUE(RunsCleanly(Bytes(model.begin(), model.begin() + long(length))))
                << "truncated to " << length;
        }
        const auto ranges = IndexRanges(model);
        ASSERT_EQ(ranges.size(), shapes[m].continuation ? 2u : 1u);
        for (const auto& [begin, end] : ranges) {
            for (size_t bit = begin * 8; bit < end * 8; ++bit) {
                if (!sampled()) continue;
                Bytes flipped = model;
                flipped[bit / 8] ^= uint8_t(1u << (bit % 8));
                ASSERT_TRUE(RunsCleanly(flipped)) << "bit " << bit << " flipped";
            }
        }
        // A few bytes at random places, often set to values that make huge counts.
        for (int round = 0; round < 800; ++round) {
            Bytes damaged = model;
            const int bytes = 1 + int(random() % 4);
            for (int i = 0; i < bytes; ++i) {
                const uint32_t value = random();
                damaged[random() % damaged.size()] = value % 3 == 0   ? 0xFF
                                                     : value % 3 == 1 ? 0x00
                                                                      : uint8_t(value >> 8);
            }
            if (!sampled()) continue;
            ASSERT_TRUE(RunsCleanly(damaged)) << "random round " << round;
        }
    }
}

}  // namespace
