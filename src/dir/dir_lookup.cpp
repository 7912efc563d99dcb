#include "dir/dir_lookup.h"

#include <cstring>

#include "data/fat_file.h"
#include "dir/dir_listing.h"
#include "dir/entry_name.h"
#include "dir/upcase.h"

namespace fatvol {
namespace {

DirItem* FindLongItem(const CFatFile& directory, const char16_t* name) {
    const NameKey key = MakeNameKey(name);
    KeyNode* node = FindKey(directory.listing->nameIndex, key, [&](const KeyNode& candidate) {
        const auto& item = static_cast<const DirItem&>(candidate);
        return item.longEntryCount != 0 && EqualFolded(item.name.get(), name, NameLength(item));
    });
    return static_cast<DirItem*>(node);
}

}  // namespace

DirItem* FindShortItem(const CFatFile& directory, const std::uint8_t* shortName) {
    const NameKey key = MakeNameKey(MakeShortKeyString(shortName).units);
    KeyNode* node = FindKey(directory.listing->nameIndex, key, [&](const KeyNode& candidate) {
        const auto& item = static_cast<const DirItem&>(candidate);
        return item.longEntryCount == 0 && HasShortName(item.entry, shortName);
    });
    return static_cast<DirItem*>(node);
}

bool IsShortNameTaken(const CFatFile& directory, const std::uint8_t* shortName) {
    const NameKey key = MakeNameKey(MakeShortKeyString(shortName).units);
    return FindShortItem(directory, shortName) ||
           FindKey(directory.listing->aliasIndex, key, [&](const KeyNode& candidate) {
               return HasShortName(static_cast<const AliasNode&>(candidate).item->entry, shortName);
           });
}

DirItem* FindDirItem(const CFatFile& directory, const char16_t* name) {
    const ParsedName parsed = ParseEntryName(name);
    if (parsed.longLength == 0 && parsed.HasShortForm()) {
        if (DirItem* item = FindShortItem(directory, parsed.shortForm)) {
            return item;
        }
    }
    return *name != 0 ? FindLongItem(directory, name) : nullptr;
}

bool IsDirEmpty(const CFatFile& directory) {
    const DirListing& listing = *directory.listing;
    if (DataSize(directory) / DirEntrySize > MaxDirSlots && listing.endSlot == MaxDirSlots) {
        return false;  // there may be entries beyond those that were read
    }
    const DirItem* item = NextDirItem(listing, 0);
    while (item && (HasShortName(item->entry, DotName) || HasShortName(item->entry, DotDotName))) {
        item = NextDirItem(listing, item->slot + 1);
    }
    return item == nullptr;
}

}  // namespace fatvol
