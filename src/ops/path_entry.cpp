#include "ops/path_entry.h"

#include "volume/fat_volume.h"

namespace fatvol {

CFatFile* TouchCached(FatVolume& volume, const PathKeys& keys) {
    CFatFile* open = LookupOpenObject(volume, keys);
    if (open) {
        TouchOpenObject(volume.openObjects, *open);
    }
    return open;
}

FatStatus FindEntry(FatVolume& volume, PathKeys& keys, CFatFile* open, PathEntry* entry) {
    if (!open) {
        return FindPathEntry(volume, keys, &entry->parent.directory, &entry->parent.item);
    }
    entry->object = FileReference::To(*open);
    return FindParentEntry(*open, &entry->parent);
}

FatStatus FindUnusedEntry(FatVolume& volume, PathKeys& keys, PathEntry* entry) {
    CFatFile* open = TouchCached(volume, keys);
    return open && IsInUse(*open) ? STATUS_FILE_INVALID : FindEntry(volume, keys, open, entry);
}

}  // namespace fatvol
