// The id-keyed tree: which ids the current-id setter lets through, how children are linked,
// and what a failed lookup reports.
#include <gtest/gtest.h>

#include <string>

#include "Mrl/Adt/AdtTree.h"
#include "Mrl/Zol/Node.h"

namespace {

using Tree = MrlAdt::Tree<MrlZol::Node*>;

// The kind and the method line of the failure that f throws.
template <class F>
std::string Failed(F&& f) {
    try {
        f();
    } catch (const Mrl::Util::Exception& e) {
        const std::string text = e.what(), label = "     Method : ";
        const size_t at = text.find(label) + label.size();
        return std::to_string(e.GetKind()) + " " + text.substr(at, text.find(" \n", at) - at);
    }
    return "nothing thrown";
}
const std::string kNotFound = "5 MrlAdt::Tree<class MrlZol::Node *>::";

TEST(AdtTree, CurrentIdRules) {
    Tree tree;
    EXPECT_EQ(Failed([&] { tree.SetCurrentId(2); }), kNotFound + "SetCurrentId");
    EXPECT_EQ(tree.GetCurrentId(), 1u) << "a refused id leaves the current one";
    tree.SetCurrentId(0);
    EXPECT_EQ(Failed([&] { tree.GetCurrentNode(); }), kNotFound + "GetCurrentNode");

    // An id in a gap passes the setter but has no entry.
    tree.SetCurrentId(1);
    tree.AddChild();
    tree.AddChild();
    tree.GetEntries().erase(2);
    tree.SetCurrentId(2);
    for (uint32_t id : {0, 2, 4}) {
        EXPECT_EQ(Failed([&] { tree.GetReqNode(id); }), kNotFound + "GetReqNode") << id;
    }
}

TEST(AdtTree, AddChildLinks) {
    Tree tree;
    Tree::Entry& root = tree.GetReqNode(1);
    for (int i = 0; i < 3; ++i) {
        tree.SetCurrentId(1);
        tree.AddChild();
    }
    // The reference taken before the insertions is still the root.
    EXPECT_EQ(root.firstChild, 2u);
    EXPECT_EQ(root.lastChild, 4u);
    for (uint32_t id : {2u, 3u, 4u}) {
        const Tree::Entry& e = tree.GetReqNode(id);
        EXPECT_EQ(e.previousSibling, id == 2 ? 0 : id - 1);
        EXPECT_EQ(e.nextSibling, id == 4 ? 0 : id + 1);
        EXPECT_EQ(e.parent, 1u);
    }
    // Without going back to a parent, children chain downwards.
    tree.AddChild();
    tree.AddChild();
    EXPECT_EQ(tree.GetReqNode(6).parent, 5u);
    EXPECT_EQ(tree.GetReqNode(4).firstChild, 5u);

    // A child of an id that has no entry gets that entry made on the spot.
    tree.GetEntries().erase(3);
    tree.SetCurrentId(3);
    tree.AddChild();
    EXPECT_EQ(tree.GetReqNode(3).firstChild, 7u);
    EXPECT_EQ(tree.GetReqNode(7).parent, 3u);
}

}  // namespace
