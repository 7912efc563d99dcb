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

FatStatus AddDirItem(DirListing& listing, std::unique_ptr<DirItem> item) {
    FatStatus status = InsertKey(listing.nameIndex, *item);
    if (Failed(status)) {
        return status;
    }
    if (item->longEntryCount != 0) {
        item->alias.item = item.get();
        item->alias.key = MakeNameKey(MakeShortKeyString(item->entry.DIR_Name).units);
        status = InsertKey(listing.aliasIndex, item->alias);
        if (Failed(status)) {
            UnlinkKey(listing.nameIndex, *item);
            return status;
        }
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

FatStatus GrowBitmap(Bitmap& slots, std::uint32_t slotCount) {
    auto bits = TryNewArray<std::uint8_t>(BitmapAllocation(slotCount));
    if (!bits) {
        return STATUS_NO_MEMORY;
    }
    if (slots.bits) {
        std::copy_n(slots.bits.get(), slots.byteCount, bits.get());
        // The searches set the bits beyond the old end; they are slots now, and free.
        if (slots.bitCount % 8 != 0) {
            bits[slots.byteCount - 1] &= static_cast<std::uint8_t>((1u << slots.bitCount % 8) - 1);
        }
    }
    slots.bits = std::move(bits);
    return STATUS_SUCCESS;
}

FatStatus GrowItems(DirListing& listing, std::uint32_t slotCount) {
    auto items = TryNewArray<std::unique_ptr<DirItem>>(slotCount);
    if (!items) {
        return STATUS_NO_MEMORY;
    }
    std::move(listing.items.get(), listing.items.get() + listing.capacity, items.get());
    listing.items = std::move(items);
    listing.capacity = slotCount;
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus ResizeDirListing(DirListing& listing, std::uint32_t slotCount) {
    slotCount = std::min(slotCount, MaxDirSlots);
    if (slotCount > listing.capacity) {
        const FatStatus status = GrowItems(listing, slotCount);
        if (Failed(status)) {
            return status;
        }
    }
    if (slotCount > listing.slots.bitCount) {
        const FatStatus status = GrowBitmap(listing.slots, slotCount);
        if (Failed(status)) {
            return status;
        }
    }
    listing.slots.bitCount = slotCount;
    listing.slots.byteCount = (slotCount + 7) / 8;
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

bool IsItemSound(const DirListing& listing, std::uint32_t index) {
    const DirItem& item = *listing.items[index];
    if (FirstSlot(item) != index || item.slot >= listing.slots.bitCount ||
        item.key != MakeNameKey(item.name.get()) ||
        !FindKey(listing.nameIndex, item.key,
                 [&](const KeyNode& node) { return &node == &item; })) {
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
    for (std::uint32_t slot = 0; slot < listing.capacity; ++slot) {
        if (listing.items[slot] && !IsItemSound(listing, slot)) {
            return false;
        }
    }
    return true;
}

}  // namespace fatvol
