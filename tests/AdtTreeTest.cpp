// The id-keyed tree: which ids the current-id setter lets through, how children are linked,
// and what a failed lookup reports.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Mrl/Adt/AdtTree.h"
#include "Mrl/Zol/Node.h"
#include "TestSupport.h"

namespace {

using Tree = MrlAdt::Tree<MrlZol::Node*>;
using ZolTest::Failure;

// The kind and description of the failure of f.
std::string Failed(const std::function<void()>& f) {
    auto [kind, description] = Failure(f);
    return std::to_string(kind) + " " + description;
}

TEST(AdtTree, CurrentIdsAndLinks) {
    Tree tree;
    Tree::Entry& root = tree.GetReqNode(1);
    EXPECT_EQ(Failed([&] { tree.SetCurrentId(2); }), "5 Element Not Found");
    EXPECT_EQ(tree.GetCurrentId(), 1u) << "a refused id leaves the current one";
    tree.SetCurrentId(0);
    EXPECT_EQ(Failed([&] { tree.GetCurrentNode(); }), "5 Element Not Found");
    for (int i = 0; i < 3; ++i) {
        tree.SetCurrentId(1);
        tree.AddChild();
    }
    // The reference taken before the insertions is still the root.
    EXPECT_EQ(root.firstChild, 2u);
    EXPECT_EQ(root.lastChild, 4u);
    const Tree::Entry& middle = tree.GetReqNode(3);
    EXPECT_EQ(middle.previousSibling + middle.nextSibling * 10 + middle.parent * 100, 142u);
    // Without going back to a parent, children chain downwards.
    tree.AddChild();
    EXPECT_EQ(tree.GetReqNode(4).firstChild, 5u);

    // An id in a gap passes the setter but has no entry; a child of it makes the entry.
    tree.GetEntries().erase(3);
    tree.SetCurrentId(3);
    for (uint32_t id : {0, 3, 6}) {
        EXPECT_EQ(Failed([&] { tree.GetReqNode(id); }), "5 Element Not Found") << id;
    }
    tree.AddChild();
    EXPECT_EQ(tree.GetReqNode(3).firstChild, 6u);
    EXPECT_EQ(tree.GetReqNode(6).parent, 3u);
}

}  // namespace
