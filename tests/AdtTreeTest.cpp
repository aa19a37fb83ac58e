// The id-keyed tree: which ids the current-id setter lets through, how children are linked,
// and what a failed lookup reports.
#include <gtest/gtest.h>

#include <string>

#include "Mrl/Adt/AdtTree.h"
#include "Mrl/Zol/Node.h"

namespace {

using Tree = MrlAdt::Tree<MrlZol::Node*>;

// The method named by the text of an "Element Not Found" failure, or why there is none.
template <class F>
std::string FailedMethod(F&& f) {
    try {
        f();
    } catch (const Mrl::Util::Exception& e) {
        if (e.GetKind() != 5) return "kind " + std::to_string(e.GetKind());
        const std::string text = e.what(),
                          label = "     Method : MrlAdt::Tree<class MrlZol::Node *>::";
        EXPECT_NE(text.find("       File : Mrl/Adt/AdtTree \n"), std::string::npos) << text;
        size_t at = text.find(label);
        if (at == std::string::npos) return text;
        at += label.size();
        return text.substr(at, text.find(" \n", at) - at);
    }
    return "nothing thrown";
}

TEST(AdtTree, CurrentIdRules) {
    Tree tree;
    EXPECT_EQ(tree.GetCurrentNode().id, 1u);
    EXPECT_EQ(FailedMethod([&] { tree.SetCurrentId(2); }), "SetCurrentId");
    EXPECT_EQ(tree.GetCurrentId(), 1u) << "a refused id leaves the current one";
    tree.SetCurrentId(0);
    EXPECT_EQ(FailedMethod([&] { tree.GetCurrentNode(); }), "GetCurrentNode");

    // An id in a gap passes the setter but has no entry.
    tree.SetCurrentId(1);
    tree.AddChild();
    tree.AddChild();
    tree.GetEntries().erase(2);
    tree.SetCurrentId(2);
    for (uint32_t id : {0, 2, 4})
        EXPECT_EQ(FailedMethod([&] { tree.GetReqNode(id); }), "GetReqNode");
    EXPECT_EQ(tree.GetReqNode(3).parent, 2u);
}

TEST(AdtTree, AddChildLinks) {
    Tree tree;
    Tree::Entry& root = tree.GetReqNode(1);
    for (int i = 0; i < 3; ++i) {
        tree.SetCurrentId(1);
        tree.AddChild();
    }
    EXPECT_EQ(tree.GetNextId(), 5u);
    EXPECT_EQ(tree.GetCurrentId(), 4u);
    // The reference taken before the insertions is still the root.
    EXPECT_EQ(root.firstChild, 2u);
    EXPECT_EQ(root.lastChild, 4u);
    for (uint32_t id : {2u, 3u, 4u}) {
        const Tree::Entry& e = tree.GetReqNode(id);
        EXPECT_EQ(e.previousSibling, id == 2 ? 0 : id - 1);
        EXPECT_EQ(e.nextSibling, id == 4 ? 0 : id + 1);
        EXPECT_EQ(e.parent, 1u);
        EXPECT_EQ(e.firstChild, 0u);
    }
    // Without going back to a parent, children chain downwards.
    tree.AddChild();
    tree.AddChild();
    EXPECT_EQ(tree.GetReqNode(6).parent, 5u);
    EXPECT_EQ(tree.GetReqNode(4).firstChild, 5u);
    EXPECT_EQ(tree.GetReqNode(5).lastChild, 6u);

    // A child of an id that has no entry gets that entry made on the spot.
    tree.GetEntries().erase(3);
    tree.SetCurrentId(3);
    tree.AddChild();
    EXPECT_EQ(tree.GetReqNode(3).firstChild, 7u);
    EXPECT_EQ(tree.GetReqNode(7).parent, 3u);
    EXPECT_EQ(tree.GetEntries().size(), 7u);
}

}  // namespace
