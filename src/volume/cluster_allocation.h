// Taking free clusters and chaining them in the FAT.
#pragma once

#include <cstdint>

#include "storage/fat_status.h"
#include "volume/cluster_bitmap.h"

struct FatVolume;

namespace fatvol {

struct ClusterRunList;

// Takes `count` (at least 1) free clusters and appends them to `target`: one contiguous run
// wherever the search from the hint finds one first, otherwise the free runs from the hint upward.
// Touches no FAT. STATUS_DISK_FULL when fewer are free, STATUS_DISK_CORRUPT_ERROR when the bitmap
// contradicts its count, STATUS_NO_MEMORY; a failure takes no cluster.
FatStatus AllocateClusters(ClusterBitmap& bitmap, std::uint32_t count, ClusterRunList& target);

// Gives the clusters of a list back to the bitmap, run by run. The FAT is the caller's affair.
void ReleaseRuns(ClusterBitmap& bitmap, const ClusterRunList& list);

// Links the clusters of a list in the FAT, in file order, the last one to the end mark. After a
// failure the entries set so far stay set.
FatStatus ChainClusters(FatVolume& volume, const ClusterRunList& list);

// Sets the FAT entries of all clusters of a list to free. After a failure those set so far stay
// set. `tried` is increased for each, the one that failed included.
FatStatus FreeChain(FatVolume& volume, const ClusterRunList& list, std::uint32_t* tried);

// The same for undoing, where a write that fails now is made up for later. False when the entry of
// a cluster could not be read; the others are set all the same.
bool ForceChain(FatVolume& volume, const ClusterRunList& list);
bool ForceFree(FatVolume& volume, const ClusterRunList& list);

}  // namespace fatvol
