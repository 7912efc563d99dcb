// Changing how many clusters a file or directory owns.
#pragma once

#include <cstdint>

#include "storage/fat_status.h"

namespace fatvol {

class CFatFile;
struct DirItem;

// Sets the size in bytes. A file gets or loses clusters as needed and its entry is stored in its
// parent directory, which is found by the object's path unless it is given with the object's item.
// A directory is rounded up to whole clusters; its new space reads as zero and its listing follows.
//
// STATUS_INVALID_PARAMETER for a size that does not fit 32 bits when rounded up, STATUS_DISK_FULL
// when clusters are missing or a directory would exceed MaxDirSlots, STATUS_FILE_INVALID for a
// directory that has entries beyond the new size, STATUS_NO_MEMORY, or the failure of a transfer or
// of finding the parent. After a failure everything is as it was; clusters whose FAT entries cannot
// be restored stay taken.
FatStatus ResizeFile(CFatFile& object, std::uint32_t sizeBytes, CFatFile* parent, DirItem* item);

}  // namespace fatvol
