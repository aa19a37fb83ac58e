// Group, Shape/Material and attribute maps as the walk reads them.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Mrl/Zol/Attributes.h"
#include "Mrl/Zol/Group.h"
#include "Mrl/Zol/Material.h"
#include "Mrl/Zol/Shape.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlZol::AttributeValue;
using MrlZol::Group;
using MrlZol::Shape;
using MrlZol::Tree;

GroupData Translated(float x, std::vector<Attr> attributes = {}, bool mergeable = false) {
    GroupData g{.mergeable = mergeable, .attributes = std::move(attributes)};
    g.translation[0] = x;
    g.scale[2] = x + 9;
    return g;
}

// Each object version reads its own fields and no more, or the nodes behind it would read
// from the wrong place; shapes read a material record from the same versions on.
TEST(ZolNode, ObjectVersionsReadTheirFields) {
    TempDir dir;
    const float shininess = MaterialFields().shininess;
    for (std::string v : {"0.0a", "0.1", "0.2", "0.3", "0.4", "0.5", "0.2x", ""}) {
        SCOPED_TRACE(v);
        ModelBuilder model;
        model.Group(Record(1, 0, "Model", "Group", v), Translated(1, {Attr::Unsigned("A", 1)}, 1));
        model.Shape(Record(2, 1, "Part", "Shape", v));
        model.Shape(Record(3, 1, "Next", "Shape", "0.4"));
        model.Group(Record(4, 1, "Behind", "Group", "0.4"), Translated(20, {Attr::Text("B", "")}));
        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, dir.Write(model)));
        Group* g = PayloadOf<Group>(tree, 1);
        Group* behind = PayloadOf<Group>(tree, 4);
        ASSERT_TRUE(g != nullptr && behind != nullptr);

        const bool bare = v == "0.0a" || v == "0.1";
        const bool hasMap = !bare && v != "0.2";
        EXPECT_EQ(g->scale[2], bare ? 1.0f : 10.0f);
        EXPECT_EQ(g->attributes.count("A"), hasMap ? 1u : 0u);
        EXPECT_EQ(g->mergeable, hasMap && v != "0.3" ? 1 : 0);
        EXPECT_EQ(PayloadOf<Shape>(tree, 2)->material.shininess, bare ? 0.0f : shininess);
        EXPECT_EQ(PayloadOf<Shape>(tree, 3)->material.shininess, shininess);
        EXPECT_EQ(behind->scale[2], 29.0f);
        EXPECT_EQ(behind->attributes.count("B"), 1u);
        for (const char* block : {"Light Data", "Attributes", "Resources"}) {
            EXPECT_EQ(Unread(tree, block), 0u) << block;
        }
    }

    // "Light Data" ending inside a group stops the load.
    ModelBuilder cut;
    cut.tree.push_back(Record(1, 0, "Model", "Group", "0.2"));
    cut.lightData.F32(1).F32(2);
    Tree cutTree;
    EXPECT_EQ(Failure([&] { LoadTree(cutTree, dir.Write(cut)); }),
              (Fail{1, "Not enough bytes in the block"}));
}

// Maps as the walk reads them, in the one text form the reports use.
TEST(ZolAttributes, MapsAndTheirText) {
    TempDir dir;
    const std::string longText = std::string(AttributeValue::kTextField - 1, 'a') + "bcd";
    // Numbers print as a default stream does; a text ends at its fixed field or its first NUL;
    // an unknown tag has no value.
    const std::pair<Attr, std::string> cases[] = {
        {Attr::Float("F", 1234.567f), "1234.57"},
        {Attr::Double("D", 1.25e6), "1.25e+06"},
        {Attr::Double("Zero", -0.0), "-0"},
        {Attr::Float("Small", 1e-5f), "1e-05"},
        {Attr::Unsigned("U", 4294967295u), "4294967295"},
        {Attr::Text("T", "text"), "text"},
        {Attr::Text("Nul", std::string("ab\0cd", 5)), "ab"},
        {Attr::Text("Empty", ""), ""},
        {Attr::Text("Long", longText), longText.substr(0, AttributeValue::kTextField)},
        {Attr{.name = "Odd", .tag = 7}, ""}};
    std::vector<Attr> attributes{Attr::Unsigned("U", 7)};  // the later of two equal names wins
    for (const auto& [attribute, text] : cases) attributes.push_back(attribute);

    ModelBuilder model;
    model.Group(Record(1, 0, "Model", "Group", "0.3"), Translated(1, attributes));
    // A map cut short goes empty without stopping the load, and so does every map behind it;
    // the groups' other fields still read.
    model.Group(Record(2, 1, "Cut", "Group", "0.4"),
                Translated(2, {Attr::Unsigned("Y", 1), Attr::Text("X", "y")}, 1));
    model.Group(Record(3, 1, "Behind", "Group", "0.4"), Translated(3, {Attr::Text("Z", "")}, 1));
    Bytes maps = model.attributes.Take();
    maps.resize(AttributeMap(attributes).size() + 30);
    model.attributes.Raw(maps);
    Tree tree;
    ASSERT_NO_THROW(LoadTree(tree, dir.Write(model)));

    const MrlZol::AttributeMap& map = PayloadOf<Group>(tree, 1)->attributes;
    EXPECT_EQ(map.size(), std::size(cases));
    for (const auto& [attribute, text] : cases) {
        auto found = map.find(attribute.name);
        ASSERT_NE(found, map.end()) << attribute.name;
        EXPECT_EQ(MrlZol::AttributesToText(found->second), text) << attribute.name;
    }
    for (uint32_t id : {2u, 3u}) {
        EXPECT_TRUE(PayloadOf<Group>(tree, id)->attributes.empty()) << id;
        EXPECT_EQ(PayloadOf<Group>(tree, id)->scale[2], id + 9.0f) << id;
        EXPECT_EQ(PayloadOf<Group>(tree, id)->mergeable, 1) << id;
    }
}

// Tags that outrun the values of their kind end the map there, for every kind of value.
TEST(ZolAttributes, TagsBeyondTheirValues) {
    TempDir dir;
    for (uint8_t tag : {0, 1, 2, 3}) {
        ModelBuilder model;
        model.Group(Record(1, 0, "Model", "Group", "0.3"));
        BlockWriter map;
        map.U32(2).Str("A").Str("B").U32(2).U8(tag).U8(tag);
        for (uint8_t list : {0, 1, 3, 2}) {
            map.U32(list == tag ? 1 : 0);
            if (list == tag) list == 3 ? map.F64(1) : list == 2 ? map.Str("x") : map.U32(1);
        }
        model.attributes = std::move(map);
        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, dir.Write(model)));
        const MrlZol::AttributeMap& read = PayloadOf<Group>(tree, 1)->attributes;
        EXPECT_EQ(read.size(), 1u) << int(tag);
        EXPECT_EQ(read.count("A"), 1u) << int(tag);
    }
}

}  // namespace
