#include <string_view>

#include "dir/dir_change.h"
#include "dir/dir_listing.h"
#include "dir/dir_lookup.h"
#include "ops/cache_key.h"
#include "ops/change_by_path.h"
#include "ops/path_entry.h"
#include "volume/fat_volume.h"
#include "volume/flush.h"

namespace fatvol {
namespace {

// The path of a new name beside a path's last component.
struct SiblingPath {
    char16_t units[2 * PathBufferUnits];
    std::size_t length;

    SiblingPath(std::u16string_view path, std::u16string_view newName) {
        const std::size_t parentLength = path.rfind(u'\\') + 1;  // 0 without a separator
        path.copy(units, parentLength);
        newName.copy(units + parentLength, newName.size());
        length = parentLength + newName.size();
    }
    std::u16string_view View() const { return {units, length}; }
};

// An object that is not open is made for the operation only, without a listing.
FatStatus InitClosedObject(FatVolume& volume, PathEntry& entry) {
    entry.object = NewFatFile();
    if (!entry.object) {
        return STATUS_NO_MEMORY;
    }
    const FatStatus status = InitFromItem(*entry.object, volume, *entry.parent.item);
    return Failed(status) && status != STATUS_NO_MEMORY ? STATUS_FILE_CORRUPT_ERROR : status;
}

}  // namespace

FatStatus RenameByPath(FatVolume& volume, const char16_t* path, const char16_t* newName) {
    PathKeys keys;
    MakePathKeys(path, &keys);
    PathEntry entry;
    FatStatus status = FindEntry(volume, keys, TouchCached(volume, keys), &entry);
    if (Failed(status)) {
        return status;
    }
    CFatFile& directory = *entry.parent.directory;
    if (FindDirItem(directory, newName)) {
        return STATUS_DRIVER_INTERNAL_ERROR;
    }
    const SiblingPath newPath(path, newName);
    Rekeying rekeying;
    status = LinkIfManyWait(volume);
    if (Succeeded(status)) {
        status = rekeying.Prepare(volume, path, newPath.View());
    }
    if (Succeeded(status) && !entry.object) {
        status = InitClosedObject(volume, entry);
    }
    if (Succeeded(status)) {
        status = RenameDirEntry(directory, *entry.object, *entry.parent.item, newName);
    }
    if (Succeeded(status)) {
        rekeying.Apply(volume);
    }
    return status;
}

}  // namespace fatvol
