#pragma once
#include <cstdint>
#include <map>

#include "Mrl/Util/Exception.h"

namespace MrlAdt {

template <class T>
struct TreeEntry {
    uint32_t id = 0;
    uint32_t parent = 0;
    uint32_t previousSibling = 0;
    uint32_t nextSibling = 0;
    uint32_t firstChild = 0;
    uint32_t lastChild = 0;
    T data{};
};

// A tree held in an ordered map from id to entry; the links between entries are ids, so
// the whole tree reads from flat records. Id 0 is no entry; the root is id 1. Map nodes keep
// their address while the tree grows.
template <class T>
class Tree {
public:
    using Entry = TreeEntry<T>;

    Tree() {
        Entry root;
        root.id = 1;
        entries.emplace(1u, root);
    }
    virtual ~Tree() = default;

    void SetCurrentId(uint32_t id) {
        if (id >= nextId) Fail("MrlAdt::Tree<class MrlZol::Node *>::SetCurrentId");
        currentId = id;
    }

    Entry& GetCurrentNode() {
        auto found = entries.find(currentId);
        if (found == entries.end()) Fail("MrlAdt::Tree<class MrlZol::Node *>::GetCurrentNode");
        return found->second;
    }

    Entry& GetReqNode(uint32_t id) {
        auto found = entries.find(id);
        if (found == entries.end()) Fail("MrlAdt::Tree<class MrlZol::Node *>::GetReqNode");
        return found->second;
    }

    void AddChild() {
        uint32_t id = nextId++;
        Entry& current = entries[currentId];
        current.id = currentId;
        Entry child;
        child.id = id;
        child.parent = currentId;
        child.previousSibling = current.lastChild;
        if (current.lastChild != 0) {
            entries[current.lastChild].nextSibling = id;
        } else {
            current.firstChild = id;
        }
        current.lastChild = id;
        entries[id] = child;
        currentId = id;
    }

    std::map<uint32_t, Entry>& GetEntries() { return entries; }
    const std::map<uint32_t, Entry>& GetEntries() const { return entries; }
    uint32_t GetNextId() const { return nextId; }
    uint32_t GetCurrentId() const { return currentId; }

protected:
    [[noreturn]] static void Fail(const char* method) {
        MRL_THROW(Mrl::Util::Kind::ElementNotFound, nullptr, "Mrl/Adt/AdtTree", method);
    }

    std::map<uint32_t, Entry> entries;
    uint32_t nextId = 2;
    uint32_t currentId = 1;
};

}  // namespace MrlAdt
