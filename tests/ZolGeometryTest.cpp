// Geometry records, the arrays' loaders and the links between arrays.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/DataLoader.h"
#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Group.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlZol::AttributeValue;
using MrlZol::DataLoader;
using MrlZol::Geometry;
using MrlZol::GeometryData;
using MrlZol::NumericArray;
using MrlZol::Tree;

const Fail kBadPosition{1, "Invalid block position"};

GeomItem Link(std::string name, uint32_t geometryId, uint32_t index) {
    return {.name = std::move(name),
            .kind = 12,
            .link = true,
            .linkedGeometryId = geometryId,
            .linkedDataIndex = index};
}

bool HeavyDataTouched(Tree& tree) {
    for (const MrlHbf::IndexEntry& entry : tree.file.GetIndex().GetEntries()) {
        if (entry.name == "Heavy Data" && entry.loaded) return true;
    }
    return false;
}

template <class T = uint32_t>
std::vector<T> Values(const GeometryData& item) {
    std::vector<T> values;
    DataLoader* loader = item.array.GetLoader();
    if (loader == nullptr) {
        ADD_FAILURE() << item.name << " has no loader";
        return values;
    }
    loader->LoadTo(values);
    return values;
}

using U = std::vector<uint32_t>;

Geometry* LoadMesh(Tree& tree, const std::string& path, uint32_t id = 1) {
    EXPECT_NO_THROW(LoadTree(tree, path));
    Geometry* mesh = tree.GetEntries().count(id) ? PayloadOf<Geometry>(tree, id) : nullptr;
    EXPECT_NE(mesh, nullptr);
    return mesh;
}

TEST(ZolGeometry, RecordLayoutsPerVersion) {
    TempDir dir;
    const std::vector<Attr> attributes = {
        Attr::Text("Category", "Vibration"), Attr::Unsigned("DataType", 1),
        Attr::Unsigned("Link.Target", 2), Attr::Float("Keep", 1.5f)};
    for (std::string v : {"0.0a", "0.1", "0.2", "0.3", "0.4", "0.3a", "0.5", "0.6", "0.7"}) {
        SCOPED_TRACE(v);
        const bool linked = v == "0.5" || v == "0.6" || v == "0.7";
        const bool bare = v == "0.0a" || v == "0.1";
        const bool hasMap = linked || (!bare && v != "0.2" && v != "0.3");

        ModelBuilder model;
        model.Group(Record(1, 0, "Model", "Group", "0.1"));
        // Older records store plain words, newer ones byte planes.
        GeomItem values = model.HeavyItem("Values\x1EInst", 0x1FF, {1, 2, 3, 4, 5, 6}, 3, linked);
        values.flag1 = 10, values.flag2 = 11, values.value1 = 10.5f, values.value2 = 10.25f;
        values.flag3 = 12, values.reserved = 0xEE, values.attributes = attributes;
        GeomItem other = model.HeavyItem("Other", 0xFFFFFFFF, {9, 8}, 1, linked);
        std::vector<GeomItem> items{values, other};
        if (linked) {
            items.push_back(Link("Linked", 2, 0));
            items.back().kind = 0x104;
            items.back().attributes = attributes;
        }
        model.Geometry(Record(2, 1, "Mesh", "Geometry", v), items);
        // A group behind it finds its values only if the geometry took exactly its own bytes.
        GroupData sentinel;
        sentinel.translation[0] = 77;
        sentinel.attributes = {Attr::Text("Sentinel", "yes")};
        model.Group(Record(3, 1, "Sentinel", "Group", "0.4"), sentinel);

        Tree tree;
        Geometry* mesh = LoadMesh(tree, dir.Write(model), 2);
        ASSERT_NE(mesh, nullptr);
        ASSERT_NE(PayloadOf<MrlZol::Group>(tree, 3), nullptr);
        EXPECT_EQ(PayloadOf<MrlZol::Group>(tree, 3)->translation[0], 77.0f);
        EXPECT_EQ(PayloadOf<MrlZol::Group>(tree, 3)->attributes.count("Sentinel"), 1u);
        EXPECT_EQ(Unread(tree, "Light Data"), 0u);
        EXPECT_EQ(Unread(tree, "Attributes"), 0u);
        EXPECT_EQ(mesh->name, "Mesh");
        ASSERT_EQ(mesh->data.size(), items.size());

        const GeometryData& first = mesh->data[0];
        EXPECT_EQ(first.name, values.name);
        EXPECT_EQ(first.kind, linked ? 255 : 511);  // the newer records keep 8 bits
        EXPECT_EQ(mesh->data[1].kind, -1);
        EXPECT_FALSE(first.linked);
        EXPECT_EQ(first.array.byteSize, 24u);
        EXPECT_EQ(first.array.GetCount(), 6u);
        EXPECT_EQ(first.array.components, 3);
        EXPECT_EQ(first.array.flag1, bare ? 0 : 10);
        EXPECT_EQ(first.array.flag2, bare ? 0 : 11);
        EXPECT_EQ(first.array.value1, bare ? 0.0f : 10.5f);
        EXPECT_EQ(first.array.value2, bare ? 0.0f : 10.25f);
        EXPECT_EQ(first.array.flag3, bare ? 0 : 12);
        EXPECT_EQ(first.isVibration, hasMap);
        EXPECT_EQ(first.attributes.size(), hasMap ? 2u : 0u);
        EXPECT_EQ(first.attributes.count("Keep"), hasMap ? 1u : 0u);
        if (linked) {
            const GeometryData& link = mesh->data[2];
            EXPECT_TRUE(link.linked);
            EXPECT_EQ(link.kind, 4);
            EXPECT_EQ(link.linkedGeometryId, 2u);
            EXPECT_EQ(link.linkedDataIndex, 0u);
            EXPECT_TRUE(link.attributes.empty());
            EXPECT_TRUE(link.isVibration);
            EXPECT_EQ(link.array.byteSize, 24u);  // from its target
        }
        if (v == "0.5") continue;

        using Positions = std::map<std::string, uint64_t>;
        const Positions positions{{first.name, values.position}, {"Other", other.position}};
        EXPECT_EQ(mesh->positions, linked ? positions : Positions{});
        // Newer loaders are attached after the walk and read nothing while loading.
        EXPECT_EQ(HeavyDataTouched(tree), !linked);
        ASSERT_NE(first.array.GetLoader(), nullptr);
        EXPECT_EQ(first.array.GetLoader()->isPlanar, linked ? 1 : 0);
        EXPECT_EQ(first.array.GetLoader()->position, values.position);
        if (linked) {
            EXPECT_EQ(mesh->data[2].array.GetLoader(), first.array.GetLoader());
        }
        EXPECT_EQ(Values(first), (U{1, 2, 3, 4, 5, 6}));
        EXPECT_EQ(Values(mesh->data[1]), (U{9, 8}));
    }

    // Older records position "Heavy Data" while loading, so a bad position fails the load.
    ModelBuilder model;
    GeomItem far = model.HeavyItem("Far", 12, {1});
    far.position = 5;
    model.Geometry(Record(1, 0, "Mesh", "Geometry", "0.3"), {far});
    Tree tree;
    EXPECT_EQ(Failure([&] { LoadTree(tree, dir.Write(model)); }), kBadPosition);
}

TEST(ZolGeometry, PositionsAndLoaders) {
    TempDir dir;
    ModelBuilder model;
    GeomItem result = model.HeavyItem("Dup", 12, {1, 2});
    GeomItem connectivity = model.HeavyItem("Dup", 4, {3, 4, 5}, 3);
    GeomItem far = model.HeavyItem("Far", 12, {6});
    far.position = 0x100000004ull;  // only a 64-bit field holds it
    model.Geometry(Record(1, 0, "Mesh", "Geometry", "0.7"), {result, connectivity, far});
    Tree tree;
    Geometry* mesh = LoadMesh(tree, dir.Write(model));
    ASSERT_NE(mesh, nullptr);
    ASSERT_EQ(mesh->data.size(), 3u);
    EXPECT_EQ(mesh->positions.at("Far"), 0x100000004ull);
    // Items named alike share the later position, each with its own size and layout.
    for (int i = 0; i < 2; ++i) {
        DataLoader* loader = mesh->data[i].array.GetLoader();
        ASSERT_NE(loader, nullptr);
        EXPECT_EQ(loader->position, connectivity.position);
        EXPECT_EQ(loader->byteSize, i == 0 ? 8u : 12u);
        EXPECT_EQ(loader->components, i == 0 ? 1 : 3);
        EXPECT_EQ(loader->blockName, "Heavy Data");
    }
    std::vector<float> target;
    EXPECT_EQ(Failure([&] { mesh->data[2].array.GetLoader()->LoadTo(target); }), kBadPosition);

    // An item that the hand-over of positions doesn't know.
    MrlHbf::HbFile unopened;
    Geometry lone("Lone");
    lone.AddData("Known", 12, NumericArray(), {});
    lone.AddData("Unknown", 5, NumericArray(), {});
    lone.positions["Known"] = 0;
    const Fail notFound{5, "Element Not Found"};
    EXPECT_EQ(Failure([&] { lone.LoadConnectivityBlocks(unopened, "Heavy Data"); }), notFound);
    std::swap(lone.data[0].name, lone.data[1].name);
    EXPECT_EQ(Failure([&] { lone.LoadOtherBlocks(unopened, "Heavy Data"); }), notFound);
}

TEST(ZolGeometry, SetDataAttributesFilters) {
    auto text = AttributeValue::Text;
    MrlZol::AttributeMap given = {{"Category", text("Vibration")},
                                  {"Units", AttributeValue::Float(2)}};
    for (const char* key : {"Complex", "Contents", "DataSource", "DataType", "Structure", "Link.",
                            "Link.Geometry", "Link", "LinkX", "Link_Y", "link.lower", "complex"}) {
        given[key] = text("x");
    }
    Geometry g("G");
    GeometryData item;
    g.SetDataAttributes(item, given);
    EXPECT_TRUE(item.isVibration);
    std::vector<std::string> keys;
    for (const auto& [key, value] : item.attributes) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"Category", "Link", "LinkX", "Link_Y", "Units",
                                              "complex", "link.lower"}));
    for (const AttributeValue& category :
         {text("vibration"), text("Vibration "), AttributeValue::Unsigned(0)}) {
        g.SetDataAttributes(item, {{"Category", category}});
        EXPECT_FALSE(item.isVibration);
    }
}

TEST(ZolDataLoader, AttachOnceAndGuardTheElementForm) {
    MrlHbf::HbFile file;
    NumericArray array;
    array.AttachLoader(file, "Heavy Data", 8, true);
    DataLoader* loader = array.GetLoader();
    ASSERT_NE(loader, nullptr);
    array.AttachLoader(file, "Other", 16, false);
    EXPECT_EQ(array.GetLoader(), loader);
    EXPECT_EQ(loader->position, 8u);
    // Both throws come before any read.
    std::vector<float> floats;
    std::vector<uint32_t> words;
    DataLoader asFloat(file, "Heavy Data", 0, 4, 1, true, MrlZol::FloatElementTag);
    DataLoader asUnsigned(file, "Heavy Data", 0, 4, 1, true, MrlZol::UnsignedElementTag);
    EXPECT_EQ(Failure([&] { asFloat.LoadTo(words); }), (Fail{12, "Bad Casting"}));
    EXPECT_EQ(Failure([&] { asUnsigned.LoadTo(floats); }), (Fail{12, "Bad Casting"}));
}

TEST(ZolDataLoader, DecodesPayloads) {
    TempDir dir;
    ModelBuilder model;
    // Four elements whose stored bytes are 0x01 to 0x10: byte planes of one run.
    std::vector<GeomItem> items{{.name = "Planes", .kind = 12, .byteSize = 16}};
    items[0].position = model.AddHeavy({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    auto sequence = [](size_t n, uint32_t seed) {
        U v(n);
        for (size_t i = 0; i < n; ++i) v[i] = seed * 0x01010101u + static_cast<uint32_t>(i * 7919);
        return v;
    };
    // Element counts and components: tails behind the runs, plain words for 0 components,
    // fewer elements than components, and sizes past a 4 KiB stretch.
    struct Case {
        size_t n;
        uint8_t k;
        uint32_t kind;
    };
    const Case cases[] = {{6, 3, 12}, {7, 3, 4},  {2, 3, 12},    {5, 0, 9},
                          {37, 1, 5}, {1, 1, 12}, {2061, 2, 12}, {3000, 1, 4}};
    for (const Case& c : cases) {
        items.push_back(model.HeavyItem("N" + std::to_string(c.n) + "k" + std::to_string(c.k),
                                        c.kind, sequence(c.n, c.k + 1), c.k));
    }
    items.push_back(model.HeavyItem("Floats", 12, FloatBits({1.5f, -2.25f, 3e7f})));
    items.push_back({.name = "Empty", .kind = 12});
    model.Geometry(Record(1, 0, "Mesh", "Geometry", "0.7"), items);

    Tree tree;
    Geometry* mesh = LoadMesh(tree, dir.Write(model));
    ASSERT_NE(mesh, nullptr);
    ASSERT_EQ(mesh->data.size(), items.size());
    EXPECT_EQ(Values(mesh->data[0]), (U{0x0D090501, 0x0E0A0602, 0x0F0B0703, 0x100C0804}));
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(mesh->data[i + 1].name);
        U want = sequence(cases[i].n, cases[i].k + 1);
        EXPECT_EQ(Values(mesh->data[i + 1]), want);
        EXPECT_EQ(Values(mesh->data[i + 1]), want);  // each read starts afresh
    }
    EXPECT_EQ(Values<float>(mesh->data[std::size(cases) + 1]),
              (std::vector<float>{1.5f, -2.25f, 3e7f}));
    const GeometryData& empty = mesh->data.back();
    EXPECT_EQ(empty.array.hasData, 0);
    std::vector<float> untouched = {7, 7};
    ASSERT_NE(empty.array.GetLoader(), nullptr);
    EXPECT_NO_THROW(empty.array.GetLoader()->LoadTo(untouched));
    EXPECT_EQ(untouched, (std::vector<float>{7, 7}));
}

TEST(ZolDataLoader, PayloadsInPhysicalBlocks) {
    TempDir dir;
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed);
        ModelBuilder model;
        GeomItem a = model.HeavyItem("A", 12, {1, 2, 3, 4});    // bytes 0 to 16
        GeomItem b = model.HeavyItem("B", 12, {5, 6, 7});       // 16 to 28
        GeomItem c = model.HeavyItem("C", 12, {8, 9, 10, 11});  // 28 to 44: the second block
        GeomItem across = a;
        across.name = "Across";
        across.position = 20;  // 20 to 36 crosses the cut at 28
        model.Geometry(Record(1, 0, "Mesh", "Geometry", "0.7"), {a, b, c, across});
        ZolFileBuilder file;
        file.Plain("Zol Tree", model.TreeBlock()).Plain("Light Data", model.lightData.Data());
        AddPieces(file, "Heavy Data", model.heavyData.Data(), compressed, {28});
        file.Plain("Attributes", model.attributes.Data());

        Tree tree;
        Geometry* mesh = LoadMesh(tree, dir.Write(file));
        ASSERT_NE(mesh, nullptr);
        EXPECT_FALSE(HeavyDataTouched(tree));
        // Any order, back and forth across the blocks.
        EXPECT_EQ(Values(mesh->data[2]), (U{8, 9, 10, 11}));
        EXPECT_EQ(Values(mesh->data[0]), (U{1, 2, 3, 4}));
        EXPECT_EQ(Values(mesh->data[2]), (U{8, 9, 10, 11}));
        EXPECT_EQ(Values(mesh->data[1]), (U{5, 6, 7}));
        U target;
        EXPECT_EQ(Failure([&] { mesh->data[3].array.GetLoader()->LoadTo(target); }),
                  (Fail{1, "Not enough bytes in the block"}));
    }
}

TEST(ZolLinkedBuffers, ResolvesLinksInOneHop) {
    TempDir dir;
    ModelBuilder model;
    model.Group(Record(1, 0, "Model", "Group", "0.1"));
    GeomItem own = model.HeavyItem("Own", 12, {1, 2, 3, 4, 5, 6}, 3);
    own.flag1 = 9;
    GeomItem target = model.HeavyItem("Target", 4, {7, 8});
    model.Geometry(Record(2, 1, "First", "Geometry", "0.7"),
                   {own, Link("Forward", 3, 0), Link("Same", 2, 0), Link("ToLink", 3, 1),
                    Link("ToGroup", 1, 0), Link("ToNothing", 0, 0), Link("PastEnd", 2, 99)});
    model.Geometry(Record(3, 1, "Second", "Geometry", "0.6"),
                   {target, Link("Backward", 2, 0), Link("ToEarlierLink", 2, 1)});

    static std::shared_ptr<LogSink> log = CaptureLog(true);
    auto expectLinksUpdated = [&] {
        size_t updating = log->text.find("@ Updating buffer links ... \n");
        ASSERT_NE(updating, std::string::npos) << log->text;
        EXPECT_NE(log->text.find("@ Buffer links updated. \n", updating), std::string::npos);
        log->text.clear();
    };
    log->text.clear();
    Tree tree;
    Geometry* first = LoadMesh(tree, dir.Write(model), 2);
    Geometry* second = PayloadOf<Geometry>(tree, 3);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    ASSERT_EQ(first->data.size(), 7u);
    ASSERT_EQ(second->data.size(), 3u);
    expectLinksUpdated();

    DataLoader* ownLoader = first->data[0].array.GetLoader();
    DataLoader* targetLoader = second->data[0].array.GetLoader();
    ASSERT_NE(ownLoader, nullptr);
    ASSERT_NE(targetLoader, nullptr);
    EXPECT_EQ(first->data[1].array.GetLoader(), targetLoader);  // forward
    EXPECT_EQ(first->data[2].array.GetLoader(), ownLoader);     // within the same geometry
    EXPECT_EQ(second->data[1].array.GetLoader(), ownLoader);    // backward
    EXPECT_EQ(second->data[1].array.byteSize, 24u);
    EXPECT_EQ(second->data[1].array.components, 3);
    EXPECT_EQ(second->data[1].array.flag1, 9);
    EXPECT_EQ(Values(second->data[1]), (U{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(Values(first->data[1]), (U{7, 8}));
    // The map holds only what stood before the links were filled in: no second hop, whether
    // the link in between comes earlier or later.
    for (GeometryData* item :
         {&first->data[3], &first->data[4], &first->data[5], &first->data[6], &second->data[2]}) {
        SCOPED_TRACE(item->name);
        EXPECT_EQ(item->array.GetLoader(), nullptr);
        EXPECT_EQ(item->array.byteSize, 0u);
        EXPECT_EQ(item->array.components, 1);
    }
    // Own, Same and Backward hold the one loader; Target and Forward the other.
    EXPECT_EQ(first->data[0].array.GetLoaderUseCount(), 3);
    EXPECT_EQ(second->data[0].array.GetLoaderUseCount(), 2);

    // A tree without any geometry passes through all the same.
    Tree bare;
    ASSERT_NO_THROW(LoadTree(bare, dir.Write(ZolFileBuilder(), "bare.zol")));
    expectLinksUpdated();
}

}  // namespace
