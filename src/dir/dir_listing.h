// The parsed form of a directory: what every lookup, enumeration and search for free slots works
// on, so that the directory is read once. It is kept in step with the medium by every change.
//
// Invariants:
//  1. items[first slot of a run] owns the item of the run; every other place is null.
//  2. nameIndex holds exactly the items of the array, and aliasIndex those of them that have a long
//     name, under their short names.
//  3. A slot's bit is set when the slot holds an entry that is neither free nor at or after the end
//     mark, whether it has an item or not, and for a free slot inside the span of an item.
//  4. slots.bitCount and capacity are at most MaxDirSlots.
//  5. endSlot is the slot of the end mark, or slots.bitCount when there is none; slots from there
//     on are free and may hold anything behind the mark.
#pragma once

#include <cstdint>
#include <memory>

#include "dir/dir_entry.h"
#include "ops/key_table.h"
#include "platform/intrusive_list.h"
#include "storage/fat_status.h"
#include "volume/bitmap.h"

namespace fatvol {

inline constexpr std::uint32_t NameIndexModulus = 41;

struct DirItem;

// The short name of an item that has a long name too, and the way back to the item.
struct AliasNode : KeyNode {
    const DirItem* item = nullptr;
};

// One name of a directory: a run of entries. The node carries the key of the key string.
struct DirItem : KeyNode {
    // The long name of a run with long-name entries, otherwise the short-name key string.
    // Zero-terminated.
    std::unique_ptr<char16_t[]> name;
    ShortEntry entry{};
    std::uint32_t slot = 0;  // of the short entry
    // Long-name entries in front of it, with deleted ones that another system left among them.
    std::uint32_t longEntryCount = 0;
    AliasNode alias;
};

inline std::uint32_t FirstSlot(const DirItem& item) {
    return item.slot - item.longEntryCount;
}

// The units of an item's key string, without the terminating zero.
inline std::uint32_t NameLength(const DirItem& item) {
    return item.key.size / 2 - 1;
}

struct DirCursorTag;

// A place in an enumeration: the slot from which it goes on. Cursors are registered in the listing
// so that they follow entries that move.
struct DirCursor : ListNode<DirCursorTag> {
    std::uint32_t nextSlot = 0;
};

struct DirListing {
    std::uint32_t capacity = 0;
    std::unique_ptr<std::unique_ptr<DirItem>[]> items;  // by slot
    std::uint8_t volumeLabel[ShortNameSize] = {' ', ' ', ' ', ' ', ' ', ' ',
                                               ' ', ' ', ' ', ' ', ' '};
    Bitmap slots;  // set: in use
    std::uint32_t endSlot = 0;
    KeyTable nameIndex{NameIndexModulus};
    KeyTable aliasIndex{NameIndexModulus};
    ListNode<DirCursorTag> cursors;

    DirListing() = default;
    ~DirListing();  // unlinks the cursors that are left
};

// The key string of a short name: its 11 bytes and three zero bytes as 7 little-endian units.
struct ShortKeyString {
    char16_t units[7];
};
ShortKeyString MakeShortKeyString(const std::uint8_t* shortName);

// A new item, in no listing yet, with a copy of the zero-terminated key string; null when there is
// no memory.
std::unique_ptr<DirItem> NewDirItem(const ShortEntry& entry, std::uint32_t slot,
                                    std::uint32_t longEntryCount, const char16_t* keyString);

// Puts an item at its first slot, which must lie within the capacity and be free, and into the
// indexes. STATUS_NO_MEMORY changes nothing and destroys the item. An item that was in the listing
// before can always be added again.
FatStatus AddDirItem(DirListing& listing, std::unique_ptr<DirItem> item);

// Makes the places of an item in the indexes, so that adding it cannot fail. STATUS_NO_MEMORY.
FatStatus ReserveItem(DirListing& listing, DirItem& item);

// Takes an item out of array and indexes and hands it over.
std::unique_ptr<DirItem> RemoveDirItem(DirListing& listing, DirItem& item);

// Sets the number of slots, MaxDirSlots at the most; new ones are free. STATUS_NO_MEMORY leaves the
// number as it was. The array never shrinks.
FatStatus ResizeDirListing(DirListing& listing, std::uint32_t slotCount);

// Moves the items whose runs start in `count` slots from `from` on to the slots from `to` (below
// `from`) on, with the bits of the slots. Cursors follow the entries in front of which they stand.
void MoveDirItems(DirListing& listing, std::uint32_t from, std::uint32_t count, std::uint32_t to);

// One past the last slot in use; 0 when none is.
std::uint32_t UsedSlotsEnd(const DirListing& listing);

// The item at the first occupied place at or after a slot; null when there is none.
DirItem* NextDirItem(const DirListing& listing, std::uint32_t fromSlot);

// Whether the invariants above hold.
bool IsSound(const DirListing& listing);

}  // namespace fatvol
