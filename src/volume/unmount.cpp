// Flushing and unmounting: everything pending goes to the medium, in an order that leaves it sound.
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "data/fat_file.h"
#include "dir/dir_listing.h"
#include "storage/little_endian.h"
#include "storage/storage_io.h"
#include "volume/fat_volume.h"
#include "volume/mount.h"

namespace fatvol {
namespace {

// The FSInfo sector:
//   offset size field                  offset size field
//        0    4 FSI_LeadSig               488    4 FSI_Free_Count
//      484    4 FSI_StrucSig              492    4 FSI_Nxt_Free
//                                         508    4 FSI_TrailSig
constexpr std::uint32_t FsInfoSize = 512;  // bytes, whatever the sector size
constexpr std::uint32_t FSI_LeadSig = 0, FSI_StrucSig = 484, FSI_Free_Count = 488,
                        FSI_TrailSig = 508;

bool IsFsInfo(const std::uint8_t* sector) {
    return LoadU32(sector + FSI_LeadSig) == 0x41615252 &&
           LoadU32(sector + FSI_StrucSig) == 0x61417272 &&
           LoadU32(sector + FSI_TrailSig) == 0xAA550000;
}

// Marks the free count and the next free cluster unknown. A sector number outside the reserved
// region is no FSInfo sector: what stands there belongs to something else.
FatStatus ResetFsInfo(FatVolume& volume) {
    const std::uint64_t position = std::uint64_t{volume.fsInfoSector} * volume.bytesPerSector;
    const std::uint64_t reserved = std::uint64_t{volume.firstFatSector} * volume.bytesPerSector;
    if (!volume.isFat32 || position + FsInfoSize > reserved) {
        return STATUS_SUCCESS;
    }
    std::uint8_t sector[FsInfoSize];
    const FatStatus status = ReadBytes(*volume.storage, sector, position, FsInfoSize);
    if (Failed(status) || !IsFsInfo(sector)) {
        return status;
    }
    std::memset(sector + FSI_Free_Count, 0xFF, 8);
    return WriteBytes(*volume.storage, sector, position, FsInfoSize);
}

// Brings the second FAT up to date; a volume with a single FAT has none.
FatStatus CopyFatToSecond(FatVolume& volume) {
    if (volume.fatSize == 0 || volume.fatCount < 2) {
        return STATUS_SUCCESS;
    }
    const std::size_t size = std::size_t{volume.fatSize} * volume.bytesPerSector;
    const std::unique_ptr<std::uint8_t[]> fat(new (std::nothrow) std::uint8_t[size]);
    if (!fat) {
        return STATUS_NO_MEMORY;
    }
    const FatStatus status =
        ReadSectors(*volume.storage, fat.get(), volume.firstFatSector, volume.fatSize);
    if (Failed(status)) {
        return status;
    }
    return WriteSectors(*volume.storage, fat.get(),
                        std::uint64_t{volume.firstFatSector} + volume.fatSize, volume.fatSize);
}

enum class ObjectKind { Files, Directories };

bool FlushObjects(FatVolume& volume, ObjectKind kind) {
    bool allWritten = true;
    for (auto* link = volume.liveObjects.next; link != &volume.liveObjects; link = link->next) {
        auto& object = static_cast<CFatFile&>(*link);
        if (IsDirectory(object) == (kind == ObjectKind::Directories)) {
            allWritten = FlushFileBlocks(object) && allWritten;
        }
    }
    return allWritten;
}

void DiscardDirectories(FatVolume& volume) {
    auto* link = volume.liveObjects.next;
    while (link != &volume.liveObjects) {
        auto& object = static_cast<CFatFile&>(*link);
        link = link->next;
        if (IsDirectory(object)) {
            Detach(object, DirtyBlocks::Discard);
        }
    }
}

}  // namespace

bool FlushVolume(FatVolume& volume) {
    const bool filesWritten = FlushObjects(volume, ObjectKind::Files);
    if (Failed(FlushFatTable(volume))) {
        return false;
    }
    const bool directoriesWritten = FlushObjects(volume, ObjectKind::Directories);
    if (volume.fatTable.changedSinceCopy) {
        if (Failed(CopyFatToSecond(volume)) || Failed(ResetFsInfo(volume))) {
            return false;
        }
        volume.fatTable.changedSinceCopy = false;
    }
    const bool wasTold = !std::exchange(volume.hasUntoldFailure, false);
    return filesWritten && directoriesWritten && wasTold && !volume.isUncertain;
}

void DetachObjects(FatVolume& volume, DirtyBlocks dirtyBlocks) {
    while (IsLinked(volume.liveObjects)) {
        Detach(static_cast<CFatFile&>(*volume.liveObjects.next), dirtyBlocks);
    }
}

FatStatus UnmountVolume(FatVolume& volume) {
    if (volume.state == VolumeState::Mounted) {
        // Its counts are hints that nobody has to believe.
        (void)ResetFsInfo(volume);
        const FatStatus status = ReleaseFatVolume(volume);
        if (Failed(status)) {
            volume.state = VolumeState::ReleaseFailed;
            return status;
        }
    }
    if (volume.lostFatBlock) {
        // The FAT on the volume is incomplete: the second one, whole though older, must not be
        // replaced by it, and new directories would not fit either of them.
        DiscardDirectories(volume);
    } else {
        // The first FAT is complete, so a copy that fails takes nothing away.
        (void)CopyFatToSecond(volume);
    }
    EmptyOpenObjectCache(volume.openObjects);
    DetachObjects(volume, DirtyBlocks::WriteBack);
    CloseStorage(*volume.storage);
    return STATUS_SUCCESS;
}

}  // namespace fatvol
