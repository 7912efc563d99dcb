// Deleting, renaming and moving by path. The paths are normalised. An object is in use when
// something besides the open-object cache holds it. All of them fail with the status of the path
// lookup when the path is not found, and leave everything as it was when they fail.
#pragma once

#include "storage/fat_status.h"

struct FatVolume;

namespace fatvol {

// Deletes a file or an empty directory. STATUS_FILE_INVALID when it is in use or not empty.
FatStatus DeleteByPath(FatVolume& volume, const char16_t* path);

// Gives an entry another name in its directory. STATUS_DRIVER_INTERNAL_ERROR when the name exists
// there, in any letter case; STATUS_INVALID_PARAMETER when a path would get too long. Objects in
// use are renamed too; they and all open objects below follow.
FatStatus RenameByPath(FatVolume& volume, const char16_t* path, const char16_t* newName);

// Moves an entry to another directory, null for the root, which neither is nor lies below the
// entry. STATUS_FILE_INVALID when either is in use or the destination is no directory;
// STATUS_DRIVER_INTERNAL_ERROR when the name exists there; STATUS_INVALID_PARAMETER when a path
// would get too long. All open objects below follow.
FatStatus MoveByPath(FatVolume& volume, const char16_t* path, const char16_t* destination);

}  // namespace fatvol
