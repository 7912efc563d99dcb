// A three-level hash table of nodes that carry a NameKey. The nodes live in their owners, which
// unlink them before they go; the table owns its levels only.
//
// Invariants:
//  1. A node stands in exactly the chain that its three hashes modulo `modulus` lead to.
//  2. Within a chain nodes stand in the order of their insertion.
#pragma once

#include <cstdint>
#include <memory>

#include "ops/name_key.h"
#include "storage/fat_status.h"

namespace fatvol {

struct KeyNode {
    NameKey key;
    KeyNode* next = nullptr;
};

struct KeyTable {
    using Level3 = std::unique_ptr<KeyNode*[]>;
    using Level2 = std::unique_ptr<Level3[]>;
    using Level1 = std::unique_ptr<Level2[]>;

    explicit KeyTable(std::uint32_t levelSize) : modulus(levelSize) {}

    // Null until the first insertion; so are the arrays below until needed. A third-level entry
    // points at the last node of its chain, whose next is the first one.
    Level1 levels;
    std::uint32_t modulus;
};

// Makes the levels that lead to the chain of a key, so that inserting it cannot fail.
// STATUS_NO_MEMORY changes nothing that can be observed.
FatStatus ReserveKey(KeyTable& table, const NameKey& key);

// Appends a node to the chain of its key. STATUS_NO_MEMORY leaves the node outside.
FatStatus InsertKey(KeyTable& table, KeyNode& node);

// Takes a node out; nothing happens when it is not in the table.
void UnlinkKey(KeyTable& table, KeyNode& node);

// The number of nodes in a table.
std::uint32_t CountKeys(const KeyTable& table);

// The last node of the chain that holds the nodes of a key; null when there is none.
KeyNode* FindChain(const KeyTable& table, const NameKey& key);

// The first node with this key whose owner's text is the one meant, or null.
template <class IsMeant>
KeyNode* FindKey(const KeyTable& table, const NameKey& key, IsMeant isMeant) {
    KeyNode* const last = FindChain(table, key);
    for (KeyNode* node = last; node;) {
        node = node->next;
        if (node->key == key && isMeant(*node)) {
            return node;
        }
        if (node == last) {
            break;
        }
    }
    return nullptr;
}

}  // namespace fatvol
