// The life of a volume record: from an opened storage to a mounted volume and back.
#pragma once

#include <memory>

#include "data/block_cache.h"
#include "storage/fat_status.h"
#include "storage/storage_io.h"

struct FatVolume;

namespace fatvol {

// Opens a storage and mounts the volume on it. On failure the result is null and the storage has
// been destroyed, after being closed if it could be opened.
std::unique_ptr<FatVolume> MountStorage(StorageOwner storage, void* parameter);

// Brings a volume record with an opened storage to a mounted volume with its root directory
// loaded. What a failed step made is left to AbandonVolume. STATUS_UNRECOGNIZED_VOLUME and
// STATUS_DISK_CORRUPT_ERROR for what cannot be a volume, STATUS_NO_MEMORY, or the failure of a
// read.
FatStatus MountVolume(FatVolume& volume);

// Writes what is pending and closes the storage: FSInfo, the FAT, its second copy, the contents of
// the open objects. Objects that handles still hold are detached. When a block of the FAT cannot
// be written its status is returned and the storage stays open; the volume is then out of use, and
// a second call does the rest. After success the record can be destroyed.
FatStatus UnmountVolume(FatVolume& volume);

// Writes everything pending and keeps the volume mounted: contents of files, FAT, directories, the
// second FAT. False when something could not be written, which stays pending, or was lost before. A
// FAT that cannot be written keeps the directories back, whose entries must not get ahead of it.
bool FlushVolume(FatVolume& volume);

// Detaches every object of a volume, whoever holds it, with its dirty blocks written or discarded.
void DetachObjects(FatVolume& volume, DirtyBlocks dirtyBlocks);

// Frees all that a volume holds without writing anything, and closes the storage.
void AbandonVolume(FatVolume& volume);

}  // namespace fatvol
