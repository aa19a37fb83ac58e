// Group, Shape/Material and attribute maps as the walk reads them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/Attributes.h"
#include "Mrl/Zol/Group.h"
#include "Mrl/Zol/Material.h"
#include "Mrl/Zol/Shape.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlZol::AttributesToText;
using MrlZol::AttributeValue;
using MrlZol::Group;
using MrlZol::Tree;

GroupData FullGroup(float base, std::vector<Attr> attributes, bool mergeable) {
    GroupData g{.mergeable = mergeable, .attributes = std::move(attributes)};
    for (int i = 0; i < 3; ++i) g.translation[i] = base + i;
    for (int i = 0; i < 4; ++i) g.rotation[i] = base + 3 + i;
    for (int i = 0; i < 3; ++i) g.scale[i] = base + 7 + i;
    return g;
}

std::vector<float> Transform(const float* t, const float* r, const float* s) {
    std::vector<float> all(t, t + 3);
    all.insert(all.end(), r, r + 4);
    all.insert(all.end(), s, s + 3);
    return all;
}

TEST(ZolGroup, ObjectVersionsReadTheirFields) {
    TempDir dir;
    const GroupData given = FullGroup(1, {Attr::Unsigned("Answer", 42)}, true);
    const GroupData fresh;
    for (std::string v : {"0.0a", "0.1", "0.2", "0.3", "0.4", "0.5", "0.2x", ""}) {
        SCOPED_TRACE(v);
        ModelBuilder model;
        model.Group(Record(1, 0, "Model", "Group", v), given);
        // A group behind it sees its own data only if the first one read exactly its share.
        model.Group(Record(2, 1, "Behind", "Group", "0.4"),
                    FullGroup(20, {Attr::Text("Who", "behind")}, false));
        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, dir.Write(model)));
        Group* g = PayloadOf<Group>(tree, 1);
        ASSERT_NE(g, nullptr);
        EXPECT_EQ(g->name, "Model");

        const bool bare = v == "0.0a" || v == "0.1";
        const bool hasMap = !bare && v != "0.2";
        const GroupData& want = bare ? fresh : given;
        EXPECT_EQ(Transform(g->translation, g->rotation, g->scale),
                  Transform(want.translation, want.rotation, want.scale));
        EXPECT_EQ(g->attributes.count("Answer"), hasMap ? 1u : 0u);
        EXPECT_EQ(g->attributes.size(), hasMap ? 1u : 0u);
        EXPECT_EQ(g->mergeable, hasMap && v != "0.3" ? 1 : 0);

        Group* behind = PayloadOf<Group>(tree, 2);
        ASSERT_NE(behind, nullptr);
        EXPECT_EQ(behind->translation[0], 20.0f);
        EXPECT_EQ(behind->scale[2], 29.0f);
        EXPECT_EQ(behind->mergeable, 0);
        ASSERT_EQ(behind->attributes.count("Who"), 1u);
        EXPECT_EQ(Unread(tree, "Light Data"), 0u);
        EXPECT_EQ(Unread(tree, "Attributes"), 0u);
    }

    // Any non-zero flag byte makes the group mergeable.
    ModelBuilder model;
    model.tree.push_back(Record(1, 0, "Model", "Group", "0.4"));
    for (int i = 0; i < 10; ++i) model.lightData.F32(0);
    model.lightData.U8(0x80);
    Tree tree;
    ASSERT_NO_THROW(LoadTree(tree, dir.Write(model)));
    EXPECT_NE(PayloadOf<Group>(tree, 1)->mergeable, 0);

    // "Light Data" ending inside a group stops the load.
    ModelBuilder cut;
    cut.tree.push_back(Record(1, 0, "Model", "Group", "0.2"));
    cut.lightData.F32(1).F32(2);
    Tree cutTree;
    EXPECT_EQ(Failure([&] { LoadTree(cutTree, dir.Write(cut)); }),
              (Fail{1, "Not enough bytes in the block"}));
}

// Which shapes read a material record; the record rules themselves are the block reader's.
TEST(ZolShape, MaterialRecords) {
    const MrlZol::Material defaults;
    TempDir dir;
    MaterialFields fields;
    fields.materialFlag = 0;
    ModelBuilder model;
    const char* versions[] = {"0.1", "0.0a", "0.2", "0.7", "0.2x", ""};
    uint32_t id = 1;
    for (const char* v : versions) {
        model.tree.push_back(Record(id, id == 1 ? 0 : 1, "Part", "Shape", v));
        if (id++ > 2) model.resources.Raw(MaterialRecord("0.3", fields, 3));
    }
    Tree tree;
    ASSERT_NO_THROW(LoadTree(tree, dir.Write(model)));
    EXPECT_EQ(Unread(tree, "Resources"), 0u);
    for (uint32_t i = 1; i <= std::size(versions); ++i) {
        SCOPED_TRACE(versions[i - 1]);
        auto* shape = PayloadOf<MrlZol::Shape>(tree, i);
        ASSERT_NE(shape, nullptr);
        const MrlZol::Material& m = shape->material;
        EXPECT_EQ(m.shininess, i <= 2 ? 0.0f : fields.shininess);
        EXPECT_EQ(m.diffuse[1], i <= 2 ? defaults.diffuse[1] : fields.diffuse[1]);
        EXPECT_EQ(m.materialFlag, i <= 2 ? 1 : 0);
    }

    // Without "Resources" a shape keeps its defaults.
    ModelBuilder bare;
    bare.tree.push_back(Record(1, 0, "Part", "Shape", "0.2"));
    Tree bareTree;
    ASSERT_NO_THROW(LoadTree(bareTree, dir.Write(bare)));
    EXPECT_EQ(PayloadOf<MrlZol::Shape>(bareTree, 1)->material.materialFlag, 1);
}

TEST(ZolAttributes, LoadAttributesFillsMaps) {
    TempDir dir;
    std::string longText;
    for (int i = 0; i < 300; ++i) longText += static_cast<char>('a' + i % 26);
    Bytes block =
        AttributeMap({Attr::Unsigned("U", 7), Attr::Float("F", 0.5f), Attr::Text("T", "text"),
                      Attr::Double("D", 2.25), Attr::Unsigned("U", 9), Attr::Text("Long", longText),
                      Attr::Text("Empty", "")});
    Bytes second = AttributeMap({Attr::Text("X", "y")});
    block.insert(block.end(), second.begin(), second.end() - 2);  // ends inside the last list

    MrlHbf::HbFile hb;
    hb.OpenFile(dir.Write(ZolFileBuilder().Plain("Attributes", block)), "rb");
    MrlZol::AttributeMap map{{"Keep", AttributeValue::Unsigned(1)},
                             {"T", AttributeValue::Unsigned(5)}};
    ASSERT_NO_THROW(MrlZol::LoadAttributes(hb, "Attributes", map));
    ASSERT_EQ(map.size(), 7u);
    EXPECT_EQ(map.at("Keep").unsignedValue, 1u);
    EXPECT_EQ(map.at("U").tag, MrlZol::UnsignedTag);
    EXPECT_EQ(map.at("U").unsignedValue, 9u);  // the later of two equal names wins
    EXPECT_EQ(map.at("F").tag, MrlZol::FloatTag);
    EXPECT_EQ(map.at("F").floatValue, 0.5f);
    EXPECT_EQ(map.at("T").tag, MrlZol::TextTag);
    EXPECT_EQ(AttributesToText(map.at("T")), "text");
    EXPECT_EQ(map.at("D").tag, MrlZol::DoubleTag);
    EXPECT_EQ(map.at("D").doubleValue, 2.25);
    EXPECT_EQ(AttributesToText(map.at("Empty")), "");
    const AttributeValue& stored = map.at("Long");
    EXPECT_EQ(std::memcmp(stored.textValue, longText.data(), AttributeValue::kTextField), 0);
    EXPECT_EQ(AttributesToText(stored), longText.substr(0, AttributeValue::kTextField));

    // A damaged map leaves its target as it was, and so does every map behind it.
    MrlZol::AttributeMap damaged{{"Before", AttributeValue::Unsigned(3)}};
    ASSERT_NO_THROW(MrlZol::LoadAttributes(hb, "Attributes", damaged));
    EXPECT_EQ(damaged.size(), 1u);
    MrlZol::AttributeMap later;
    ASSERT_NO_THROW(MrlZol::LoadAttributes(hb, "Attributes", later));
    ASSERT_NO_THROW(MrlZol::LoadAttributes(hb, "No Such Block", later));
    EXPECT_TRUE(later.empty());

    // In a tree the damage doesn't stop the load: the maps go empty, the transforms still read.
    ModelBuilder model;
    model.Group(Record(1, 0, "Model", "Group", "0.3"), FullGroup(1, {Attr::Unsigned("A", 1)}, 0));
    model.Group(Record(2, 1, "Cut", "Group", "0.3"), FullGroup(2, {Attr::Text("B", "bee")}, 0));
    model.Group(Record(3, 1, "Behind", "Group", "0.4"), FullGroup(3, {Attr::Unsigned("C", 1)}, 1));
    Bytes maps = model.attributes.Take();
    maps.resize(AttributeMap({Attr::Unsigned("A", 1)}).size() + 30);
    model.attributes.Raw(maps);
    Tree tree;
    ASSERT_NO_THROW(LoadTree(tree, dir.Write(model)));
    EXPECT_EQ(PayloadOf<Group>(tree, 1)->attributes.size(), 1u);
    EXPECT_TRUE(PayloadOf<Group>(tree, 2)->attributes.empty());
    EXPECT_EQ(PayloadOf<Group>(tree, 2)->translation[0], 2.0f);
    EXPECT_TRUE(PayloadOf<Group>(tree, 3)->attributes.empty());
    EXPECT_EQ(PayloadOf<Group>(tree, 3)->translation[0], 3.0f);
    EXPECT_EQ(PayloadOf<Group>(tree, 3)->mergeable, 1);
}

TEST(ZolAttributes, AttributesToText) {
    AttributeValue unknown = AttributeValue::Unsigned(12);
    unknown.tag = 7;
    const std::pair<AttributeValue, const char*> cases[] = {
        {AttributeValue::Float(1234.567f), "1234.57"},
        {AttributeValue::Double(1.25e+06), "1.25e+06"},
        {AttributeValue::Double(-0.0), "-0"},
        {AttributeValue::Float(1e-05f), "1e-05"},
        {AttributeValue::Unsigned(4294967295u), "4294967295"},
        {AttributeValue::Text(std::string("ab\0cd", 5)), "ab"},
        {unknown, ""}};
    for (const auto& [value, text] : cases) EXPECT_EQ(AttributesToText(value), text);
}

}  // namespace
