#include "ops/entry_write_back.h"

#include <string_view>

#include "dir/dir_listing.h"
#include "dir/dir_lookup.h"
#include "dir/dir_slots.h"
#include "ops/path_lookup.h"
#include "volume/fat_volume.h"

namespace fatvol {

ParentEntry::~ParentEntry() {
    if (openedByPath && directory) {
        directory->position = 0;
    }
}

FatStatus FindParentEntry(const CFatFile& object, ParentEntry* parent) {
    if (!object.keyString) {
        return STATUS_FILE_CORRUPT_ERROR;
    }
    FatVolume& volume = *object.volume;
    const std::u16string_view path(object.keyString.get());
    const std::size_t separator = path.rfind(u'\\');
    const char16_t* name = object.keyString.get();
    if (separator == path.npos) {
        parent->directory = FileReference::To(*volume.rootDirectory);
    } else {
        char16_t parentPath[PathBufferUnits];
        path.copy(parentPath, separator);
        parentPath[separator] = 0;
        const FatStatus status = OpenByPath(volume, parentPath, &parent->directory);
        if (Failed(status)) {
            return status;
        }
        parent->openedByPath = true;
        name += separator + 1;
    }
    parent->item =
        IsDirectory(*parent->directory) ? FindDirItem(*parent->directory, name) : nullptr;
    return parent->item ? STATUS_SUCCESS : STATUS_FILE_CORRUPT_ERROR;
}

namespace {

FatStatus StoreEntry(CFatFile& object, const ShortEntry& entry, CFatFile& parent, DirItem& item) {
    const FatStatus status = WriteDirSlots(parent, item.slot, 1, &entry);
    if (Succeeded(status)) {
        object.entry = entry;
        item.entry = entry;
    }
    return status;
}

}  // namespace

FatStatus WriteBackEntry(CFatFile& object, const ShortEntry& entry, CFatFile* parent,
                         DirItem* item) {
    if (&object == object.volume->rootDirectory) {
        object.entry = entry;
        return STATUS_SUCCESS;
    }
    if (parent) {
        return StoreEntry(object, entry, *parent, *item);
    }
    ParentEntry found;
    const FatStatus status = FindParentEntry(object, &found);
    return Failed(status) ? status : StoreEntry(object, entry, *found.directory, *found.item);
}

}  // namespace fatvol
