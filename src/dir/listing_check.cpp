#include "dir/listing_check.h"

#include <algorithm>
#include <cstring>

#include "data/block_cache.h"
#include "data/fat_file.h"
#include "dir/dir_entry.h"
#include "dir/dir_listing.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

// The item in whose span a slot lies, or null.
const DirItem* ItemAround(const DirListing& listing, std::uint32_t slot) {
    const std::uint32_t below = std::min(slot + 1, MaxRunSlots);
    for (std::uint32_t back = 0; back < below; ++back) {
        if (const DirItem* item = listing.items[slot - back].get()) {
            return item->slot >= slot ? item : nullptr;
        }
    }
    return nullptr;
}

bool IsSlotInStep(const DirListing& listing, std::uint32_t slot, const std::uint8_t* entry) {
    if (slot >= listing.endSlot) {
        return slot > listing.endSlot || entry[0] == EndMark;
    }
    const DirItem* const item = ItemAround(listing, slot);
    const bool isUsed = entry[0] != DeletedMark || item;
    if (entry[0] == EndMark || IsBitSet(listing.slots, slot) != isUsed) {
        return false;
    }
    return !item || item->slot != slot || std::memcmp(&item->entry, entry, DirEntrySize) == 0;
}

bool IsBlockInStep(const CacheBlock& block) {
    const DirListing& listing = *block.owner->listing;
    const auto first = static_cast<std::uint32_t>(block.fileOffset / DirEntrySize);
    const std::uint32_t end =
        std::min(first + CacheBlockSize / DirEntrySize, listing.slots.bitCount);
    for (std::uint32_t slot = first; slot < end; ++slot) {
        const std::uint8_t* const entry = &block.data[std::size_t{slot - first} * DirEntrySize];
        if (!IsSlotInStep(listing, slot, entry)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool AreListingsInStep(const FatVolume& volume) {
    const auto& recency = SharedBlockCache->recency;
    for (auto* link = recency.next; link != &recency; link = link->next) {
        const auto& block = static_cast<const CacheBlock&>(*link);
        if (block.owner->volume == &volume && block.owner->listing && !IsBlockInStep(block)) {
            return false;
        }
    }
    return true;
}

}  // namespace fatvol
