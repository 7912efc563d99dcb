// The entry that a path names, for operations that change it.
#pragma once

#include "ops/entry_write_back.h"
#include "ops/path_lookup.h"
#include "storage/fat_status.h"

namespace fatvol {

// An entry with its parent directory, and its object when it was open already.
struct PathEntry {
    ParentEntry parent;
    FileReference object;  // empty when the path is not cached
};

// Whether something besides the open-object cache holds a cached object.
inline bool IsInUse(const CFatFile& cached) {
    return cached.refCount > 1;
}

// Finds the entry of a path whose cached object, if there is one, is `open`. Failures are those of
// FindParentEntry and FindPathEntry.
FatStatus FindEntry(FatVolume& volume, PathKeys& keys, CFatFile* open, PathEntry* entry);

// The same for an operation that an object in use refuses: STATUS_FILE_INVALID then.
FatStatus FindUnusedEntry(FatVolume& volume, PathKeys& keys, PathEntry* entry);

// The cached object of a path, made the most recently used one, or null.
CFatFile* TouchCached(FatVolume& volume, const PathKeys& keys);

}  // namespace fatvol
