#include "ops/key_table.h"

#include <utility>

#include "platform/allocation.h"

namespace fatvol {
namespace {

// The last node of the chain of a key, or null while a level on the way to it is missing.
KeyNode** FindLast(const KeyTable& table, const NameKey& key) {
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

FatStatus ReserveKey(KeyTable& table, const NameKey& key) {
    if (!EnsureLevel(table.levels, table.modulus)) {
        return STATUS_NO_MEMORY;
    }
    KeyTable::Level2& second = table.levels[key.HashA % table.modulus];
    if (!EnsureLevel(second, table.modulus)) {
        return STATUS_NO_MEMORY;
    }
    return EnsureLevel(second[key.HashB % table.modulus], table.modulus) ? STATUS_SUCCESS
                                                                         : STATUS_NO_MEMORY;
}

FatStatus InsertKey(KeyTable& table, KeyNode& node) {
    const FatStatus status = ReserveKey(table, node.key);
    if (Failed(status)) {
        return status;
    }
    KeyNode*& last = *FindLast(table, node.key);
    node.next = last ? std::exchange(last->next, &node) : &node;
    last = &node;
    return STATUS_SUCCESS;
}

void UnlinkKey(KeyTable& table, KeyNode& node) {
    KeyNode** const last = FindLast(table, node.key);
    if (!last || !*last) {
        return;
    }
    KeyNode* previous = *last;
    while (previous->next != &node) {
        previous = previous->next;
        if (previous == *last) {
            return;
        }
    }
    if (previous == &node) {
        *last = nullptr;
    } else {
        previous->next = node.next;
        *last = *last == &node ? previous : *last;
    }
    node.next = nullptr;
}

KeyNode* FindChain(const KeyTable& table, const NameKey& key) {
    KeyNode** last = FindLast(table, key);
    return last ? *last : nullptr;
}

namespace {

std::uint32_t CountChain(const KeyNode* last) {
    std::uint32_t count = 0;
    for (const KeyNode* node = last; node; node = node->next != last ? node->next : nullptr) {
        ++count;
    }
    return count;
}

}  // namespace

std::uint32_t CountKeys(const KeyTable& table) {
    std::uint32_t count = 0;
    for (std::uint32_t a = 0; table.levels && a < table.modulus; ++a) {
        const KeyTable::Level2& second = table.levels[a];
        for (std::uint32_t b = 0; second && b < table.modulus; ++b) {
            const KeyTable::Level3& third = second[b];
            for (std::uint32_t c = 0; third && c < table.modulus; ++c) {
                count += CountChain(third[c]);
            }
        }
    }
    return count;
}

}  // namespace fatvol
