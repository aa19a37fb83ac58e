// Writes the small bundled example model: history, root attributes, two analyses with
// parts, a cut-section sharing a part's arrays by links, and a transient result.
#include <cmath>
#include <iostream>

#include "ZolFileBuilder.h"

using namespace ZolTest;

namespace {

constexpr uint32_t kNodes = 8;

GeomItem Floats(ModelBuilder& model, std::string name, uint32_t kind,
                const std::vector<float>& values, uint8_t components,
                std::vector<Attr> attributes = {}) {
    GeomItem item = model.HeavyItem(std::move(name), kind, FloatBits(values), components);
    item.attributes = std::move(attributes);
    return item;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " <output.zol>\n";
        return 1;
    }
    ModelBuilder model;
    model.globalInformation.Raw(GlobalInformation({
        {"0.7", {"Translator", "3.0", "0.7", "2014-02-11", "", "designer", "first import"}},
        {"0.7", {"Translator", "3.1", "0.7", "2014-03-01", "", "analyst", ""}},
    }));

    GroupData root;
    root.attributes = {Attr::Text("Model File", "C:\\models\\wheel.odb"),
                       Attr::Unsigned("Model File Size", 5000000),
                       Attr::Text("Results File", "/runs/wheel/d3plot01"),
                       Attr::Unsigned("Results File Size", 12500000),
                       Attr::Unsigned("Number of Nodes in the Model", kNodes),
                       Attr::Unsigned("Number of Elements in the Model", 1)};
    model.Group({1, 0, 0, 0, 2, 2, "wheel", "Group", "0.4"}, root);
    model.Group({2, 1, 0, 0, 3, 6, "Static", "Group", "0.4"});
    model.Group({3, 2, 0, 6, 4, 4, "Geometry", "Group", "0.4"});
    model.Shape({4, 3, 0, 0, 5, 5, "Wheel", "Shape", "0.2"});

    std::vector<float> coordinates, ids, stress1, stress2, displacement;
    for (uint32_t i = 0; i < kNodes; ++i) {
        coordinates.insert(coordinates.end(), {float(i & 1), float((i >> 1) & 1), float(i >> 2)});
        ids.push_back(float(101 + i));
        stress1.push_back(100.0f + 12.5f * float(i));
        stress2.push_back(180.0f + 20.25f * float(i));
        for (int axis = 0; axis < 3; ++axis) displacement.push_back(0.001f * float(i + axis));
    }
    const std::string step1 = std::string("Step 1") + '\x1E' + "Increment 10";
    model.Geometry({5, 4, 0, 0, 0, 0, "Wheel", "Geometry", "0.7"},
                   {Floats(model, "Coordinates", 0, coordinates, 3),
                    Floats(model, "Node Ids", 12, ids, 1), model.HeavyItem("Polylength", 5, {8}, 1),
                    model.HeavyItem("Connectivity", 4, {101, 102, 104, 103, 105, 106, 108, 107}, 1),
                    Floats(model, "Stress\x1E" + step1, 12, stress1, 1,
                           {Attr::Float("Time", 0.5f), Attr::Text("Title", "Wheel load case"),
                            Attr::Text("DataType", "Scalar")}),
                    Floats(model,
                           "Stress\x1E"
                           "Step 2",
                           12, stress2, 1, {Attr::Float("Time", 1.0f)}),
                    Floats(model,
                           "Displacement\x1E"
                           "Step 2",
                           13, displacement, 3, {Attr::Float("Time", 1.0f)})});

    model.Group({6, 2, 3, 0, 7, 7, "Cut-Sections", "Group", "0.4"});
    model.Shape({7, 6, 0, 0, 8, 8, "Cut 1", "Shape", "0.2"});
    GeomItem idsLink{
        .name = "Node Ids", .kind = 12, .link = true, .linkedGeometryId = 5, .linkedDataIndex = 1};
    GeomItem stressLink{.name =
                            "Stress\x1E"
                            "Step 2",
                        .kind = 12,
                        .link = true,
                        .linkedGeometryId = 5,
                        .linkedDataIndex = 5};
    model.Geometry({8, 7, 0, 0, 0, 0, "Cut 1", "Geometry", "0.7"}, {idsLink, stressLink});

    model.Build("1.1");
    ZolFileBuilder file;
    file.Version("1.1");
    model.EmitTo(file, true);
    file.WriteTo(argv[1]);
    return 0;
}
