// Loading a tree: the translation history, the walk over "Zol Tree", light offsets, merging.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Group.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlZol::Group;
using MrlZol::Tree;
using Ids = std::vector<uint32_t>;

GroupData Translated(float x) {
    GroupData g;
    g.translation[0] = x;
    return g;
}

float TranslationX(Tree& tree, uint32_t id) {
    Group* group = PayloadOf<Group>(tree, id);
    EXPECT_NE(group, nullptr) << id;
    return group != nullptr ? group->translation[0] : -1.0f;
}

TEST(ZolTree, WalkBuildsEntriesFromRecords) {
    TempDir dir;
    // No record for a count of 0 or below, even with records behind it.
    for (int32_t count : {0, -1}) {
        ZolFileBuilder file;
        file.Plain("Zol Tree", ZolTree({Record(1, 0, "Model", "Group", "0.1")}, true, count));
        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, dir.Write(file)));
        EXPECT_EQ(tree.GetReqNode(1).data, nullptr);
    }

    ModelBuilder model;
    // The history and the tree are separate streams; surplus behind a record is skipped.
    const TranslationFields written{"App", "1.0", "0.7", "today", "extra", "me", "note"};
    model.globalInformation.Raw(GlobalInformation({{"0.1", written}, {"0.10", {}}}, 9));
    model.Group({1, 0, 0, 0, 5, 12, "Model", "Group", "0.1"});
    // Links are stored as read, whether or not they lead anywhere.
    model.Group({5, 1, 0, 9, 40, 0, "Five", "Group", "0.1"});
    model.Shape({9, 1, 5, 12, 0, 0, "Nine", "Shape", "0.1"});
    // Class words that aren't one of the three exactly make entries with no payload and read
    // nothing: the group behind them still finds its own data first in "Light Data".
    uint32_t id = 20;
    for (const char* word : {"Node", "Material", "group", "Geometry ", ""}) {
        model.tree.push_back(Record(id++, 1, word, word, "0.4"));
    }
    model.Group(Record(12, 1, "Twelve", "Group", "0.4"), Translated(3));
    // A repeated id takes the entry over, payload and links.
    model.Group(Record(9, 1, "Nine again", "Group", "0.4"), Translated(30));

    Tree tree;
    ASSERT_NO_THROW(LoadTree(tree, dir.Write(model, "0.7")));
    auto fields = [](const auto& t) {
        return std::vector<std::string>{
            t.applicationName, t.applicationVersion, t.zolVersion, t.date,
            t.extraText,       t.userName,           t.comment};
    };
    ASSERT_EQ(tree.translations.size(), 2u);
    EXPECT_EQ(fields(tree.translations[0]), fields(written));
    EXPECT_EQ(fields(tree.translations[1]), fields(TranslationFields()));
    EXPECT_EQ(tree.GetNextId(), 25u);
    Ids ids;
    for (const auto& [key, entry] : tree.GetEntries()) ids.push_back(key);
    EXPECT_EQ(ids, (Ids{1, 5, 9, 12, 20, 21, 22, 23, 24}));
    const auto& five = tree.GetReqNode(5);
    EXPECT_EQ(
        (Ids{five.parent, five.previousSibling, five.nextSibling, five.firstChild, five.lastChild}),
        (Ids{1, 0, 9, 40, 0}));
    EXPECT_EQ(tree.GetReqNode(9).previousSibling, 0u);
    EXPECT_EQ(TranslationX(tree, 9), 30.0f);
    EXPECT_EQ(TranslationX(tree, 12), 3.0f);
    for (uint32_t key = 20; key < id; ++key) EXPECT_EQ(tree.GetReqNode(key).data, nullptr) << key;
}

TEST(ZolTree, LightOffsets) {
    TempDir dir;
    // Four 40-byte transforms at 0, 40, 80 and 120. A non-zero offset repositions "Light Data",
    // forward or back, also across physical blocks; 0 goes on from where the node before left
    // it. (Behind a jump back, blocks already read stay used up, so "On" runs in one block only.)
    // The width of the offset follows the file version, not the object versions.
    const std::pair<std::string, size_t> cases[] = {{"0.6", 0}, {"0.7", 0}, {"1.1", 40}};
    for (const auto& [fileVersion, pieceSize] : cases) {
        SCOPED_TRACE(fileVersion);
        ModelBuilder model;
        model.wideOffsets = fileVersion != "0.6";
        model.Group(Record(1, 0, "Model", "Group", "0.2"), Translated(100));
        model.Group(Record(2, 1, "Forward", "Group", "0.2", 80), Translated(200));
        model.Group(Record(3, 1, "Back", "Group", "0.2", 40), Translated(300));
        if (pieceSize == 0) model.Group(Record(4, 1, "On", "Group", "0.2"), Translated(400));
        ZolFileBuilder file;
        file.Version(fileVersion).Plain("Zol Tree", model.TreeBlock());
        AddPieces(file, "Light Data", model.lightData.Data(), false, pieceSize);
        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, dir.Write(file)));
        const float expected[] = {100, 300, 200, 300};
        for (uint32_t id = 1; id <= (pieceSize == 0 ? 4u : 3u); ++id) {
            EXPECT_EQ(TranslationX(tree, id), expected[id - 1]) << id;
        }
    }

    // An offset past the end of "Light Data", or any offset without that block.
    ModelBuilder past, none;
    past.Group(Record(1, 0, "Model", "Group", "0.2"), Translated(1));
    past.Group(Record(2, 1, "Past", "Group", "0.2", 81));  // the block holds 80
    none.Group(Record(1, 0, "Model", "Group", "0.1", 4));
    for (const ModelBuilder* model : {&past, &none}) {
        Tree tree;
        EXPECT_EQ(Failure([&] { LoadTree(tree, dir.Write(*model)); }),
                  (Fail{1, "Invalid block position"}));
    }
}

// A second file under a mergeable root: its ids move up past the tree's, its first record
// becomes the root's last child, parentless records hang from the root, links move along.
TEST(ZolTree, MergesUnderMergeableRoot) {
    TempDir dir;
    GroupData mergeable;
    mergeable.mergeable = true;
    ModelBuilder first;
    first.Group({1, 0, 0, 0, 2, 2, "Model", "Group", "0.4"}, mergeable);
    first.Group(Record(2, 1, "Existing", "Group", "0.1"));

    ModelBuilder second;
    second.Group({1, 0, 0, 0, 2, 2, "Added", "Group", "0.4"}, Translated(50));
    GeomItem link{.name = "Link", .kind = 12, .link = true, .linkedGeometryId = 2};
    second.Geometry(Record(2, 1, "Mesh", "Geometry", "0.7"),
                    {second.HeavyItem("Values", 12, {1, 2, 3}), link});
    second.Group(Record(3, 0, "Orphan", "Group", "0.1"));

    // Any open mode but 1 reads through a file of its own and closes it, so a second load fits.
    Tree tree;
    ASSERT_NO_THROW(LoadTree(tree, dir.Write(first, "1.1", "first.zol"), 2));
    std::map<uint32_t, uint32_t> idMap;
    int32_t openMode = 2, loadKind = 0;
    ASSERT_NO_THROW(tree.Load(dir.Write(second, "1.1", "second.zol"), idMap, openMode, loadKind));

    EXPECT_FALSE(tree.file.IsOpen());
    EXPECT_EQ(idMap, (std::map<uint32_t, uint32_t>{{3, 1}, {4, 2}, {5, 3}}));
    EXPECT_EQ(tree.GetNextId(), 6u);
    EXPECT_EQ(tree.GetReqNode(1).lastChild, 3u);
    EXPECT_EQ(tree.GetReqNode(2).nextSibling, 3u);
    const auto& added = tree.GetReqNode(3);
    EXPECT_EQ((Ids{added.parent, added.previousSibling, added.firstChild, added.lastChild}),
              (Ids{1, 2, 4, 4}));
    EXPECT_EQ(TranslationX(tree, 3), 50.0f);
    EXPECT_EQ(tree.GetReqNode(5).parent, 1u);
    auto* mesh = PayloadOf<MrlZol::Geometry>(tree, 4);
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(mesh->data.at(1).linkedGeometryId, 4u);
    EXPECT_EQ(mesh->data[1].array.byteSize, 12u);
    // The local file is gone, and with it the hand-over of positions and the loaders.
    EXPECT_TRUE(mesh->positions.empty());
    EXPECT_EQ(mesh->data[0].array.GetLoader(), nullptr);
}

}  // namespace
