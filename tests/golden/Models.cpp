// The named models of the end-to-end cases. A case's `model <name> <file>` line writes one of
// these; each builder says what it is there to show.
#include "Models.h"

#include <map>
#include <stdexcept>

namespace ZolTest {

namespace {

GeomItem Floats(ModelBuilder& model, std::string name, uint32_t kind,
                const std::vector<float>& values, uint8_t components = 1) {
    return model.HeavyItem(std::move(name), kind, FloatBits(values), components);
}

// One node (id 7 at 1, 2, 3), one element on it, and "Stress" 0.5 without instance.
std::vector<GeomItem> OneNodeMesh(ModelBuilder& model, bool stress = true) {
    std::vector<GeomItem> items{
        Floats(model, "Coordinates", 0, {1, 2, 3}, 3), Floats(model, "Node Ids", 12, {7}),
        model.HeavyItem("Polylength", 5, {1}), model.HeavyItem("Connectivity", 4, {7})};
    if (stress) items.push_back(Floats(model, "Stress", 12, {0.5f}));
    return items;
}

using Part = std::pair<std::string, std::vector<GeomItem>>;

// Groups "Model" > "Static" > "Geometry" over one shape per part, each with a Geometry named
// `prefix` + its name that holds its items. Shape i has id 4 + 2i, its Geometry 5 + 2i.
Bytes Shapes(ModelBuilder& model, const std::vector<Part>& parts, const std::string& prefix) {
    const uint32_t last = 4 + 2 * uint32_t(parts.size() - 1);
    model.Group({1, 0, 0, 0, 2, 2, "Model", "Group", "0.1"});
    model.Group({2, 1, 0, 0, 3, 3, "Static", "Group", "0.1"});
    model.Group({3, 2, 0, 0, 4, last, "Geometry", "Group", "0.1"});
    for (uint32_t id = 4; id <= last; id += 2) {
        const auto& [name, items] = parts[(id - 4) / 2];
        model.Shape({id, 3, id == 4 ? 0 : id - 2, id == last ? 0 : id + 2, id + 1, id + 1, name,
                     "Shape", "0.1"});
        model.Geometry({id + 1, id, 0, 0, 0, 0, prefix + name, "Geometry", "0.7"}, items);
    }
    return model.Build();
}

Bytes OneShape(ModelBuilder& model, std::vector<GeomItem> items) {
    return Shapes(model, {{"Wheel", items}}, "");
}

Bytes BadMagic() {
    Bytes bytes = ZolFileBuilder().Build();
    bytes[7] = 0;  // the last byte of the magic
    return bytes;
}

// Three translations (the first and the last are reported), root attributes in an order
// unlike the report's, texts that need escaping, one part, two instances with times; the file
// is padded to 5,000,000 bytes for its size line.
Bytes SmallReport() {
    ModelBuilder model;
    model.globalInformation.Raw(GlobalInformation(
        {{"0.7", {"Importer", "2.0", "0.6", "2013-01-01", "x", "first", "initial"}},
         {"0.7", {"Skipped", "2.5", "0.6", "2013-06-01", "", "middle", "between"}},
         {"0.7", {"Translator", "3.1", "0.7", "2014-03-01", "", "analyst", ""}}}));
    GroupData root;
    root.attributes = {Attr::Text("Results File", "/runs/job & \"a\" <b>.rst"),
                       Attr::Text("Model File", "wheel.odb"),
                       Attr::Unsigned("Model File Size", 5000000),
                       Attr::Unsigned("Number of Nodes in the Model", 1200),
                       Attr::Double("Results File Size", 1.5e7),
                       Attr::Text("Ignored", "x"),
                       Attr::Unsigned("Number of Elements in the Model", 900)};
    model.Group({1, 0, 0, 0, 2, 2, "wheel", "Group", "0.4"}, root);
    model.Group({2, 1, 0, 0, 3, 3, "Geometry", "Group", "0.4"});
    model.Shape({3, 2, 0, 0, 4, 4, "Wheel", "Shape", "0.2"});
    auto step = [](std::string name, float time) {
        return GeomItem{
            .name = std::move(name), .kind = 12, .attributes = {Attr::Float("Time", time)}};
    };
    model.Geometry({4, 3, 0, 0, 0, 0, "Wheel", "Geometry", "0.7"},
                   {step("Stress\x1EStep 1", 0.5f), step("Stress\x1EStep 2", 1.0f)});
    Bytes bytes = model.Build();
    bytes.resize(5000000);
    return bytes;
}

// Which items count as results: kind above 11 as a signed number, and neither "Node Ids" nor
// "Element IDs"; a link adds its names too. A lone translation is only the latest.
Bytes ResultKinds() {
    ModelBuilder model;
    model.globalInformation.Raw(GlobalInformation({{"0.7", {"Solver", "1.0", "0.7"}}}));
    auto named = [](std::string name, uint32_t kind, std::vector<Attr> attributes = {}) {
        return GeomItem{.name = std::move(name), .kind = kind, .attributes = std::move(attributes)};
    };
    return OneShape(
        model, {named("Eleven", 11), named("Twelve", 12), named("Minus", 0xFFFFFFFF),
                named("Low bits 11", 0x10B), named("Low bits 12", 0x10C), named("Element IDs", 12),
                named("Element Ids", 13), named("Node Ids", 12),
                named("Stress\x1EStep 1\x1EInc 2", 12,
                      {Attr::Float("Time", 2.0f), Attr::Text("Title", "Load")}),
                GeomItem{.name = "Linked\x1EStep 3",
                         .kind = 12,
                         .link = true,
                         .linkedGeometryId = 5,
                         .linkedDataIndex = 1}});
}

// Two nodes in byte planes, float texts of every form, no "Attributes" block.
Bytes SmallestDump() {
    ModelBuilder model;
    for (const Bytes& run :
         {Planes(FloatBits({1.5f, -2.0f})), Planes(FloatBits({0.0f, 0.25f})),
          Planes(FloatBits({-2.25f, 1250000.0f})), Planes(FloatBits({1.0f, 2.0f})), Planes({2}),
          Planes({1, 2}), Planes(FloatBits({0.1f, 123456789.0f}))}) {
        model.AddHeavy(run);
    }
    auto item = [](std::string name, uint32_t kind, uint32_t size, uint8_t components,
                   uint64_t position) {
        return GeomItem{.name = std::move(name),
                        .kind = kind,
                        .byteSize = size,
                        .components = components,
                        .position = position};
    };
    OneShape(model, {item("Coordinates", 0, 24, 3, 0), item("Node Ids", 12, 8, 1, 24),
                     item("Polylength", 5, 4, 1, 32), item("Connectivity", 4, 8, 1, 36),
                     item("Stress\x1EStep", 12, 8, 1, 44)});
    model.attributes = BlockWriter();
    return model.Build();
}

// Two instances of one result: one line under "Results : ", a section for each.
Bytes TwoInstances() {
    ModelBuilder model;
    std::vector<GeomItem> items = OneNodeMesh(model, false);
    items.push_back(Floats(model, "Stress\x1EStep 1", 12, {0.5f}));
    items.push_back(Floats(model, "Stress\x1EStep 2", 12, {1.5f}));
    return OneShape(model, items);
}

// Two nodes: a result of two values per node gives two columns, one shorter than the node
// count gives none.
Bytes TwoNodes() {
    ModelBuilder m;
    return OneShape(
        m, {Floats(m, "Coordinates", 0, {1, 2, 3, 4, 5, 6}, 3), Floats(m, "Node Ids", 12, {7, 8}),
            m.HeavyItem("Polylength", 5, {2}), m.HeavyItem("Connectivity", 4, {7, 8}),
            Floats(m, "Short", 12, {9.5f}), Floats(m, "Pair", 12, {1, 2, 3, 4, 5})});
}

// Without node ids: no node lines, no results.
Bytes NoNodeIds() {
    ModelBuilder model;
    std::vector<GeomItem> items = OneNodeMesh(model);
    items.erase(items.begin() + 1);
    return OneShape(model, items);
}

// Two parts: the later "Node Ids" stands first and gives the node count, the mesh is the
// later part's, and arrays shorter than the node count give no column.
Bytes TwoParts() {
    ModelBuilder model;
    std::vector<GeomItem> first = OneNodeMesh(model);
    std::vector<GeomItem> second{
        Floats(model, "Coordinates", 0, {4, 5, 6, 7, 8, 9}, 3),
        Floats(model, "Node Ids", 12, {8, 9}), model.HeavyItem("Polylength", 5, {2}),
        model.HeavyItem("Connectivity", 4, {8, 9}), Floats(model, "Stress", 12, {1, 2})};
    return Shapes(model, {{"A", first}, {"B", second}}, "Geo");
}

// Shapes A, B and C; the arrays are B's, A and C link to them. A's link points forward and
// adds nothing; C's adds its Geometry's name.
Bytes Links() {
    ModelBuilder model;
    std::vector<GeomItem> items = OneNodeMesh(model);
    GeomItem link{.name = "Coordinates", .link = true, .linkedGeometryId = 7};
    GeomItem stress{
        .name = "Stress", .kind = 12, .link = true, .linkedGeometryId = 7, .linkedDataIndex = 4};
    return Shapes(model, {{"A", {link}}, {"B", items}, {"C", {link, stress}}}, "Geo");
}

// A payload past the end of "Heavy Data" between two good ones.
Bytes BrokenPayload() {
    ModelBuilder model;
    std::vector<GeomItem> items = OneNodeMesh(model);
    GeomItem broken = Floats(model, "Broken", 12, {1.0f});
    broken.position = 1000;
    items.push_back(broken);
    items.push_back(Floats(model, "Later", 12, {2.0f}));
    return OneShape(model, items);
}

// A shape without a child, then a cut-section group.
Bytes LonelyShape() {
    ModelBuilder model;
    model.Group({1, 0, 0, 0, 2, 2, "Model", "Group", "0.1"});
    model.Group({2, 1, 0, 0, 3, 4, "Geometry", "Group", "0.1"});
    model.Shape({3, 2, 0, 4, 0, 0, "Lonely", "Shape", "0.1"});
    model.Group({4, 2, 3, 0, 5, 5, "Cut-Sections", "Group", "0.1"});
    model.Shape({5, 4, 0, 0, 0, 0, "Cut", "Shape", "0.1"});
    return model.Build();
}

// A shape in a subgroup of "Geometry", with or without a group above "Geometry".
Bytes Subgroup(bool above) {
    ModelBuilder model;
    std::vector<GeomItem> items = OneNodeMesh(model, false);
    const uint32_t g = above ? 3 : 1;  // the id of "Geometry"
    if (above) {
        model.Group({1, 0, 0, 0, 2, 2, "Model", "Group", "0.1"});
        model.Group({2, 1, 0, 0, 3, 3, "Static", "Group", "0.1"});
    }
    model.Group({g, g - 1, 0, 0, g + 1, g + 1, "Geometry", "Group", "0.1"});
    model.Group({g + 1, g, 0, 0, g + 2, g + 2, "Body", "Group", "0.1"});
    model.Shape({g + 2, g + 1, 0, 0, g + 3, g + 3, "Wheel", "Shape", "0.1"});
    model.Geometry({g + 3, g + 2, 0, 0, 0, 0, "Wheel", "Geometry", "0.7"}, items);
    return model.Build();
}

}  // namespace

Bytes NamedModel(const std::string& name) {
    static const std::map<std::string, Bytes (*)()> builders = {
        {"empty-1.1", [] { return ZolFileBuilder().Build(); }},
        {"empty-1.2", [] { return ZolFileBuilder().Version("1.2").Build(); }},
        {"empty-0.6", [] { return ZolFileBuilder().Version("0.6").Build(); }},
        {"empty-0.1a", [] { return ZolFileBuilder().Version("0.1a").Build(); }},
        {"bad-magic", BadMagic},
        {"small-report", SmallReport},
        {"result-kinds", ResultKinds},
        {"smallest-dump", SmallestDump},
        {"two-instances", TwoInstances},
        {"two-nodes", TwoNodes},
        {"no-node-ids", NoNodeIds},
        {"two-parts", TwoParts},
        {"links", Links},
        {"broken-payload", BrokenPayload},
        {"lonely-shape", LonelyShape},
        {"subgroup", [] { return Subgroup(true); }},
        {"subgroup-at-top", [] { return Subgroup(false); }},
    };
    auto found = builders.find(name);
    if (found == builders.end()) throw std::invalid_argument("no model named " + name);
    return found->second();
}

}  // namespace ZolTest
