#include "ops/key_table.h"

#include "platform/allocation.h"

namespace fatvol {
namespace {

// The chain of a key, or null while a level on the way to it is missing.
KeyNode** FindHead(const KeyTable& table, const NameKey& key) {
    if (!table.levels) {
        return nullptr;
    }
    const KeyTable::Level2& second = table.levels[key.HashA % table.modulus];
    if (!second) {
        return nullptr;
    }
    const KeyTable::Level3& third = second[key.HashB % table.modulus];
    return third ? &third[key.HashC % table.modulus] : nullptr;
}

template <class Entry>
bool EnsureLevel(std::unique_ptr<Entry[]>& level, std::uint32_t count) {
    if (!level) {
        level = TryNewArray<Entry>(count);
    }
    return level != nullptr;
}

}  // namespace

FatStatus InsertKey(KeyTable& table, KeyNode& node) {
    if (!EnsureLevel(table.levels, table.modulus)) {
        return STATUS_NO_MEMORY;
    }
    KeyTable::Level2& second = table.levels[node.key.HashA % table.modulus];
    if (!EnsureLevel(second, table.modulus)) {
        return STATUS_NO_MEMORY;
    }
    KeyTable::Level3& third = second[node.key.HashB % table.modulus];
    if (!EnsureLevel(third, table.modulus)) {
        return STATUS_NO_MEMORY;
    }
    KeyNode** link = &third[node.key.HashC % table.modulus];
    while (*link) {
        link = &(*link)->next;
    }
    *link = &node;
    node.next = nullptr;
    return STATUS_SUCCESS;
}

void UnlinkKey(KeyTable& table, KeyNode& node) {
    KeyNode** link = FindHead(table, node.key);
    while (link && *link) {
        if (*link == &node) {
            *link = node.next;
            node.next = nullptr;
            return;
        }
        link = &(*link)->next;
    }
}

KeyNode* FindChain(const KeyTable& table, const NameKey& key) {
    KeyNode** head = FindHead(table, key);
    return head ? *head : nullptr;
}

}  // namespace fatvol
