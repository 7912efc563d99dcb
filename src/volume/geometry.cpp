#include "volume/geometry.h"

#include <algorithm>
#include <bit>

#include "dir/dir_entry.h"
#include "storage/log2_floor.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

// Below this number of clusters the 12-bit layout is used; above, the 16-bit one, without limit.
constexpr std::uint32_t Fat16MinimumClusters = 4087;

// The host fills the record, so the values that the checks of the boot sector promised are not
// taken on trust: they divide, shift and keep the regions apart.
bool IsUsable(const Mpb& mpb) {
    return std::has_single_bit(mpb.BPB_BytsPerSec) && mpb.BPB_BytsPerSec >= 128 &&
           mpb.BPB_BytsPerSec <= 4096 && std::has_single_bit(mpb.BPB_SecPerClus) &&
           mpb.BPB_NumFATs != 0 && mpb.BPB_RsvdSecCnt != 0;
}

// How many clusters the entries of one FAT can describe.
std::uint64_t ClustersOfFat(const FatVolume& volume) {
    const std::uint64_t bits = std::uint64_t{volume.fatSize} * volume.bytesPerSector * 8;
    const std::uint64_t entries = bits / volume.fatType;
    return entries < 2 ? 0 : entries - 2;
}

std::uint32_t FatTypeOf(const FatVolume& volume, std::uint64_t clusters) {
    if (volume.isFat32) {
        return 32;
    }
    return clusters < Fat16MinimumClusters ? 12 : 16;
}

}  // namespace

FatStatus ComputeGeometry(FatVolume& volume, const Mpb& mpb, std::uint32_t* rootCluster,
                          std::uint32_t* rootDirectorySize) {
    volume.isFat32 = mpb.BPB_FATSz16 == 0;
    if (!IsUsable(mpb) || (volume.isFat32 && mpb.BPB_RootEntCnt != 0)) {
        return STATUS_UNRECOGNIZED_VOLUME;
    }
    volume.firstFatSector = mpb.BPB_RsvdSecCnt;
    volume.fatSize = volume.isFat32 ? mpb.BPB_FATSz32 : mpb.BPB_FATSz16;
    volume.fatCount = mpb.BPB_NumFATs;
    volume.bytesPerSector = mpb.BPB_BytsPerSec;
    const std::uint64_t total = mpb.BPB_TotSec16 != 0 ? mpb.BPB_TotSec16 : mpb.BPB_TotSec32;
    const std::uint32_t rootSectors =
        (mpb.BPB_RootEntCnt * DirEntrySize + volume.bytesPerSector - 1) / volume.bytesPerSector;
    const std::uint64_t sectorsBeforeRoot =
        mpb.BPB_RsvdSecCnt + std::uint64_t{mpb.BPB_NumFATs} * volume.fatSize;
    const std::uint64_t metadata = sectorsBeforeRoot + rootSectors;
    if (metadata > total || metadata * volume.bytesPerSector > 0xFFFFFFFF) {
        return STATUS_UNRECOGNIZED_VOLUME;
    }
    const std::uint64_t clusters = (total - metadata) / mpb.BPB_SecPerClus;
    volume.fatType = FatTypeOf(volume, clusters);
    volume.clusterCount = static_cast<std::uint32_t>(std::min(clusters, ClustersOfFat(volume)));
    volume.bytesPerCluster = std::uint32_t{mpb.BPB_SecPerClus} * volume.bytesPerSector;
    volume.clusterMask = volume.bytesPerCluster - 1;
    volume.clusterShift = Log2Floor(volume.bytesPerCluster);
    *rootDirectorySize = rootSectors * volume.bytesPerSector;
    volume.rootDirectoryPosition =
        static_cast<std::uint32_t>(sectorsBeforeRoot * volume.bytesPerSector);
    volume.dataPosition = volume.rootDirectoryPosition + *rootDirectorySize;
    *rootCluster = volume.isFat32 ? mpb.BPB_RootClus : 0;
    volume.fsInfoSector = volume.isFat32 ? mpb.BPB_FSInfo : 0;
    return STATUS_SUCCESS;
}

}  // namespace fatvol
