// The dump formats its lines on a pool of threads; whatever their number, the text must be that
// of one thread. Random models of several parts, pieces and kinds of values are dumped with 1, 2
// and 3 threads; the coordinate lines are also checked against a reading of their own, through
// iostream.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Run.h"
#include "TestSupport.h"

using namespace ZolTest;

namespace {

uint32_t Bits(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
}

// Values of every shape the text takes: fractions of many magnitudes, integers, specials.
uint32_t RandomValue(std::mt19937& random) {
    std::uniform_int_distribution<int> form(0, 9);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    switch (form(random)) {
        case 0:
            return static_cast<uint32_t>(random());  // any pattern: NaN, subnormal, huge
        case 1:
            return Bits(static_cast<float>(static_cast<int>(random() % 2000001) - 1000000));
        case 2:
            return Bits(unit(random) * 1e-6f);
        default:
            return Bits(unit(random) * std::pow(10.0f, static_cast<float>(random() % 12) - 4));
    }
}

std::vector<uint32_t> RandomValues(std::mt19937& random, size_t n) {
    std::vector<uint32_t> values(n);
    for (uint32_t& v : values) v = RandomValue(random);
    return values;
}

struct Part {
    std::vector<uint32_t> ids, xyz;
};

// A model of `parts` parts in one analysis; returns each part's node ids and coordinates.
Bytes RandomModel(std::mt19937& random, uint32_t parts, std::vector<Part>& made) {
    ModelBuilder model;
    model.globalInformation.Raw(
        GlobalInformation({{"0.7", {"test", "1.0", "1.1", "2024-01-01", "", "t", "threads"}}}));
    auto shapeId = [](uint32_t p) { return 4 + 2 * p; };
    model.Group({1, 0, 0, 0, 2, 2, "model", "Group", "0.4"});
    model.Group({2, 1, 0, 0, 3, 3, "Analysis", "Group", "0.4"});
    model.Group({3, 2, 0, 0, shapeId(0), shapeId(parts - 1), "Geometry", "Group", "0.4"});
    std::vector<size_t> cuts;  // each part's arrays in a block of their own
    for (uint32_t p = 0; p < parts; ++p) {
        if (p != 0) cuts.push_back(model.heavyData.Data().size());
        const size_t nodes = 1 + random() % 30000;
        Part part;
        for (size_t i = 0; i < nodes; ++i) part.ids.push_back(Bits(static_cast<float>(i + 1)));
        part.xyz = RandomValues(random, 3 * nodes);
        std::vector<uint32_t> lengths, connectivity;
        for (size_t e = random() % 20000; e > 0; --e) {
            // Now and then an element of more nodes than a range of lines takes.
            const uint32_t n = random() % 500 == 0 ? 30000 : random() % 9;
            lengths.push_back(n);
            for (uint32_t k = 0; k < n; ++k) connectivity.push_back(random() % nodes);
        }
        // Some elements point past the references that are there.
        connectivity.resize(connectivity.size() - random() % 4 * connectivity.size() / 8);
        std::vector<GeomItem> items = {model.HeavyItem("Coordinates", 0, part.xyz, 3),
                                       model.HeavyItem("Node Ids", 0, part.ids, 1),
                                       model.HeavyItem("Polylength", 5, lengths, 1),
                                       model.HeavyItem("Connectivity", 4, connectivity, 1, false)};
        for (uint32_t step = 1; step <= 2; ++step) {
            const uint8_t components = std::vector<uint8_t>{1, 3, 6}[random() % 3];
            items.push_back(model.HeavyItem("Stress\x1EStep " + std::to_string(step), 12,
                                            RandomValues(random, components * nodes), components));
        }
        const uint32_t id = shapeId(p);
        model.Shape({id, 3, p == 0 ? 0 : id - 2, p + 1 == parts ? 0 : id + 2, id + 1, id + 1,
                     "Part " + std::to_string(p + 1), "Shape", "0.2"});
        model.Geometry({id + 1, id, 0, 0, 0, 0, "Part " + std::to_string(p + 1), "Geometry", "0.7"},
                       items);
        made.push_back(std::move(part));
    }
    ZolFileBuilder file;
    file.Version("1.1");
    const bool compressed = random() % 2 == 0;
    AddPieces(file, "Global Information", model.globalInformation.Data(), compressed, 0);
    AddPieces(file, "Zol Tree", model.TreeBlock(), compressed, 0);
    AddPieces(file, "Light Data", model.lightData.Data(), compressed, 0);
    AddPiecesCutAt(file, "Heavy Data", model.heavyData.Data(), compressed, cuts);
    for (const auto* block : {&model.attributes, &model.resources}) {
        if (!block->Data().empty()) {
            AddPieces(file, block == &model.attributes ? "Attributes" : "Resources", block->Data(),
                      compressed, 0);
        }
    }
    return file.Build();
}

struct Dump {
    std::string text, err;
};

Dump DumpWith(const std::string& threads, const std::string& model, const TempDir& dir) {
    setenv("ZOLINFO_THREADS", threads.c_str(), 1);
    setenv("MORLANE_TEMP_PATH", dir.path.c_str(), 1);
    std::ostringstream out, err;
    const std::string path = dir / ("dump" + threads + ".txt");
    EXPECT_EQ(ZolInfo::Run({"ZolInfo", "--extract-data", model, path}, out, err), 0);
    unsetenv("ZOLINFO_THREADS");
    unsetenv("MORLANE_TEMP_PATH");
    return {ReadText(path), err.str()};
}

// The coordinate lines of the dump, which show the mesh of the analysis's last part.
std::string CoordinateLines(const Part& part) {
    std::ostringstream os;
    os << "    Coordinates : \n";
    for (size_t i = 0; i < part.ids.size(); ++i) {
        float v[4];
        std::memcpy(&v[0], &part.ids[i], 4);
        std::memcpy(&v[1], &part.xyz[3 * i], 12);
        os << "    " << std::setw(10) << static_cast<int32_t>(v[0]);
        for (int axis = 1; axis < 4; ++axis) os << "    " << std::setw(10) << v[axis];
        os << '\n';
    }
    return os.str() + "\n";
}

TEST(ToolThreads, AnyNumberOfThreadsWritesTheTextOfOne) {
    std::mt19937 random(28);
    for (int round = 0; round < (kAddressSanitizer ? 2 : 4); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        TempDir dir;
        std::vector<Part> parts;
        const std::string model = dir.Write(RandomModel(random, 1 + random() % 3, parts));
        const Dump one = DumpWith("1", model, dir);
        EXPECT_NE(one.text.find(CoordinateLines(parts.back())), std::string::npos);
        for (const std::string threads : {"2", "3"}) {
            const Dump many = DumpWith(threads, model, dir);
            EXPECT_TRUE(many.text == one.text) << threads << " threads";
            EXPECT_EQ(many.err, one.err) << threads << " threads";
        }
    }
}

}  // namespace
