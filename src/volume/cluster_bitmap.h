// The free clusters of a volume, in memory only: the FAT stays the stored truth.
//
// Invariants:
//  1. map has one bit per cluster number 0 to cluster count + 1; bits 0 and 1 are set.
//  2. freeCount is the number of clear bits.
//  3. No cluster below hint is free.
//  4. Clusters above lastLinkable have their bit set.
//  5. The FAT entry of a cluster whose bit is clear is free. (The reverse fails for clusters that
//     an undo had to leave behind.)
#pragma once

#include <cstdint>

#include "storage/fat_status.h"
#include "volume/bitmap.h"

struct FatVolume;

namespace fatvol {

struct ClusterBitmap {
    Bitmap map;
    std::uint32_t hint = 2;       // cluster where the next search starts
    std::uint32_t freeCount = 0;  // clusters
    // The highest cluster number that a link of this FAT type can hold without reading as a mark.
    // Clusters above it exist on overlarge volumes but cannot be chained, so they are never free.
    std::uint32_t lastLinkable = 0;
};

// Builds the bitmap of a volume whose FAT cache is set up by reading the whole FAT from its end.
// On failure the bitmap is empty.
FatStatus BuildClusterBitmap(FatVolume& volume);

// Marks `count` free clusters from `first` on as used. The caller moves the hint.
void TakeClusters(ClusterBitmap& bitmap, std::uint32_t first, std::uint32_t count);

// Marks `count` clusters from `first` on as free and lowers the hint to them. Those above
// lastLinkable stay as they are.
void ReleaseClusters(ClusterBitmap& bitmap, std::uint32_t first, std::uint32_t count);

// Whether the invariants above hold; of the FAT, what is cached is compared.
bool IsSound(const ClusterBitmap& bitmap);
bool AgreesWithFat(const FatVolume& volume);

}  // namespace fatvol
