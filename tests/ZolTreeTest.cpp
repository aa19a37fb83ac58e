// Loading a tree: the steps of Load, the translation history and the walk over "Zol Tree".
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Group.h"
#include "TestSupport.h"

namespace {

using namespace ZolTest;
using MrlZol::Group;
using MrlZol::Tree;

GroupData Translated(float x) {
    GroupData g;
    g.translation[0] = x;
    g.translation[1] = x + 1;
    g.translation[2] = x + 2;
    return g;
}

TEST(ZolTree, LoadStepsAndFileStates) {
    TempDir dir;
    // loadKind other than 0 touches nothing, not even a path that doesn't exist.
    {
        Tree tree;
        int32_t openMode = 1, loadKind = 1;
        EXPECT_NO_THROW(tree.Load(dir / "missing.zol", openMode, loadKind));
        EXPECT_FALSE(tree.file.IsOpen());
        EXPECT_TRUE(tree.version.empty());
        EXPECT_EQ(tree.GetEntries().size(), 1u);
    }
    // A header and an index without blocks: just the root entry, no history.
    std::string empty = dir.Write(ZolFileBuilder(), "empty.zol");
    {
        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, empty));
        EXPECT_EQ(tree.version, "1.1");
        EXPECT_TRUE(tree.translations.empty());
        ASSERT_EQ(tree.GetEntries().size(), 1u);
        EXPECT_EQ(tree.GetReqNode(1).data, nullptr);
        EXPECT_EQ(tree.GetNextId(), 2u);
        EXPECT_EQ(tree.GetCurrentId(), 1u);
        // The file stays open for the loaders, so a second load into it is refused.
        EXPECT_TRUE(tree.file.IsOpen());
        EXPECT_EQ(Failure([&] { LoadTree(tree, empty); }),
                  (Fail{16, "File stream is already in use"}));
    }
    // Any other open mode reads through a file of its own and closes it.
    Tree tree;
    ASSERT_NO_THROW(LoadTree(tree, empty, 2));
    EXPECT_FALSE(tree.file.IsOpen());
    EXPECT_NO_THROW(LoadTree(tree, empty, 2));
}

TEST(ZolTree, TranslationHistory) {
    TempDir dir;
    const std::string versions[] = {"0.1", "0.7", "0.10"};
    for (size_t count = 0; count <= 3; ++count) {
        SCOPED_TRACE(count);
        std::vector<std::pair<std::string, TranslationFields>> records;
        for (size_t i = 0; i < count; ++i) {
            std::string n = std::to_string(i);
            records.push_back({versions[i],
                               {"App" + n, "Ver" + n, "Zol" + n, "Date" + n, "Extra" + n,
                                i == 1 ? "" : "User" + n, "Comment" + n}});
        }
        ModelBuilder model;
        // Surplus behind each record must be skipped, whatever the record version.
        model.globalInformation.Raw(GlobalInformation(records, count == 3 ? 9 : 0));
        model.Group(Record(1, 0, "Model", "Group", "0.4"), Translated(5));

        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, dir.Write(model)));
        ASSERT_EQ(tree.translations.size(), count);
        for (size_t i = 0; i < count; ++i) {
            const MrlZol::TranslationRecord& t = tree.translations[i];
            const TranslationFields& w = records[i].second;
            EXPECT_EQ(
                (std::vector<std::string>{t.applicationName, t.applicationVersion, t.zolVersion,
                                          t.date, t.extraText, t.userName, t.comment}),
                (std::vector<std::string>{w.applicationName, w.applicationVersion, w.zolVersion,
                                          w.date, w.extraText, w.userName, w.comment}));
        }
        // The history and the tree are separate streams: the tree loads the same either way.
        Group* root = PayloadOf<Group>(tree, 1);
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(root->translation[2], 7.0f);
    }

    // A record whose fields overrun its size.
    ModelBuilder model;
    model.globalInformation.U32(1).Raw(
        VersionedRecord("0.1", TranslationFieldBytes({"A", "B"}), 0, 12));
    Tree tree;
    EXPECT_EQ(Failure([&] { LoadTree(tree, dir.Write(model)); }), (Fail{2, "Unknown Version"}));
}

TEST(ZolTree, WalkBuildsEntriesFromRecords) {
    TempDir dir;

    // No record for a count of 0 or below, even with records behind it.
    for (int32_t count : {0, -1, -7}) {
        ZolFileBuilder file;
        file.Plain("Zol Tree", ZolTree({Record(1, 0, "Model", "Group", "0.1")}, true, count));
        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, dir.Write(file)));
        EXPECT_EQ(tree.GetEntries().size(), 1u);
        EXPECT_EQ(tree.GetReqNode(1).data, nullptr);
    }

    ModelBuilder model;
    model.Group({1, 0, 0, 0, 5, 12, "Model", "Group", "0.1"});
    // Links are stored as read, whether or not they lead anywhere.
    model.Group({5, 1, 0, 9, 40, 0, "Five", "Group", "0.1"});
    model.Shape({9, 1, 5, 12, 0, 0, "Nine", "Shape", "0.1"});
    // Class words that aren't one of the three exactly make entries with no payload and read
    // nothing: the group behind them still finds its own data first in "Light Data".
    int id = 20;
    for (const char* word : {"Node", "Material", "group", "Groups", "Geometry ", "GROUP", ""}) {
        model.tree.push_back(Record(id++, 1, word, word, "0.4"));
    }
    model.Group(Record(12, 1, "Twelve", "Group", "0.4"), Translated(3));
    // A repeated id takes the entry over, payload and links.
    model.Group(Record(9, 1, "Nine again", "Group", "0.4"), Translated(30));

    std::map<uint32_t, uint32_t> idMap;
    Tree tree;
    int32_t openMode = 1, loadKind = 0;
    ASSERT_NO_THROW(tree.Load(dir.Write(model, "0.7"), idMap, openMode, loadKind));

    EXPECT_EQ(tree.GetNextId(), 27u);
    EXPECT_EQ(tree.GetCurrentId(), 1u);
    std::vector<uint32_t> ids;
    for (const auto& [key, entry] : tree.GetEntries()) {
        ids.push_back(key);
        EXPECT_EQ(entry.id, key);
        EXPECT_EQ(idMap[key], key);
    }
    EXPECT_EQ(ids, (std::vector<uint32_t>{1, 5, 9, 12, 20, 21, 22, 23, 24, 25, 26}));
    EXPECT_EQ(tree.GetReqNode(1).firstChild, 5u);
    EXPECT_EQ(tree.GetReqNode(1).lastChild, 12u);
    EXPECT_EQ(PayloadOf<Group>(tree, 1)->name, "Model");
    EXPECT_EQ(tree.GetReqNode(5).nextSibling, 9u);
    EXPECT_EQ(tree.GetReqNode(5).firstChild, 40u);
    EXPECT_EQ(tree.GetReqNode(9).previousSibling, 0u);
    ASSERT_NE(PayloadOf<Group>(tree, 9), nullptr);
    EXPECT_EQ(PayloadOf<Group>(tree, 9)->name, "Nine again");
    EXPECT_EQ(PayloadOf<Group>(tree, 9)->translation[0], 30.0f);
    for (uint32_t key = 20; key <= 26; ++key) {
        EXPECT_EQ(tree.GetReqNode(key).data, nullptr) << key;
        EXPECT_EQ(tree.GetReqNode(key).parent, 1u);
    }
    EXPECT_EQ(PayloadOf<Group>(tree, 12)->translation[0], 3.0f);
}

TEST(ZolTree, LightOffsets) {
    TempDir dir;

    // The width of lightOffset follows the file version, not the object versions.
    for (const char* fileVersion : {"0.6", "0.7", "1.1"}) {
        SCOPED_TRACE(fileVersion);
        ModelBuilder model;
        model.wideOffsets = std::string(fileVersion) != "0.6";
        model.Group(Record(1, 0, "Model", "Group", "0.2"), Translated(1));
        model.Group(Record(2, 1, "Second", "Group", "0.2"), Translated(10));
        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, dir.Write(model, fileVersion)));
        EXPECT_EQ(PayloadOf<Group>(tree, 2)->translation[0], 10.0f);
    }

    // Four 40-byte transforms at 0, 40, 80 and 120. A non-zero offset repositions "Light Data",
    // forward or back, also across physical blocks; 0 goes on from where the node before left
    // it. (Behind a jump back, blocks already read stay used up, so "On" runs in one block only.)
    for (size_t pieceSize : {0, 40}) {
        SCOPED_TRACE(pieceSize);
        ModelBuilder model;
        model.Group(Record(1, 0, "Model", "Group", "0.2"), Translated(100));
        model.Group(Record(2, 1, "Forward", "Group", "0.2", 80), Translated(200));
        model.Group(Record(3, 1, "Back", "Group", "0.2", 40), Translated(300));
        if (pieceSize == 0) model.Group(Record(4, 1, "On", "Group", "0.2"), Translated(400));
        ZolFileBuilder file;
        file.Plain("Zol Tree", model.TreeBlock());
        AddPieces(file, "Light Data", model.lightData.Data(), false, pieceSize);
        Tree tree;
        ASSERT_NO_THROW(LoadTree(tree, dir.Write(file)));
        const float expected[] = {100, 300, 200, 300};
        for (uint32_t id = 1; id <= (pieceSize == 0 ? 4u : 3u); ++id) {
            ASSERT_NE(PayloadOf<Group>(tree, id), nullptr);
            EXPECT_EQ(PayloadOf<Group>(tree, id)->translation[0], expected[id - 1]) << id;
        }
    }

    // An offset past the end of "Light Data", or any offset without that block.
    ModelBuilder past;
    past.Group(Record(1, 0, "Model", "Group", "0.2"), Translated(1));
    past.Group(Record(2, 1, "Past", "Group", "0.2", 81));  // the block holds 80
    Tree pastTree;
    const Fail badPosition{1, "Invalid block position"};
    EXPECT_EQ(Failure([&] { LoadTree(pastTree, dir.Write(past)); }), badPosition);
    ModelBuilder none;
    none.Group(Record(1, 0, "Model", "Group", "0.1", 4));
    Tree noneTree;
    EXPECT_EQ(Failure([&] { LoadTree(noneTree, dir.Write(none, "1.1", "none.zol")); }),
              badPosition);
}

TEST(ZolTree, MergesUnderMergeableRoot) {
    TempDir dir;
    GroupData mergeable = Translated(1);
    mergeable.mergeable = true;

    ModelBuilder first;
    TreeRecord root = Record(1, 0, "Model", "Group", "0.4");
    root.firstChild = root.lastChild = 2;
    first.Group(root, mergeable);
    first.Group(Record(2, 1, "Existing", "Group", "0.1"));

    ModelBuilder second;
    TreeRecord top = Record(1, 0, "Added", "Group", "0.4");
    top.firstChild = top.lastChild = 2;
    second.Group(top, Translated(50));
    GeomItem item = second.HeavyItem("Values", 12, {1, 2, 3});
    GeomItem link{.name = "Link", .kind = 12, .link = true, .linkedGeometryId = 2};
    second.Geometry(Record(2, 1, "Mesh", "Geometry", "0.7"), {item, link});
    second.Group(Record(3, 0, "Orphan", "Group", "0.1"));

    // The tree's own file would stay open with open mode 1, so both loads use a file of
    // their own.
    Tree tree;
    ASSERT_NO_THROW(LoadTree(tree, dir.Write(first, "1.1", "first.zol"), 2));
    std::map<uint32_t, uint32_t> idMap;
    int32_t openMode = 2, loadKind = 0;
    ASSERT_NO_THROW(tree.Load(dir.Write(second, "1.1", "second.zol"), idMap, openMode, loadKind));

    EXPECT_EQ(idMap, (std::map<uint32_t, uint32_t>{{3, 1}, {4, 2}, {5, 3}}));
    EXPECT_EQ(tree.GetNextId(), 6u);
    EXPECT_EQ(tree.GetReqNode(1).firstChild, 2u);
    EXPECT_EQ(tree.GetReqNode(1).lastChild, 3u);
    EXPECT_EQ(tree.GetReqNode(2).nextSibling, 3u);

    const auto& added = tree.GetReqNode(3);
    EXPECT_EQ(added.parent, 1u);
    EXPECT_EQ(added.previousSibling, 2u);
    EXPECT_EQ(added.firstChild, 4u);
    ASSERT_NE(PayloadOf<Group>(tree, 3), nullptr);
    EXPECT_EQ(PayloadOf<Group>(tree, 3)->translation[0], 50.0f);

    EXPECT_EQ(tree.GetReqNode(4).parent, 3u);
    EXPECT_EQ(tree.GetReqNode(5).parent, 1u);
    auto* mesh = PayloadOf<MrlZol::Geometry>(tree, 4);
    ASSERT_NE(mesh, nullptr);
    ASSERT_EQ(mesh->data.size(), 2u);
    EXPECT_EQ(mesh->data[1].linkedGeometryId, 4u);
    EXPECT_EQ(mesh->data[1].linkedDataIndex, 0u);
    EXPECT_EQ(mesh->data[1].array.byteSize, 12u);
    // The local file is gone, and with it the hand-over of positions.
    EXPECT_TRUE(mesh->positions.empty());
}

}  // namespace
