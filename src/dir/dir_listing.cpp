#include "dir/dir_listing.h"

#include <algorithm>
#include <cstring>

#include "platform/allocation.h"

namespace fatvol {

DirListing::~DirListing() {
    while (IsLinked(cursors)) {
        Unlink(*cursors.next);
    }
}

ShortKeyString MakeShortKeyString(const std::uint8_t* shortName) {
    ShortKeyString key{};
    for (std::uint32_t i = 0; i < ShortNameSize; ++i) {
        key.units[i / 2] = static_cast<char16_t>(key.units[i / 2] | shortName[i] << (i % 2 * 8));
    }
    return key;
}

std::unique_ptr<DirItem> NewDirItem(const ShortEntry& entry, std::uint32_t slot,
                                    std::uint32_t longEntryCount, const char16_t* keyString) {
    auto item = TryNew<DirItem>();
    if (!item) {
        return nullptr;
    }
    item->key = MakeNameKey(keyString);
    item->entry = entry;
    item->slot = slot;
    item->longEntryCount = longEntryCount;
    item->name.reset(new (std::nothrow) char16_t[item->key.size / 2]);
    if (!item->name) {
        return nullptr;
    }
    std::memcpy(item->name.get(), keyString, item->key.size);
    return item;
}

FatStatus ReserveItem(DirListing& listing, DirItem& item) {
    const FatStatus status = ReserveKey(listing.nameIndex, item.key);
    if (Failed(status) || item.longEntryCount == 0) {
        return status;
    }
    item.alias.item = &item;
    item.alias.key = MakeNameKey(MakeShortKeyString(item.entry.DIR_Name).units);
    return ReserveKey(listing.aliasIndex, item.alias.key);
}

FatStatus AddDirItem(DirListing& listing, std::unique_ptr<DirItem> item) {
    const FatStatus status = ReserveItem(listing, *item);
    if (Failed(status)) {
        return status;
    }
    // The places are there now.
    (void)InsertKey(listing.nameIndex, *item);
    if (item->longEntryCount != 0) {
        (void)InsertKey(listing.aliasIndex, item->alias);
    }
    listing.items[FirstSlot(*item)] = std::move(item);
    return STATUS_SUCCESS;
}

std::unique_ptr<DirItem> RemoveDirItem(DirListing& listing, DirItem& item) {
    UnlinkKey(listing.nameIndex, item);
    UnlinkKey(listing.aliasIndex, item.alias);
    return std::move(listing.items[FirstSlot(item)]);
}

namespace {

// Grows array and bitmap by half at least, so that a directory that grows cluster by cluster is not
// copied each time.
FatStatus GrowCapacity(DirListing& listing, std::uint32_t slotCount) {
    const std::uint32_t capacity =
        std::min(std::max(slotCount, listing.capacity + listing.capacity / 2), MaxDirSlots);
    auto items = TryNewArray<std::unique_ptr<DirItem>>(capacity);
    auto bits = TryNewArray<std::uint8_t>(BitmapAllocation(capacity));
    if (!items || !bits) {
        return STATUS_NO_MEMORY;
    }
    if (listing.capacity != 0) {
        std::move(listing.items.get(), listing.items.get() + listing.capacity, items.get());
        std::copy_n(listing.slots.bits.get(), listing.slots.byteCount, bits.get());
    }
    listing.items = std::move(items);
    listing.slots.bits = std::move(bits);
    listing.capacity = capacity;
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus ResizeDirListing(DirListing& listing, std::uint32_t slotCount) {
    slotCount = std::min(slotCount, MaxDirSlots);
    if (slotCount > listing.capacity) {
        const FatStatus status = GrowCapacity(listing, slotCount);
        if (Failed(status)) {
            return status;
        }
    }
    Bitmap& slots = listing.slots;
    const std::uint32_t oldCount = slots.bitCount;
    slots.bitCount = slotCount;
    slots.byteCount = (slotCount + 7) / 8;
    if (slotCount > oldCount) {
        // The searches set the bits beyond the old end; they are slots now, and free.
        ClearBits(slots, oldCount, slotCount - oldCount);
    }
    listing.endSlot = std::min(listing.endSlot, slotCount);
    return STATUS_SUCCESS;
}

namespace {

// Where an enumeration goes on after its directory's slots have moved: at the entries that it had
// before it, neither skipping nor repeating one.
std::uint32_t MovedCursor(std::uint32_t next, std::uint32_t from, std::uint32_t count,
                          std::uint32_t to) {
    if (next <= to || next > from + count) {
        return next;
    }
    return next <= from ? to : next - (from - to);
}

}  // namespace

void MoveDirItems(DirListing& listing, std::uint32_t from, std::uint32_t count, std::uint32_t to) {
    const std::uint32_t distance = from - to;
    for (std::uint32_t slot = from; slot < from + count; ++slot) {
        if (listing.items[slot]) {
            listing.items[slot]->slot -= distance;
            listing.items[slot - distance] = std::move(listing.items[slot]);
        }
    }
    ClearBits(listing.slots, from, count);
    SetBits(listing.slots, to, count);
    for (auto* link = listing.cursors.next; link != &listing.cursors; link = link->next) {
        auto& cursor = static_cast<DirCursor&>(*link);
        cursor.nextSlot = MovedCursor(cursor.nextSlot, from, count, to);
    }
}

std::uint32_t UsedSlotsEnd(const DirListing& listing) {
    std::uint32_t end = listing.slots.bitCount;
    while (end > 0 && !IsBitSet(listing.slots, end - 1)) {
        --end;
    }
    return end;
}

DirItem* NextDirItem(const DirListing& listing, std::uint32_t fromSlot) {
    for (std::uint32_t slot = fromSlot; slot < listing.capacity; ++slot) {
        if (listing.items[slot]) {
            return listing.items[slot].get();
        }
    }
    return nullptr;
}

namespace {

bool Holds(const KeyTable& table, const KeyNode& wanted) {
    return FindKey(table, wanted.key, [&](const KeyNode& node) { return &node == &wanted; });
}

bool IsItemSound(const DirListing& listing, std::uint32_t index) {
    const DirItem& item = *listing.items[index];
    if (FirstSlot(item) != index || item.slot >= listing.slots.bitCount ||
        item.key != MakeNameKey(item.name.get()) || !Holds(listing.nameIndex, item) ||
        (item.longEntryCount != 0 && !Holds(listing.aliasIndex, item.alias))) {
        return false;
    }
    for (std::uint32_t slot = index; slot <= item.slot; ++slot) {
        if (!IsBitSet(listing.slots, slot) || (slot > index && listing.items[slot])) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool IsSound(const DirListing& listing) {
    if (listing.endSlot > listing.slots.bitCount || UsedSlotsEnd(listing) > listing.endSlot) {
        return false;
    }
    if (listing.capacity > MaxDirSlots || listing.slots.bitCount > listing.capacity ||
        listing.slots.byteCount != (listing.slots.bitCount + 7) / 8) {
        return false;
    }
    std::uint32_t items = 0;
    std::uint32_t aliases = 0;
    for (std::uint32_t slot = 0; slot < listing.capacity; ++slot) {
        if (listing.items[slot]) {
            ++items;
            aliases += listing.items[slot]->longEntryCount != 0 ? 1u : 0u;
            if (!IsItemSound(listing, slot)) {
                return false;
            }
        }
    }
    return CountKeys(listing.nameIndex) == items && CountKeys(listing.aliasIndex) == aliases;
}

}  // namespace fatvol
