// The record of a mounted volume. Byte positions and sector numbers count from its first byte.
//
// Invariants, while it is mounted:
//  1. The geometry fields fit together and never change.
//  2. liveObjects holds every object whose volume this is, the root directory among them.
//  3. Every object in openObjects is one of them.
#pragma once

#include <cstdint>
#include <memory>

#include "api/fatvol.h"
#include "ops/open_object_cache.h"
#include "platform/intrusive_list.h"
#include "storage/storage_io.h"
#include "volume/cluster_bitmap.h"
#include "volume/fat_table.h"

namespace fatvol {

struct LiveObjectTag;

enum class VolumeState {
    Mounted,
    ReleaseFailed,  // an unmount could not write the FAT: only another unmount is possible
};

}  // namespace fatvol

// The host knows this record by its name only.
struct FatVolume {
    fatvol::FatTable fatTable;
    fatvol::ClusterBitmap clusterBitmap;
    fatvol::StorageOwner storage;
    fatvol::CFatFile* rootDirectory = nullptr;  // holds one reference
    std::uint32_t firstFatSector = 0;
    std::uint32_t fatSize = 0;       // sectors per FAT
    std::uint32_t clusterCount = 0;  // clusters 2 to clusterCount + 1 exist
    std::uint32_t bytesPerSector = 0;
    std::uint32_t bytesPerCluster = 0;
    std::uint32_t clusterShift = 0;           // log2 of bytesPerCluster
    std::uint32_t clusterMask = 0;            // bytesPerCluster - 1
    std::uint32_t rootDirectoryPosition = 0;  // byte position of the fixed root region; FAT12/16
    std::uint32_t dataPosition = 0;           // byte position of cluster 2
    std::uint32_t fsInfoSector = 0;           // FAT32
    std::uint32_t fatType = 0;                // 12, 16 or 32
    bool isFat32 = false;
    fatvol::OpenObjectCache openObjects;

    std::uint32_t fatCount = 0;
    fatvol::VolumeState state = fatvol::VolumeState::Mounted;
    // What stands on the volume or in the cache is not what the library believes: data of an object
    // that is gone could not be written, or a change could neither be finished nor undone. Changes
    // are refused from then on, and no flush claims that everything is on the volume.
    bool isUncertain = false;
    bool hasUntoldFailure = false;  // of a write that no call has told of: the next flush does
    bool lostFatBlock = false;      // the same for a block of the FAT, at an unmount
    // Every object of this volume, so that none outlives it unnoticed.
    fatvol::ListNode<fatvol::LiveObjectTag> liveObjects;
    std::unique_ptr<FatVolume> nextMounted;  // the library's chain of mounted volumes
};

namespace fatvol {

// Whether the invariants of the volume and of everything in it hold.
bool IsSound(const FatVolume& volume);

// The byte position of a data cluster (2 or above).
inline std::uint64_t ClusterPosition(const FatVolume& volume, std::uint32_t cluster) {
    return (std::uint64_t{cluster - 2} << volume.clusterShift) + volume.dataPosition;
}

}  // namespace fatvol
