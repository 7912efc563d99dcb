// Flushing: everything pending goes to the medium, in an order that a loss of power can interrupt.
#include "volume/flush.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "data/fat_file.h"
#include "ops/cache_key.h"
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

// Sets the link from a grown directory's old clusters to its new ones. Where the chain does not
// wait for that any more, files of a damaged volume share clusters: it stays as it is, and the
// volume uncertain. False when the FAT cannot be read.
bool LinkNewClusters(CFatFile& directory) {
    FatVolume& volume = *directory.volume;
    const std::uint32_t last = LastLinkedCluster(directory);
    std::uint32_t next = 0;
    if (Failed(GetFatEntry(volume, last, &next))) {
        return false;
    }
    const auto linked = static_cast<std::uint32_t>(directory.linkedSize >> volume.clusterShift);
    if (next != WaitingEnd(volume.fatType)) {
        volume.isUncertain = true;
    } else if (!ForceFatEntry(volume, last, ClusterOf(directory.runs, linked))) {
        return false;
    }
    directory.linkedSize = 0;
    return true;
}

template <class Action>
void ForEachGrown(FatVolume& volume, Action action) {
    ForEachObject(volume, [&](CFatFile& object) {
        if (object.linkedSize != 0) {
            action(object);
        }
    });
}

bool WriteNewClusters(FatVolume& volume) {
    bool allWritten = true;
    ForEachGrown(volume, [&](CFatFile& directory) {
        const FatStatus status = WriteFileBlocksFrom(directory, directory.linkedSize);
        allWritten = Succeeded(status) && allWritten;
    });
    return allWritten;
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

// Whether a link to the new clusters of a directory would lead to entries that are not on the
// volume, or to the entry of a directory without contents.
bool LeadsToUnwritten(CFatFile& directory) {
    const char16_t* const path = directory.keyString.get();  // null for the root, above all others
    bool isUnwritten = false;
    ForEachObject(*directory.volume, [&](const CFatFile& object) {
        const char16_t* const other = object.keyString.get();
        const bool isInside = !path || (other && IsAtOrBelow(other, path));
        isUnwritten = isUnwritten || (isInside && IsDirectory(object) && HasDirtyBlocks(object));
    });
    return isUnwritten;
}

}  // namespace

std::uint32_t CountGrownDirectories(FatVolume& volume) {
    std::uint32_t count = 0;
    ForEachGrown(volume, [&](const CFatFile&) { ++count; });
    return count;
}

bool LinkGrownDirectories(FatVolume& volume) {
    bool allLinked = true;
    ForEachGrown(volume,
                 [&](CFatFile& directory) { allLinked = LinkNewClusters(directory) && allLinked; });
    return allLinked;
}

FatStatus FlushDirectories(FatVolume& volume, bool* allWritten) {
    *allWritten = WriteNewClusters(volume);
    FatStatus status = FlushFatTable(volume);
    if (Succeeded(status)) {
        *allWritten = FlushDirectoryBlocks(volume) && *allWritten;
    }
    if (Succeeded(status)) {
        const bool mayLinkAll = *allWritten;
        ForEachGrown(volume, [&](CFatFile& directory) {
            const bool mayLink = mayLinkAll || !LeadsToUnwritten(directory);
            *allWritten = mayLink && LinkNewClusters(directory) && *allWritten;
        });
        status = FlushFatTable(volume);
    }
    *allWritten = *allWritten && Succeeded(status);
    return status;
}

FatStatus LinkIfManyWait(FatVolume& volume) {
    if (CountGrownDirectories(volume) < WaitingDirectoryLimit) {
        return STATUS_SUCCESS;
    }
    bool allWritten = false;
    const FatStatus status = FlushDirectories(volume, &allWritten);
    const bool doMostWait = CountGrownDirectories(volume) >= WaitingDirectoryLimit;
    if (Succeeded(status) && (doMostWait || volume.isUncertain)) {
        return STATUS_DRIVER_INTERNAL_ERROR;
    }
    volume.hasUntoldFailure = (Succeeded(status) && !allWritten) || volume.hasUntoldFailure;
    return status;
}

namespace {

bool WriteEverything(FatVolume& volume) {
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
    return filesWritten && directoriesWritten;
}

}  // namespace

bool FlushVolume(FatVolume& volume) {
    const bool isWritten = WriteEverything(volume);
    const bool hasUntoldFailure = std::exchange(volume.hasUntoldFailure, false);
    return isWritten && !hasUntoldFailure && !volume.isUncertain;
}

}  // namespace fatvol
