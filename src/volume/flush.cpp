// Flushing: everything pending goes to the medium, in an order that a loss of power can interrupt.
#include "volume/flush.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "data/fat_file.h"
#include "storage/little_endian.h"
#include "storage/storage_io.h"
#include "volume/fat_entry.h"
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
constexpr std::uint32_t LargestSector = 4096;  // bytes

bool IsFsInfo(const std::uint8_t* sector) {
    return LoadU32(sector + FSI_LeadSig) == 0x41615252 &&
           LoadU32(sector + FSI_StrucSig) == 0x61417272 &&
           LoadU32(sector + FSI_TrailSig) == 0xAA550000;
}

}  // namespace

// A sector number outside the reserved region is no FSInfo sector: what stands there belongs to
// something else.
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

namespace {

// Copies sectors of the first FAT to the second one: in one piece, or by few of them when there is
// no memory for that.
FatStatus CopyFatSectors(FatVolume& volume, std::uint32_t first, std::uint32_t count) {
    const std::size_t size = std::size_t{count} * volume.bytesPerSector;
    const std::unique_ptr<std::uint8_t[]> whole(new (std::nothrow) std::uint8_t[size]);
    std::uint8_t sector[LargestSector];
    std::uint8_t* const buffer = whole ? whole.get() : sector;
    const std::uint32_t step = whole ? count : LargestSector / volume.bytesPerSector;
    FatStatus status = STATUS_SUCCESS;
    for (std::uint32_t done = 0; done < count && Succeeded(status); done += step) {
        const std::uint32_t part = std::min(step, count - done);
        const std::uint64_t position = std::uint64_t{volume.firstFatSector} + first + done;
        status = ReadSectors(*volume.storage, buffer, position, part);
        if (Succeeded(status)) {
            status = WriteSectors(*volume.storage, buffer, position + volume.fatSize, part);
        }
    }
    return status;
}

// Copies the blocks that were written since the last copy.
FatStatus CopyChangedFat(FatVolume& volume) {
    const FatTable& table = volume.fatTable;
    FatStatus status = STATUS_SUCCESS;
    for (std::uint32_t block = 0; volume.fatCount > 1 && block <= table.lastBlockIndex; ++block) {
        if (table.changedSinceCopy[block] && Succeeded(status)) {
            status = CopyFatSectors(volume, block << table.blockSectorShift,
                                    SectorsOfBlock(table, block));
        }
    }
    return status;
}

}  // namespace

FatStatus CopyFatToSecond(FatVolume& volume) {
    return volume.fatCount > 1 ? CopyFatSectors(volume, 0, volume.fatSize) : STATUS_SUCCESS;
}

namespace {

// Calls `action` for each open object of a volume.
template <class Action>
void ForEachObject(FatVolume& volume, Action action) {
    for (auto* link = volume.liveObjects.next; link != &volume.liveObjects; link = link->next) {
        action(static_cast<CFatFile&>(*link));
    }
}

// The volume cluster of a file cluster index that the runs cover.
std::uint32_t ClusterOf(const CFatFile& file, std::uint64_t index) {
    std::uint32_t cluster = 0;
    std::uint32_t left = 0;
    (void)ClusterAt(file.runs, static_cast<std::uint32_t>(index), &cluster, &left);
    return cluster;
}

// The link from a grown directory's old clusters to its new ones.
struct GrowthLink {
    std::uint32_t cluster, next;
};

GrowthLink LinkOf(const CFatFile& directory) {
    const std::uint64_t first = directory.linkedSize >> directory.volume->clusterShift;
    return {ClusterOf(directory, first - 1), ClusterOf(directory, first)};
}

// Leaves a directory out whose link is no longer in the FAT: on a damaged volume a file with the
// same clusters may have freed them, and setting it would put them in use again.
FatStatus ExpectLink(CFatFile& directory) {
    const GrowthLink link = LinkOf(directory);
    std::uint32_t next = 0;
    const FatStatus status = GetFatEntry(*directory.volume, link.cluster, &next);
    const bool isItsOwn =
        directory.isLinkHeld ? next > BadClusterMark(directory.volume->fatType) : next == link.next;
    if (Succeeded(status) && !isItsOwn) {
        directory.linkedSize = 0;
        directory.isLinkHeld = false;
    }
    return status;
}

// Ends the chain in the FAT before the new clusters, for a while.
bool HoldLink(CFatFile& directory) {
    if (Failed(ExpectLink(directory))) {
        return false;
    }
    const bool isHeld = directory.linkedSize == 0 || directory.isLinkHeld;
    if (!isHeld) {
        const std::uint32_t cluster = LinkOf(directory).cluster;
        directory.isLinkHeld = ForceFatEntry(*directory.volume, cluster, EndOfChain);
    }
    return isHeld || directory.isLinkHeld;
}

// The link of a directory whose FAT block cannot be read is missing from then on.
void SetHeldLink(CFatFile& directory) {
    const GrowthLink link = LinkOf(directory);
    if (directory.isLinkHeld) {
        directory.isLinkHeld = !ForceFatEntry(*directory.volume, link.cluster, link.next);
        directory.volume->isUncertain = directory.volume->isUncertain || directory.isLinkHeld;
    }
}

template <class Action>
void ForEachGrown(FatVolume& volume, Action action) {
    ForEachObject(volume, [&](CFatFile& object) {
        if (object.linkedSize != 0) {
            action(object);
        }
    });
}

// Writes what the new clusters of grown directories hold, and holds the links to them back. Whether
// all of that was possible.
bool PrepareGrownDirectories(FatVolume& volume) {
    bool done = true;
    ForEachGrown(volume, [&](CFatFile& directory) {
        FatStatus status = ExpectLink(directory);
        if (Succeeded(status) && directory.linkedSize != 0) {
            status = WriteFileBlocksFrom(directory, directory.linkedSize);
        }
        done = Succeeded(status) && done;
    });
    ForEachGrown(volume, [&](CFatFile& directory) { done = HoldLink(directory) && done; });
    return done;
}

bool FlushFiles(FatVolume& volume) {
    bool allWritten = true;
    ForEachObject(volume, [&](CFatFile& object) {
        allWritten = (IsDirectory(object) || FlushFileBlocks(object)) && allWritten;
    });
    return allWritten;
}

// How many directories lie above an object, the root counted.
std::ptrdiff_t DepthOf(const CFatFile& object) {
    if (!object.keyString) {
        return 0;
    }
    const std::u16string_view path(object.keyString.get());
    return 1 + std::count(path.begin(), path.end(), u'\\');
}

// From the deepest up, so that no entry of a new directory gets ahead of its contents.
bool FlushDirectoryBlocks(FatVolume& volume) {
    std::ptrdiff_t depth = 0;
    ForEachObject(volume, [&](const CFatFile& o) { depth = std::max(depth, DepthOf(o)); });
    bool allWritten = true;
    for (; depth >= 0; --depth) {
        ForEachObject(volume, [&](CFatFile& object) {
            if (IsDirectory(object) && DepthOf(object) == depth) {
                allWritten = FlushFileBlocks(object) && allWritten;
            }
        });
    }
    return allWritten;
}

}  // namespace

bool HasGrownDirectory(FatVolume& volume) {
    bool hasGrown = false;
    ForEachGrown(volume, [&](const CFatFile&) { hasGrown = true; });
    return hasGrown;
}

FatStatus FlushDirectories(FatVolume& volume, bool* allWritten) {
    *allWritten = PrepareGrownDirectories(volume);
    FatStatus status = FlushFatTable(volume);
    if (Succeeded(status)) {
        *allWritten = FlushDirectoryBlocks(volume) && *allWritten;
    }
    ForEachGrown(volume, SetHeldLink);
    if (Succeeded(status) && *allWritten) {
        status = FlushFatTable(volume);
    }
    *allWritten = *allWritten && Succeeded(status);
    if (*allWritten) {
        ForEachGrown(volume, [](CFatFile& directory) {
            directory.linkedSize = directory.isLinkHeld ? directory.linkedSize : 0;
        });
    }
    return status;
}

bool FlushVolume(FatVolume& volume) {
    const bool wasTold = !std::exchange(volume.hasUntoldFailure, false);
    const bool filesWritten = FlushFiles(volume);
    bool directoriesWritten = false;
    if (Failed(FlushDirectories(volume, &directoriesWritten))) {
        return false;
    }
    if (volume.fatTable.changedSinceCopy.any()) {
        if (Failed(CopyChangedFat(volume)) || Failed(ResetFsInfo(volume))) {
            return false;
        }
        volume.fatTable.changedSinceCopy.reset();
    }
    const bool isAllTold = wasTold && !std::exchange(volume.hasUntoldFailure, false);
    return filesWritten && directoriesWritten && isAllTold && !volume.isUncertain;
}

}  // namespace fatvol
