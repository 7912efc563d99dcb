#include "dir/dir_change.h"
#include "dir/dir_listing.h"
#include "dir/dir_lookup.h"
#include "ops/change_by_path.h"
#include "ops/path_entry.h"
#include "volume/fat_volume.h"

namespace fatvol {

FatStatus DeleteByPath(FatVolume& volume, const char16_t* path) {
    PathKeys keys;
    MakePathKeys(path, &keys);
    PathEntry entry;
    FatStatus status = FindUnusedEntry(volume, keys, &entry);
    const bool isCached = static_cast<bool>(entry.object);
    if (Succeeded(status) && !isCached) {
        status = OpenItem(volume, keys, *entry.parent.item, &entry.object);
    }
    if (Failed(status)) {
        return status;
    }
    CFatFile& object = *entry.object;
    if (IsDirectory(object) && !IsDirEmpty(object)) {
        return STATUS_FILE_INVALID;
    }
    status = DeleteFileEntry(*entry.parent.directory, object, *entry.parent.item);
    if (Succeeded(status) && isCached) {
        RemoveOpenObject(volume.openObjects, object);
    }
    return status;
}

}  // namespace fatvol
