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

FatStatus CopyFatToSecond(FatVolume& volume) {
    if (volume.fatCount < 2) {
        return STATUS_SUCCESS;
    }
    // In one piece, or by sectors when there is no memory for that.
    const std::size_t size = std::size_t{volume.fatSize} * volume.bytesPerSector;
    const std::unique_ptr<std::uint8_t[]> whole(new (std::nothrow) std::uint8_t[size]);
    std::uint8_t sector[LargestSector];
    std::uint8_t* const buffer = whole ? whole.get() : sector;
    const std::uint32_t step = whole ? volume.fatSize : LargestSector / volume.bytesPerSector;
    FatStatus status = STATUS_SUCCESS;
    for (std::uint32_t done = 0; done < volume.fatSize && Succeeded(status); done += step) {
        const std::uint32_t count = std::min(step, volume.fatSize - done);
        const std::uint64_t first = std::uint64_t{volume.firstFatSector} + done;
        status = ReadSectors(*volume.storage, buffer, first, count);
        if (Succeeded(status)) {
            status = WriteSectors(*volume.storage, buffer, first + volume.fatSize, count);
        }
    }
    return status;
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
    if (Succeeded(status) && next != link.next) {
        directory.linkedSize = 0;
    }
    return status;
}

enum class Link { Hold, Set };

// Sets or holds back the link in the FAT.
FatStatus ChangeLink(CFatFile& directory, Link change) {
    const GrowthLink link = LinkOf(directory);
    FatVolume& volume = *directory.volume;
    if (ForceFatEntry(volume, link.cluster, change == Link::Set ? link.next : EndOfChain)) {
        return STATUS_SUCCESS;
    }
    // Its block cannot be read. A link that was held back is missing then.
    volume.isUncertain = volume.isUncertain || change == Link::Set;
    return STATUS_DRIVER_INTERNAL_ERROR;
}

}  // namespace

FatStatus LinkGrownDirectories(FatVolume& volume) {
    FatStatus status = STATUS_SUCCESS;
    const auto forEachGrown = [&](auto action) {
        ForEachObject(volume, [&](CFatFile& object) {
            if (object.linkedSize != 0) {
                action(object);
            }
        });
    };
    forEachGrown(
        [&](CFatFile& directory) { status = Succeeded(status) ? ExpectLink(directory) : status; });
    bool anyGrown = false;
    forEachGrown([&](CFatFile& directory) {
        anyGrown = true;
        if (Succeeded(status)) {
            status = WriteFileBlocksFrom(directory, directory.linkedSize);
        }
    });
    if (!anyGrown || Failed(status)) {
        return status;
    }
    forEachGrown([&](CFatFile& directory) {
        const FatStatus held = ChangeLink(directory, Link::Hold);
        status = Failed(status) ? status : held;
    });
    if (Succeeded(status)) {
        status = FlushFatTable(volume);
    }
    forEachGrown([&](CFatFile& directory) {
        const FatStatus linked = ChangeLink(directory, Link::Set);
        status = Failed(status) ? status : linked;
    });
    if (Succeeded(status)) {
        status = FlushFatTable(volume);
    }
    if (Succeeded(status)) {
        forEachGrown([](CFatFile& directory) { directory.linkedSize = 0; });
    }
    return status;
}

namespace {

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
bool FlushDirectories(FatVolume& volume) {
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

bool FlushVolume(FatVolume& volume) {
    const bool filesWritten = FlushFiles(volume);
    if (Failed(LinkGrownDirectories(volume)) || Failed(FlushFatTable(volume))) {
        return false;
    }
    const bool directoriesWritten = FlushDirectories(volume);
    if (volume.fatTable.changedSinceCopy) {
        if (Failed(CopyFatToSecond(volume)) || Failed(ResetFsInfo(volume))) {
            return false;
        }
        volume.fatTable.changedSinceCopy = false;
    }
    const bool wasTold = !std::exchange(volume.hasUntoldFailure, false);
    return filesWritten && directoriesWritten && wasTold && !volume.isUncertain;
}

}  // namespace fatvol
