// Writes the seed corpus of the fuzz targets: valid models in every shape the reader knows,
// so that mutations start from deep inside the format.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "ZolFileBuilder.h"

using namespace ZolTest;

namespace {

struct Variant {
    std::string fileName;
    std::string fileVersion = "1.1";
    std::string groupVersion = "0.4";
    std::string shapeVersion = "0.2";
    std::string materialVersion = "0.3";
    std::string geometryVersion = "0.7";
    bool compressed = false;
    bool continuation = false;  // the last four blocks go into a continuation index
    bool continuationCompressed = false;
    bool heavyPieces = false;   // one physical "Heavy Data" block per payload
    bool links = true;          // the cut-section borrows arrays of the part
    bool lightOffsets = false;  // tree records point into "Light Data"
    uint32_t nodes = 8;
    size_t surplus = 0;  // bytes behind versioned records
    std::string translationVersion = "0.7";
};

bool Planar(const std::string& geometryVersion) {
    return geometryVersion == "0.5" || geometryVersion == "0.6" || geometryVersion == "0.7";
}

// Every payload start goes to `starts`, so that "Heavy Data" can be cut between payloads.
std::vector<GeomItem> PartItems(ModelBuilder& model, const Variant& v,
                                std::vector<size_t>& starts) {
    const bool planar = Planar(v.geometryVersion);
    std::vector<float> coordinates, ids, stress, displacement;
    for (uint32_t i = 0; i < v.nodes; ++i) {
        coordinates.insert(coordinates.end(), {float(i & 1), float((i >> 1) & 1), float(i >> 2)});
        ids.push_back(float(100 + i));
        stress.push_back(10.0f + 0.5f * float(i));
        for (int axis = 0; axis < 3; ++axis) displacement.push_back(0.25f * float(i + axis));
    }
    // Tails: element counts that are no multiple of the components.
    coordinates.push_back(7.0f);
    displacement.insert(displacement.end(), {1.0f, 2.0f});
    std::vector<uint32_t> connectivity, polylength;
    for (uint32_t first = 1; first + 3 <= v.nodes; first += 4) {
        polylength.push_back(4);
        for (uint32_t k = 0; k < 4; ++k) connectivity.push_back(first + k);
    }
    auto item = [&](std::string name, uint32_t kind, const std::vector<uint32_t>& elements,
                    uint8_t components, std::vector<Attr> attributes = {}) {
        GeomItem it = model.HeavyItem(std::move(name), kind, elements, components, planar);
        if (it.position != 0) starts.push_back(it.position);
        it.attributes = std::move(attributes);
        return it;
    };
    return {item("Coordinates", 0, FloatBits(coordinates), 3),
            item("Node Ids", 12, FloatBits(ids), 1),
            item("Polylength", 5, polylength, 1),
            item("Connectivity", 4, connectivity, 1),
            item("Element Ids", 0, FloatBits(std::vector<float>(polylength.size(), 3.0f)), 1),
            item("Stress\x1EStep 1", 12, FloatBits(stress), 1,
                 {Attr::Float("Time", 0.5f), Attr::Text("Title", "Load case"),
                  Attr::Text("DataType", "Scalar"), Attr::Text("Link.Target", "x")}),
            item("Displacement\x1EStep 1", 13, FloatBits(displacement), 3,
                 {Attr::Float("Frequency", 12.5f), Attr::Text("Category", "Vibration"),
                  Attr::Double("Mode", 2.0), Attr::Unsigned("LoadCase", 3)})};
}

Bytes BuildModel(const Variant& v) {
    ModelBuilder model;
    model.wideOffsets = v.fileVersion != "0.6" && v.fileVersion != "0.1a";
    model.globalInformation.Raw(GlobalInformation(
        {{v.translationVersion,
          {"Translator", "3.0", "0.7", "2014-02-11", "", "designer", "first import"}},
         {"0.9", {"Translator", "3.1", "0.7", "2014-03-01", "extra", "analyst", "again"}}},
        v.surplus));

    std::vector<size_t> heavyStarts;
    auto at = [&](TreeRecord r) {
        if (v.lightOffsets) r.lightOffset = model.lightData.Size();
        return r;
    };
    GroupData root;
    root.attributes = {
        Attr::Text("Model File", "/models/wheel.odb"), Attr::Unsigned("Model File Size", 5000000),
        Attr::Text("Results File", "/runs/wheel.rst"), Attr::Unsigned("Results File Size", 1250000),
        Attr::Unsigned("Number of Nodes in the Model", v.nodes)};
    model.Group(at({1, 0, 0, 0, 2, 2, "wheel", "Group", v.groupVersion}), root);
    model.Group(at({2, 1, 0, 0, 3, 6, "Static", "Group", v.groupVersion}));
    model.Group(at({3, 2, 0, 6, 4, 4, "Geometry", "Group", v.groupVersion}));
    model.Shape(at({4, 3, 0, 0, 5, 5, "Rim", "Shape", v.shapeVersion}), v.materialVersion);
    model.Geometry(at({5, 4, 0, 0, 0, 0, "Rim", "Geometry", v.geometryVersion}),
                   PartItems(model, v, heavyStarts));
    model.Group(at({6, 2, 3, 0, 7, 7, "Cut-Sections", "Group", v.groupVersion}));
    model.Shape(at({7, 6, 0, 0, 8, 8, "Cut 1", "Shape", v.shapeVersion}), v.materialVersion);
    std::vector<GeomItem> cut;
    if (v.links && Planar(v.geometryVersion)) {
        cut = {LinkItem("Node Ids", 12, 5, 1), LinkItem("Stress\x1EStep 1", 12, 5, 5)};
    } else {
        cut = {model.HeavyItem("Node Ids", 12, FloatBits({1, 2, 3}), 1, Planar(v.geometryVersion))};
    }
    model.Geometry(at({8, 7, 0, 0, 0, 0, "Cut 1", "Geometry", v.geometryVersion}), cut);

    ZolFileBuilder file;
    file.Version(v.fileVersion);
    const std::pair<const char*, const BlockWriter*> blocks[] = {
        {"Global Information", &model.globalInformation},
        {"Light Data", &model.lightData},
        {"Heavy Data", &model.heavyData},
        {"Attributes", &model.attributes},
        {"Resources", &model.resources},
    };
    const Bytes tree = model.TreeBlock();
    AddPieces(file, "Zol Tree", tree, v.compressed, 0);
    for (size_t i = 0; i < std::size(blocks); ++i) {
        if (v.continuation && i == 1) file.StartContinuation(v.continuationCompressed, "Seed");
        const Bytes& contents = blocks[i].second->Data();
        if (contents.empty()) continue;
        const bool cut = v.heavyPieces && std::string(blocks[i].first) == "Heavy Data";
        AddPiecesCutAt(file, blocks[i].first, contents, v.compressed,
                       cut ? heavyStarts : std::vector<size_t>{});
    }
    return file.Build();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " <corpus directory>\n";
        return 1;
    }
    const std::string directory = argv[1];
    std::vector<Variant> variants(17);
    variants[0] = {.fileName = "v11-plain"};
    variants[1] = {.fileName = "v11-compressed", .compressed = true};
    variants[2] = {.fileName = "v11-continuation-packed",
                   .compressed = true,
                   .continuation = true,
                   .continuationCompressed = true,
                   .heavyPieces = true};
    variants[3] = {.fileName = "v11-continuation-plain",
                   .continuation = true,
                   .heavyPieces = true,
                   .lightOffsets = true};
    variants[4] = {.fileName = "v07-plain", .fileVersion = "0.7"};
    variants[5] = {.fileName = "v07-geometry06",
                   .fileVersion = "0.7",
                   .geometryVersion = "0.6",
                   .compressed = true};
    variants[6] = {.fileName = "v06-offsets",
                   .fileVersion = "0.6",
                   .geometryVersion = "0.6",
                   .lightOffsets = true};
    variants[7] = {.fileName = "v06-continuation",
                   .fileVersion = "0.6",
                   .geometryVersion = "0.6",
                   .compressed = true,
                   .continuation = true};
    variants[8] = {.fileName = "v01a-legacy03",
                   .fileVersion = "0.1a",
                   .groupVersion = "0.1",
                   .materialVersion = "0.1",
                   .geometryVersion = "0.3"};
    variants[9] = {.fileName = "v01a-legacy04",
                   .fileVersion = "0.1a",
                   .geometryVersion = "0.4",
                   .compressed = true};
    variants[10] = {.fileName = "v11-legacy02",
                    .groupVersion = "0.2",
                    .materialVersion = "0.2",
                    .geometryVersion = "0.2"};
    variants[11] = {.fileName = "v11-legacy01",
                    .groupVersion = "0.3",
                    .geometryVersion = "0.1",
                    .lightOffsets = true};
    variants[12] = {.fileName = "v11-legacy00a", .shapeVersion = "0.1", .geometryVersion = "0.0a"};
    variants[13] = {.fileName = "v06-geometry05", .fileVersion = "0.6", .geometryVersion = "0.5"};
    variants[14] = {.fileName = "v11-surplus",
                    .materialVersion = "0.9",
                    .surplus = 7,
                    .translationVersion = "0.10"};
    variants[15] = {.fileName = "v11-large", .compressed = true, .heavyPieces = true, .nodes = 400};
    variants[16] = {.fileName = "v11-nolinks", .links = false};
    for (const Variant& v : variants)
        WriteFile(directory + "/" + v.fileName + ".zol", BuildModel(v));

    // Small odd files: a header alone, the smallest tree, and unknown class words.
    ZolFileBuilder empty;
    empty.WriteTo(directory + "/header-only.zol");
    ModelBuilder smallest;
    smallest.Group({1, 0, 0, 0, 0, 0, "Model", "Group", "0.1"});
    WriteFile(directory + "/smallest.zol", smallest.Build("1.1"));
    ModelBuilder odd;
    odd.Group({1, 0, 0, 0, 3, 9, "Model", "Group", "0.1"});
    odd.tree.push_back({3, 1, 0, 9, 0, 0, "Thing", "Node", "0.1"});
    odd.tree.push_back({9, 1, 3, 0, 0, 0, "Paint", "Material", "0.1"});
    odd.Geometry({12, 9, 0, 0, 0, 0, "Loose", "Geometry", "0.7"}, {});
    WriteFile(directory + "/odd-classes.zol", odd.Build("0.7"));
    return 0;
}
