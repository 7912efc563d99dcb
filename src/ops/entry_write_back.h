// Storing an object's changed entry in its parent directory.
#pragma once

#include "data/fat_file.h"
#include "storage/fat_status.h"

namespace fatvol {

struct DirItem;

// An object's parent directory and its item there. A directory that was opened by path gets its
// position set to 0 when it is let go.
struct ParentEntry {
    FileReference directory;
    DirItem* item = nullptr;
    bool openedByPath = false;

    ParentEntry() = default;
    ParentEntry(const ParentEntry&) = delete;
    ParentEntry& operator=(const ParentEntry&) = delete;
    ~ParentEntry();
};

// Finds the parent of an object by its key string. STATUS_FILE_CORRUPT_ERROR when the name is not
// in the parent's listing, or the failure of opening the parent.
FatStatus FindParentEntry(const CFatFile& object, ParentEntry* parent);

// Gives an object a changed entry, storing it in its item and in the parent directory, which are
// given together or found by the object's path. The root directory has no entry to store. After a
// failure (of finding the parent, or of the write) object and item have their old entry; they have
// it until the end, because on the way the object's own blocks may have to be written.
FatStatus WriteBackEntry(CFatFile& object, const ShortEntry& entry, CFatFile* parent = nullptr,
                         DirItem* item = nullptr);

}  // namespace fatvol
