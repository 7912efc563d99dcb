// The parts of flushing a volume that unmounting shares.
#pragma once

#include <cstdint>

#include "storage/fat_status.h"

struct FatVolume;

namespace fatvol {

// Writes the FAT and the directories so that a loss of power, or a write that fails, leaves no
// entry ahead of what it leads to: contents of new clusters, the FAT without the links to them, the
// directories from the deepest up, and the links at last, but those that would lead to what could
// not be written. The status is that of the FAT; after a failure directories may not have been
// written, or links. `allWritten` tells whether directories and links were too. What was not
// written is written by the next call.
FatStatus FlushDirectories(FatVolume& volume, bool* allWritten);

// How many directories have grown and wait for the link to their new clusters.
std::uint32_t CountGrownDirectories(FatVolume& volume);

// Room for more of them, before a change that may let directories grow: when so many wait that they
// would fill the open-object cache, what they wait for is written. Fails when as many go on
// waiting, or the volume turns out uncertain; the next call tries again. When some do, the next
// flush tells.
FatStatus LinkIfManyWait(FatVolume& volume);

// Sets these links in the FAT as it is cached. False when that cannot be read for one of them,
// which then goes on waiting.
bool LinkGrownDirectories(FatVolume& volume);

// Marks the counts of the FSInfo sector unknown, where there is one.
FatStatus ResetFsInfo(FatVolume& volume);

// Brings the second FAT up to date; a volume with a single FAT has none.
FatStatus CopyFatToSecond(FatVolume& volume);

}  // namespace fatvol
