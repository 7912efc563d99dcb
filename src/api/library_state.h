// What the library holds for the whole process, and the checks with which every exported function
// begins.
#pragma once

#include <memory>

#include "api/handle_table.h"
#include "data/block_cache.h"
#include "data/buffer_pool.h"
#include "data/fat_file.h"
#include "data/file_data.h"
#include "dir/dir_listing.h"

struct FatVolume;

namespace fatvol {

// An enumeration under way. The cursor is registered in the directory's listing.
struct FindRecord {
    FileReference directory;
    DirCursor cursor;
};

using FileHandleTable = HandleTable<FileReference, 160>;
using FindHandleTable = HandleTable<std::unique_ptr<FindRecord>, 32>;

// Invariants:
//  1. currentVolume is null or in the chain of mounted volumes.
//  2. Between calls an object has a reference for each handle and find record on it, one for the
//     open-object cache it is in, and one for being a root directory.
//  3. The cursor of a find record is registered in the listing of its directory, unless that is
//     detached.
struct LibraryState {
    std::unique_ptr<BufferPool> runArrayPool;
    std::unique_ptr<BlockCache> blockCache;
    std::unique_ptr<BufferPool> indexNodePool;
    std::unique_ptr<TransferRun[]> transferRunTable;
    FatVolume* currentVolume = nullptr;         // one of the mounted ones, or null
    std::unique_ptr<FatVolume> mountedVolumes;  // a chain through nextMounted
    FileHandleTable files;
    FindHandleTable finds;
};

// Null outside Fat_LibInitialize .. Fat_LibTerminate. Never destroyed by the end of the process: a
// host's own static objects may still unmount and terminate then, and if none does, the storage
// objects of its volumes are host code that may be gone.
extern LibraryState* Library;

// Makes the library's state with caches and tables. False, with nothing made, when memory is
// short.
bool CreateLibrary();

// Gives mounted volumes up and frees everything.
void DestroyLibrary();

// Whether exported functions can work: between initialising and terminating, and not called by host
// code that the library itself has called.
bool IsLibraryReady();

// Whether the pointer is a mounted volume, be it in use or half unmounted.
bool IsMountedVolume(const FatVolume* volume);

// Takes ownership of a mounted volume and makes it the current one.
void AdoptVolume(std::unique_ptr<FatVolume> volume);

// Takes a mounted volume out of the chain; there is no current volume afterwards if it was that.
std::unique_ptr<FatVolume> DismissVolume(const FatVolume& volume);

// The current volume if file functions can use it, else null.
FatVolume* CurrentVolume();

// The same for functions that change the volume, which may refuse that.
FatVolume* ChangeableVolume();

// The object of a file handle, or null. Every function on a handle needs a current volume, and an
// object whose own volume is in use.
CFatFile* FileOf(int handle);
CFatFile* ChangeableFileOf(int handle);  // null also when its volume refuses changes

// The record of a find handle under the same conditions, or null.
FindRecord* FindRecordOf(int handle);

// Whether a file or find handle can be closed: an occupied one, while there is a current volume.
bool CanCloseFile(int handle);
bool CanCloseFind(int handle);

// Closes what a handle held: the object's position becomes 0, and the cache may evict it.
void LetGo(FileReference file);

// Whether the invariants of everything that the library holds hold: for tests.
bool IsLibrarySound();

}  // namespace fatvol
