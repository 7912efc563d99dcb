// The layout of a volume, from the fields of its boot sector.
#pragma once

#include <cstdint>

#include "storage/boot_sector.h"
#include "storage/fat_status.h"

struct FatVolume;

namespace fatvol {

// Sets the geometry fields of a volume. `*rootCluster` is that of a FAT32 root directory, else 0;
// `*rootDirectorySize` is the byte size of the fixed root region, 0 for FAT32.
// STATUS_UNRECOGNIZED_VOLUME for a layout that does not fit together: regions larger than the
// volume, data that would begin beyond 4 GiB, root entries in the FAT32 layout, sizes of zero.
FatStatus ComputeGeometry(FatVolume& volume, const Mpb& mpb, std::uint32_t* rootCluster,
                          std::uint32_t* rootDirectorySize);

}  // namespace fatvol
