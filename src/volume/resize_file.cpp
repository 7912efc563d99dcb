#include "volume/resize_file.h"

#include <algorithm>
#include <utility>

#include "data/fat_file.h"
#include "data/file_data.h"
#include "dir/dir_listing.h"
#include "ops/entry_write_back.h"
#include "volume/cluster_allocation.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

constexpr std::uint32_t MaxDirSize = MaxDirSlots * DirEntrySize;  // bytes
constexpr std::uint32_t ClearPiece = 512;                         // bytes

// A change under way: what is asked for, and what the object was.
struct Resize {
    CFatFile& object;
    FatVolume& volume;
    std::uint32_t size;          // bytes, as asked for
    std::uint64_t newAllocated;  // bytes, whole clusters
    CFatFile* parent;
    DirItem* item;
    std::uint64_t oldAllocated;
    std::uint64_t oldDataSize;

    std::uint32_t Clusters(std::uint64_t bytes) const {
        return static_cast<std::uint32_t>(bytes >> volume.clusterShift);
    }
};

// Stores the entry with the new size and first cluster, and gives it to the object.
FatStatus StoreEntry(const Resize& resize, std::uint32_t firstCluster) {
    CFatFile& object = resize.object;
    ShortEntry entry = object.entry;
    SetFirstCluster(entry, firstCluster);
    if (!IsDirectory(object)) {
        SetFileSize(entry, resize.size);
    }
    const FatStatus status = WriteBackEntry(object, entry, resize.parent, resize.item);
    if (Succeeded(status)) {
        object.firstCluster = firstCluster;
    }
    return status;
}

// Brings the cached blocks in line with a data size that has changed. The cached bytes behind the
// old end are zero; what the volume holds there may be anything, so a block that shows such bytes
// has to be written.
void FitCachedBlocks(const Resize& resize) {
    CFatFile& object = resize.object;
    const std::uint64_t size = DataSize(object);
    if (size < resize.oldDataSize) {
        TruncateFileBlocks(object, size);
    } else if (size > resize.oldDataSize && (resize.oldDataSize & BlockMask) != 0) {
        if (CacheBlock* last = FindBlock(object.blocks, BlockNumber(resize.oldDataSize))) {
            last->dirty = 1;
        }
    }
}

FatStatus ChangeSizeOnly(const Resize& resize) {
    const FatStatus status = StoreEntry(resize, resize.object.firstCluster);
    if (Succeeded(status)) {
        FitCachedBlocks(resize);
    }
    return status;
}

// Whether a cluster is the one at which a directory waits for its link.
bool IsWaitedAt(const FatVolume& volume, std::uint32_t cluster) {
    const auto* link = volume.liveObjects.next;
    for (; link != &volume.liveObjects; link = link->next) {
        const auto& object = static_cast<const CFatFile&>(*link);
        if (object.linkedSize != 0 && LastLinkedCluster(object) == cluster) {
            return true;
        }
    }
    return false;
}

// The entry of an object's cluster in the FAT, which must be `expected`, or an end mark of its own
// for EndOfChain. It is another one where files of a damaged volume share clusters and one of them
// has freed or relinked them: going on would put clusters in use that are free, or the reverse.
FatStatus ReadLink(FatVolume& volume, std::uint32_t cluster, std::uint32_t expected,
                   std::uint32_t* value) {
    const FatStatus status = GetFatEntry(volume, cluster, value);
    const bool isEnd = *value > BadClusterMark(volume.fatType) &&
                       (*value != WaitingEnd(volume.fatType) || !IsWaitedAt(volume, cluster));
    const bool isExpected = expected == EndOfChain ? isEnd : *value == expected;
    return Failed(status) || isExpected ? status : STATUS_FILE_CORRUPT_ERROR;
}

// The clusters that an object gains, and where they are attached.
struct Addition {
    ClusterRunList clusters;
    std::uint32_t last = 0;       // the object's last cluster until now; 0 when it has none
    std::uint32_t lastValue = 0;  // what its FAT entry held
};

// Takes everything that growing needs, without touching the FAT.
FatStatus PrepareGrowth(Resize& resize, Addition& added) {
    CFatFile& object = resize.object;
    const std::uint32_t count = resize.Clusters(resize.newAllocated - resize.oldAllocated);
    FatStatus status = Init(added.clusters);
    if (Succeeded(status) && object.runs.count > 1) {
        added.last = LastCluster(object.runs);
        status = ReadLink(resize.volume, added.last, EndOfChain, &added.lastValue);
    }
    // On a damaged volume the cluster may have been freed meanwhile, and got another end mark.
    if (Succeeded(status) && IsDirectory(object) && IsWaitedAt(resize.volume, added.last)) {
        status = STATUS_FILE_CORRUPT_ERROR;
    }
    if (Succeeded(status)) {
        status = AllocateClusters(resize.volume.clusterBitmap, count, added.clusters);
    }
    if (Failed(status)) {
        return status;
    }
    status = ReserveRuns(object.runs, added.clusters.count - 1);
    if (Succeeded(status) && IsDirectory(object)) {
        status = ResizeDirListing(*object.listing,
                                  static_cast<std::uint32_t>(resize.newAllocated / DirEntrySize));
    }
    if (Failed(status)) {
        ReleaseRuns(resize.volume.clusterBitmap, added.clusters);
    }
    return status;
}

// Detaches the clusters in the FAT again. When that cannot be done for all of them they stay taken:
// a lost cluster does no harm, a shared one would. A chain that cannot be cut off stays whole.
void UndoGrowth(Resize& resize, const Addition& added) {
    CFatFile& object = resize.object;
    FatVolume& volume = resize.volume;
    const bool waits = object.linkedSize == resize.oldAllocated;
    if (IsDirectory(object)) {
        // Fewer slots always fit.
        (void)ResizeDirListing(*object.listing,
                               static_cast<std::uint32_t>(resize.oldAllocated / DirEntrySize));
        object.linkedSize = waits ? 0 : object.linkedSize;
    }
    if (added.last != 0 && !ForceFatEntry(volume, added.last, added.lastValue)) {
        (void)ForceChain(volume, added.clusters);
        volume.isUncertain = true;
    } else if (ForceFree(volume, added.clusters)) {
        ReleaseRuns(volume.clusterBitmap, added.clusters);
    }
}

// The first clusters that a directory gains since the last flush are linked by the next one, when
// their contents and their chain are on the volume.
FatStatus LinkAddition(Resize& resize, const Addition& added) {
    CFatFile& object = resize.object;
    if (IsDirectory(object) && object.linkedSize == 0) {
        object.linkedSize = resize.oldAllocated;
    }
    if (added.last == 0) {
        return STATUS_SUCCESS;
    }
    FatVolume& volume = resize.volume;
    const bool waits = object.linkedSize == resize.oldAllocated;
    return SetFatEntry(volume, added.last,
                       waits ? WaitingEnd(volume.fatType) : added.clusters.runs[1].startCluster);
}

// Makes the added clusters the object's. The room for the runs was reserved.
void AdoptAddition(Resize& resize, const Addition& added) {
    CFatFile& object = resize.object;
    for (std::uint32_t run = 1; run < added.clusters.count; ++run) {
        const ClusterRun* runs = added.clusters.runs;
        const std::uint32_t total = TotalClusters(object.runs);
        const std::uint32_t length = runs[run].endIndex - runs[run - 1].endIndex;
        (void)MapRange(object.runs, total, total + length, runs[run].startCluster);
    }
    object.allocatedSize = resize.newAllocated;
}

// Free slots must read as zero, which fresh clusters do not.
FatStatus ClearNewSpace(Resize& resize) {
    static constexpr std::uint8_t Zeros[ClearPiece] = {};
    std::uint64_t position = resize.oldAllocated;
    while (position < resize.newAllocated) {
        const auto length = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(resize.newAllocated - position, ClearPiece));
        std::uint32_t written = 0;
        const FatStatus status =
            WriteFileData(resize.object, position, length, Zeros, &written, resize.newAllocated);
        if (Failed(status)) {
            return status;
        }
        position += length;
    }
    return STATUS_SUCCESS;
}

FatStatus Grow(Resize& resize) {
    CFatFile& object = resize.object;
    FatVolume& volume = resize.volume;
    Addition added;
    FatStatus status = PrepareGrowth(resize, added);
    if (Failed(status)) {
        return status;
    }
    AdoptAddition(resize, added);
    status = LinkAddition(resize, added);
    if (Succeeded(status)) {
        status = ChainClusters(volume, added.clusters);
    }
    if (Succeeded(status) && IsDirectory(object)) {
        status = ClearNewSpace(resize);
    }
    if (Succeeded(status)) {
        status = StoreEntry(resize, object.runs.runs[1].startCluster);
    }
    if (Failed(status)) {
        object.allocatedSize = resize.oldAllocated;
        TruncateFileBlocks(object, DataSize(object));
        CutTail(object.runs, TotalClusters(added.clusters));
        UndoGrowth(resize, added);
        return status;
    }
    FitCachedBlocks(resize);
    return STATUS_SUCCESS;
}

// What the FAT holds for the cluster before a file cluster index.
std::uint32_t LinkTo(const CFatFile& object, std::uint32_t index) {
    const bool waits = std::uint64_t{index} << object.volume->clusterShift == object.linkedSize;
    return waits ? WaitingEnd(object.volume->fatType) : ClusterOf(object.runs, index);
}

// A chain to be cut: the clusters from file index `kept` on, the last run first.
struct Cut {
    ClusterRunList tail;
    std::uint32_t kept = 0;
    std::uint32_t lastValue = EndOfChain;  // of the last cluster's FAT entry
    // FAT entries set, or tried: those of the tail in its order, then the one before it.
    std::uint32_t tried = 0;
};

// Takes what cutting needs, without touching the FAT.
FatStatus PrepareCut(Resize& resize, Cut& cut) {
    const CFatFile& object = resize.object;
    FatVolume& volume = resize.volume;
    FatStatus status = Init(cut.tail);
    if (Succeeded(status)) {
        status = CopyTail(object.runs, cut.tail, TotalClusters(object.runs) - cut.kept);
    }
    if (Succeeded(status)) {
        status = ReadLink(volume, LastCluster(object.runs), EndOfChain, &cut.lastValue);
    }
    if (Succeeded(status) && cut.kept > 0) {
        std::uint32_t link = 0;
        status =
            ReadLink(volume, ClusterOf(object.runs, cut.kept - 1), LinkTo(object, cut.kept), &link);
    }
    return status;
}

// Frees the clusters of the tail in the FAT and ends the chain before them.
FatStatus UnlinkTail(Resize& resize, Cut& cut) {
    FatStatus status = FreeChain(resize.volume, cut.tail, &cut.tried);
    if (Succeeded(status) && cut.kept > 0) {
        ++cut.tried;
        status =
            SetFatEntry(resize.volume, ClusterOf(resize.object.runs, cut.kept - 1), EndOfChain);
    }
    return status;
}

// Gives the entries that were tried their values back, the last one first: if that one failed and
// cannot be had now, it has not been changed (`isLastSet` is false). Where another cannot be had
// the chain on the volume ends before it, and the volume is uncertain; the object keeps its
// clusters.
void RelinkTail(Resize& resize, const Cut& cut, bool isLastSet) {
    const ClusterRunList& runs = resize.object.runs;
    const std::uint32_t total = TotalClusters(runs), tailCount = total - cut.kept;
    std::uint32_t lost = total;
    bool mayBeUnset = !isLastSet;
    const auto restore = [&](std::uint32_t index, std::uint32_t value) {
        if (!ForceFatEntry(resize.volume, ClusterOf(runs, index), value) && !mayBeUnset) {
            lost = std::min(lost, index);
        }
        mayBeUnset = false;
    };
    if (cut.tried > tailCount) {
        restore(cut.kept - 1, LinkTo(resize.object, cut.kept));
    }
    std::uint32_t untried = tailCount - std::min(cut.tried, tailCount);
    for (std::uint32_t run = 1; run < runs.count; ++run) {
        const std::uint32_t begin = std::max(runs.runs[run - 1].endIndex, cut.kept);
        for (std::uint32_t index = runs.runs[run].endIndex; index > begin; --index) {
            if (untried > 0) {
                --untried;
            } else {
                restore(index - 1, index < total ? LinkTo(resize.object, index) : cut.lastValue);
            }
        }
    }
    resize.volume.isUncertain = resize.volume.isUncertain || lost < total;
    if (lost < total && lost > 0 && lost >= cut.kept) {
        (void)ForceFatEntry(resize.volume, ClusterOf(runs, lost - 1), EndOfChain);
    }
}

FatStatus Shrink(Resize& resize) {
    CFatFile& object = resize.object;
    Cut cut;
    cut.kept = resize.Clusters(resize.newAllocated);
    FatStatus status = PrepareCut(resize, cut);
    if (Failed(status)) {
        return status;
    }
    status = UnlinkTail(resize, cut);
    const bool isUnlinked = Succeeded(status);
    // When all clusters go that wait for their link, a flush must not set it.
    const bool cutsLink = object.linkedSize >= resize.newAllocated;
    const std::uint64_t linkedSize = cutsLink ? std::exchange(object.linkedSize, 0) : 0;
    if (isUnlinked) {
        status = StoreEntry(resize, cut.kept == 0 ? 0 : object.firstCluster);
    }
    if (Failed(status)) {
        object.linkedSize = cutsLink ? linkedSize : object.linkedSize;
        RelinkTail(resize, cut, isUnlinked);
        return status;
    }
    ReleaseRuns(resize.volume.clusterBitmap, cut.tail);
    CutTail(object.runs, TotalClusters(cut.tail));
    object.allocatedSize = resize.newAllocated;
    if (IsDirectory(object)) {
        // Fewer slots always fit.
        (void)ResizeDirListing(
            *object.listing,
            std::min(static_cast<std::uint32_t>(resize.newAllocated / DirEntrySize), MaxDirSlots));
    }
    FitCachedBlocks(resize);
    return STATUS_SUCCESS;
}

// Whether a directory can have this many bytes: its entries must stay within, and its slots within
// what a directory may have.
FatStatus CheckDirectorySize(const CFatFile& object, std::uint64_t newAllocated) {
    if (newAllocated > object.allocatedSize) {
        return newAllocated > MaxDirSize ? STATUS_DISK_FULL : STATUS_SUCCESS;
    }
    const DirListing& listing = *object.listing;
    const bool unread =
        object.allocatedSize > MaxDirSize && listing.endSlot == listing.slots.bitCount;
    const bool cutsEntries = std::uint64_t{UsedSlotsEnd(listing)} * DirEntrySize > newAllocated;
    return unread || cutsEntries ? STATUS_FILE_INVALID : STATUS_SUCCESS;
}

}  // namespace

FatStatus ResizeFile(CFatFile& object, std::uint32_t sizeBytes, CFatFile* parent, DirItem* item) {
    FatVolume& volume = *object.volume;
    const std::uint64_t newAllocated =
        (std::uint64_t{sizeBytes} + volume.clusterMask) & ~std::uint64_t{volume.clusterMask};
    if (sizeBytes > 0u - volume.bytesPerCluster) {
        return STATUS_INVALID_PARAMETER;
    }
    Resize resize{
        object,          volume, sizeBytes, newAllocated, parent, item, object.allocatedSize,
        DataSize(object)};
    const bool isDirectory = IsDirectory(object);
    if (newAllocated == object.allocatedSize) {
        const bool unchanged = isDirectory || sizeBytes == FileSize(object.entry);
        return unchanged ? STATUS_SUCCESS : ChangeSizeOnly(resize);
    }
    if (isDirectory) {
        const FatStatus status = CheckDirectorySize(object, newAllocated);
        if (Failed(status)) {
            return status;
        }
    }
    return newAllocated > object.allocatedSize ? Grow(resize) : Shrink(resize);
}

}  // namespace fatvol
