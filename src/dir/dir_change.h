// Changing the entries of a directory, on the medium and in its listing together. The callers make
// sure that a new name is not taken and that a directory to be deleted is empty.
#pragma once

#include <cstdint>

#include "data/fat_file.h"
#include "dir/dir_entry.h"
#include "storage/fat_status.h"
#include "volume/fat_volume.h"

namespace fatvol {

struct DirItem;

// What a new entry holds besides its name and the current time.
struct EntryContent {
    std::uint8_t attributes;
    std::uint32_t sizeBytes;
    std::uint32_t firstCluster;
};

// Writes the entry run of a new name (at most 259 units) and adds its item, which `*item` receives.
// Failures are those of AllocateDirSlots and of the transfers, and STATUS_NO_MEMORY; then the
// directory holds no new name, though it may have been compacted or have grown.
FatStatus CreateDirEntries(CFatFile& directory, const char16_t* name, const EntryContent& content,
                           DirItem** item);

// Byte 0 of each entry of a run before it was marked deleted.
struct SavedFirstBytes {
    std::uint8_t bytes[MaxRunSlots];
};

// Marks the entries of `count` (1 to MaxRunSlots) slots deleted and frees the slots; the item stays
// with the caller. After a failure nothing is changed.
FatStatus DeleteDirEntries(CFatFile& directory, std::uint32_t firstSlot, std::uint32_t count,
                           SavedFirstBytes* saved);

// Deletes an entry that was created and takes its item out of the listing, to undo a creation.
// Failures as for DeleteDirEntries.
FatStatus RemoveEntry(CFatFile& directory, DirItem& item);

// Takes an entry back that was made a moment ago, so that its slots are cached and nothing should
// fail. Should it fail all the same, the volume's state is uncertain.
void UndoEntry(CFatFile& directory, DirItem& item);

// Gives the entry of an object another name, with fresh time stamps. The object's entry and long
// name follow. After a failure the old entry stands as it was, though the directory may have grown.
FatStatus RenameDirEntry(CFatFile& directory, CFatFile& object, DirItem& item,
                         const char16_t* newName);

// Deletes the entry of an object and frees its clusters; the object owns none afterwards. A FAT
// entry that cannot be changed leaves the clusters lost. After a failure nothing is changed.
FatStatus DeleteFileEntry(CFatFile& directory, CFatFile& object, DirItem& item);

// Writes an entry run unchanged to another directory too, with an item of its own. Failures as for
// CreateDirEntries.
FatStatus CopyDirEntry(CFatFile& source, const DirItem& item, CFatFile& destination,
                       DirItem** copy);

// Moves an entry run unchanged to another directory. `repoint` makes the moved object belong to a
// directory and is called with the destination when the run stands in both; its failure takes the
// copy back. After a failure the entry stands where it was.
template <class Repoint>
FatStatus MoveDirEntry(CFatFile& source, DirItem& item, CFatFile& destination, Repoint repoint) {
    DirItem* copy = nullptr;
    FatStatus status = CopyDirEntry(source, item, destination, &copy);
    if (Failed(status)) {
        return status;
    }
    status = repoint(destination);
    if (Succeeded(status)) {
        status = RemoveEntry(source, item);
        if (Failed(status) && Failed(repoint(source))) {
            source.volume->isUncertain = true;
        }
    }
    if (Failed(status)) {
        UndoEntry(destination, *copy);
    }
    return status;
}

}  // namespace fatvol
