// Geometry records, the arrays' loaders and the links between arrays.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/DataLoader.h"
#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Group.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlZol::DataLoader;
using MrlZol::Geometry;
using MrlZol::GeometryData;
using MrlZol::Tree;
using U = std::vector<uint32_t>;

GeomItem Link(std::string name, uint32_t geometry, uint32_t index) {
    return LinkItem(std::move(name), 12, geometry, index);
}

template <class T = uint32_t>
std::vector<T> Values(const GeometryData& item) {
    std::vector<T> values;
    const DataLoader* loader = item.array.GetLoader();
    EXPECT_NE(loader, nullptr) << item.name;
    if (loader == nullptr) return values;
    loader->LoadTo(values);
    // The check without the copy agrees with the load on what it gives.
    auto tag = std::is_same_v<T, float> ? MrlZol::FloatElementTag : MrlZol::UnsignedElementTag;
    EXPECT_EQ(loader->CheckLoad(tag), values.size()) << item.name;
    return values;
}

Geometry* LoadMesh(Tree& tree, const std::string& path, uint32_t id = 1) {
    EXPECT_NO_THROW(LoadTree(tree, path));
    Geometry* mesh = tree.GetEntries().count(id) ? PayloadOf<Geometry>(tree, id) : nullptr;
    EXPECT_NE(mesh, nullptr);
    return mesh;
}

// Each version's items take exactly their own bytes of "Light Data" and "Attributes": the group
// behind the geometry finds its values only then.
TEST(ZolGeometry, RecordLayoutsPerVersion) {
    TempDir dir;
    // The keys that describe the storage are dropped when spelt exactly, and so is any key that
    // starts "Link."; only the exact text "Vibration" marks an item.
    std::vector<Attr> attributes = {Attr::Text("Category", "Vibration"), Attr::Float("Link", 1.5f),
                                    Attr::Unsigned("complex", 1)};
    for (const char* key :
         {"Complex", "Contents", "DataSource", "DataType", "Structure", "Link."}) {
        attributes.push_back(Attr::Unsigned(key, 1));
        attributes.push_back(Attr::Unsigned(key + std::string("Target"), 1));
    }
    for (std::string v : {"0.0a", "0.1", "0.2", "0.3", "0.4", "0.3a", "0.5", "0.6", "0.7"}) {
        SCOPED_TRACE(v);
        const bool linked = v == "0.5" || v == "0.6" || v == "0.7";
        const bool deferred = linked && v != "0.5";  // planar, loaders attached after the walk
        const bool bare = v == "0.0a" || v == "0.1";
        const bool hasMap = linked || (!bare && v != "0.2" && v != "0.3");

        ModelBuilder model;
        GeomItem values = model.HeavyItem("Values", 0x1FF, {1, 2, 3, 4, 5, 6}, 3, deferred);
        values.flag1 = 10, values.flag2 = 11, values.value1 = 10.5f, values.value2 = 10.25f;
        values.flag3 = 12, values.reserved = 0xEE, values.attributes = attributes;
        GeomItem other = model.HeavyItem("Other", 0xFFFFFFFF, {9, 8}, 1, deferred);
        other.attributes = {Attr::Text("Category", "Vibration ")};
        GeomItem link = Link("Linked", 1, 0);
        link.kind = 0x104, link.attributes = attributes;
        std::vector<GeomItem> items{values, other};
        if (linked) items.push_back(link);
        model.Geometry(Record(1, 0, "Mesh", "Geometry", v), items);
        GroupData sentinel;
        sentinel.translation[0] = 77;
        model.Group(Record(2, 1, "Sentinel", "Group", "0.4"), sentinel);

        Tree tree;
        Geometry* mesh = LoadMesh(tree, dir.Write(model));
        ASSERT_NE(mesh, nullptr);
        EXPECT_EQ(PayloadOf<MrlZol::Group>(tree, 2)->translation[0], 77.0f);
        EXPECT_EQ(Unread(tree, "Light Data") + Unread(tree, "Attributes"), 0u);
        ASSERT_EQ(mesh->data.size(), items.size());
        const GeometryData& first = mesh->data[0];
        const MrlZol::NumericArray& a = first.array;
        EXPECT_EQ(first.kind, linked ? 255 : 511);  // the newer records keep 8 bits
        EXPECT_EQ(mesh->data[1].kind, -1);
        const std::vector<float> fields{
            float(a.byteSize), float(a.components), float(a.flag1), float(a.flag2), a.value1,
            a.value2,          float(a.flag3)};
        EXPECT_EQ(fields, bare ? (std::vector<float>{24, 3, 0, 0, 0, 0, 0})
                               : (std::vector<float>{24, 3, 10, 11, 10.5f, 10.25f, 12}));
        EXPECT_EQ(first.isVibration, hasMap);
        EXPECT_FALSE(mesh->data[1].isVibration);
        // Eight keys kept on the first item, Category on the second.
        EXPECT_EQ(first.attributes.size() + mesh->data[1].attributes.size(), hasMap ? 9u : 0u);
        if (linked) {
            EXPECT_TRUE(mesh->data[2].linked && mesh->data[2].isVibration);
            EXPECT_TRUE(mesh->data[2].attributes.empty());
            EXPECT_EQ(mesh->data[2].kind, 4);
        }
        // Deferred loaders read nothing while loading; the others position "Heavy Data".
        EXPECT_EQ(Unread(tree, "Heavy Data") == model.heavyData.Size(), deferred);
        EXPECT_EQ(Values(first), (U{1, 2, 3, 4, 5, 6}));
        EXPECT_EQ(Values(mesh->data[1]), (U{9, 8}));
    }
}

// Positions are handed over by name: items named alike share the later one, each with its own
// size and layout. They need all 64 bits, and a name the hand-over doesn't know is refused.
TEST(ZolGeometry, PositionsByName) {
    TempDir dir;
    ModelBuilder model;
    GeomItem result = model.HeavyItem("Dup", 12, {1, 2});
    GeomItem connectivity = model.HeavyItem("Dup", 4, {3, 4, 5}, 3);
    GeomItem far{.name = "Far", .kind = 12, .byteSize = 4, .position = 0x100000004ull};
    model.Geometry(Record(1, 0, "Mesh", "Geometry", "0.7"), {result, connectivity, far});
    Tree tree;
    Geometry* mesh = LoadMesh(tree, dir.Write(model));
    ASSERT_NE(mesh, nullptr);
    const uint64_t positions[] = {connectivity.position, connectivity.position, far.position};
    const uint64_t sizes[] = {8, 12, 4};
    for (int i = 0; i < 3; ++i) {
        const DataLoader* loader = mesh->data[i].array.GetLoader();
        ASSERT_NE(loader, nullptr);
        EXPECT_EQ(loader->position, positions[i]);
        EXPECT_EQ(loader->byteSize, sizes[i]);
        EXPECT_EQ(loader->components, i == 1 ? 3 : 1);
    }

    MrlHbf::HbFile unopened;
    Geometry lone("Lone");
    lone.AddData("Unknown", 5, MrlZol::NumericArray(), {});
    lone.positions["Known"] = 0;
    EXPECT_EQ(Failure([&] { lone.LoadConnectivityBlocks(unopened, "Heavy Data"); }),
              (Fail{5, "Element Not Found"}));
}

TEST(ZolDataLoader, ElementFormIsCheckedBeforeAnyRead) {
    MrlHbf::HbFile file;
    std::vector<float> floats;
    std::vector<uint32_t> words;
    DataLoader asFloat(file, "Heavy Data", 0, 4, 1, true, MrlZol::FloatElementTag);
    DataLoader asUnsigned(file, "Heavy Data", 0, 4, 1, true, MrlZol::UnsignedElementTag);
    EXPECT_EQ(Failure([&] { asFloat.LoadTo(words); }), (Fail{12, "Bad Casting"}));
    EXPECT_EQ(Failure([&] { asUnsigned.LoadTo(floats); }), (Fail{12, "Bad Casting"}));
    EXPECT_EQ(Failure([&] { asFloat.CheckLoad(MrlZol::UnsignedElementTag); }),
              (Fail{12, "Bad Casting"}));
}

TEST(ZolDataLoader, DecodesPayloadsInPhysicalBlocks) {
    TempDir dir;
    auto sequence = [](size_t n, uint32_t seed) {
        U v(n);
        for (size_t i = 0; i < n; ++i) v[i] = seed * 0x01010101u + static_cast<uint32_t>(i * 7919);
        return v;
    };
    // Element counts, components and kinds: tails behind the runs, plain words for 0
    // components, fewer elements than components, and sizes past a 4 KiB stretch.
    const std::tuple<size_t, uint8_t, uint32_t> cases[] = {{6, 3, 12},    {7, 3, 4},   {2, 3, 12},
                                                           {5, 0, 9},     {37, 1, 5},  {1, 1, 12},
                                                           {2061, 2, 12}, {3000, 1, 4}};
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed);
        ModelBuilder model;
        // Bytes 0x01 to 0x10 as one run of four elements, alone in the first block.
        std::vector<GeomItem> items{{.name = "Planes", .kind = 12, .byteSize = 16}};
        items[0].position = model.AddHeavy({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
        for (auto [n, k, kind] : cases) {
            items.push_back(model.HeavyItem("N" + std::to_string(n), kind, sequence(n, k + 1), k));
        }
        items.push_back(model.HeavyItem("Floats", 12, FloatBits({1.5f, -2.25f, 3e7f})));
        items.push_back({.name = "Empty", .kind = 12});
        items.push_back({.name = "Across", .kind = 12, .byteSize = 8, .position = 12});
        model.Geometry(Record(1, 0, "Mesh", "Geometry", "0.7"), items);
        ZolFileBuilder file;
        file.Plain("Zol Tree", model.TreeBlock()).Plain("Light Data", model.lightData.Data());
        AddPiecesCutAt(file, "Heavy Data", model.heavyData.Data(), compressed, {16});
        file.Plain("Attributes", model.attributes.Data());

        Tree tree;
        Geometry* mesh = LoadMesh(tree, dir.Write(file));
        ASSERT_NE(mesh, nullptr);
        ASSERT_EQ(mesh->data.size(), items.size());
        for (size_t i = 0; i < std::size(cases); ++i) {
            const auto [n, k, kind] = cases[i];
            EXPECT_EQ(Values(mesh->data[i + 1]), sequence(n, k + 1)) << n;
            EXPECT_EQ(Values(mesh->data[i + 1]), sequence(n, k + 1)) << n << " read again";
        }
        // Back into the first block.
        EXPECT_EQ(Values(mesh->data[0]), (U{0x0D090501, 0x0E0A0602, 0x0F0B0703, 0x100C0804}));
        EXPECT_EQ(Values<float>(mesh->data[std::size(cases) + 1]),
                  (std::vector<float>{1.5f, -2.25f, 3e7f}));
        // No payload: nothing read, the target untouched.
        std::vector<float> untouched = {7, 7};
        const GeometryData& empty = mesh->data[std::size(cases) + 2];
        ASSERT_NE(empty.array.GetLoader(), nullptr);
        EXPECT_NO_THROW(empty.array.GetLoader()->LoadTo(untouched));
        EXPECT_EQ(untouched, (std::vector<float>{7, 7}));
        EXPECT_EQ(empty.array.GetLoader()->CheckLoad(MrlZol::FloatElementTag), 0u);
        const DataLoader& across = *mesh->data.back().array.GetLoader();
        EXPECT_EQ(Failure([&] { across.LoadTo(untouched); }),
                  (Fail{1, "Not enough bytes in the block"}));
        EXPECT_EQ(Failure([&] { across.CheckLoad(MrlZol::FloatElementTag); }),
                  (Fail{1, "Not enough bytes in the block"}));
    }
}

// A link takes its target's array as it stood before any link was filled in.
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
    Tree tree;
    Geometry* first = LoadMesh(tree, dir.Write(model), 2);
    Geometry* second = PayloadOf<Geometry>(tree, 3);
    ASSERT_TRUE(first != nullptr && second != nullptr);
    ASSERT_EQ(first->data.size() + second->data.size(), 10u);

    EXPECT_EQ(Values(first->data[1]), (U{7, 8}));
    EXPECT_EQ(Values(first->data[2]), (U{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(Values(second->data[1]), (U{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(second->data[1].array.flag1, 9);
    // No second hop, whether the link in between comes earlier or later.
    for (GeometryData* item :
         {&first->data[3], &first->data[4], &first->data[5], &first->data[6], &second->data[2]}) {
        EXPECT_EQ(item->array.GetLoader(), nullptr) << item->name;
        EXPECT_EQ(item->array.byteSize, 0u) << item->name;
    }
}

}  // namespace
