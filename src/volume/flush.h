// The parts of flushing a volume that unmounting shares.
#pragma once

#include "storage/fat_status.h"

struct FatVolume;

namespace fatvol {

// Links the clusters by which directories have grown into their chains on the volume, after the
// contents of these clusters and the rest of the FAT have been written: a loss of power must not
// leave a directory with a chain that breaks off or that shows what stood there before. Writes
// nothing when no directory has grown. After a failure they count as not linked yet.
FatStatus LinkGrownDirectories(FatVolume& volume);

// Marks the counts of the FSInfo sector unknown, where there is one.
FatStatus ResetFsInfo(FatVolume& volume);

// Brings the second FAT up to date; a volume with a single FAT has none.
FatStatus CopyFatToSecond(FatVolume& volume);

}  // namespace fatvol
