#include "data/fat_file.h"

#include <algorithm>

#include "dir/dir_listing.h"
#include "platform/allocation.h"
#include "volume/fat_volume.h"

namespace fatvol {

CFatFile::CFatFile() {
    openKey.object = this;
}

CFatFile::~CFatFile() {
    Detach(*this, DirtyBlocks::WriteBack);
}

FileReference NewFatFile() {
    return FileReference(TryNew<CFatFile>().release());
}

void CopyEntryAndName(CFatFile& file, const DirItem& item) {
    file.entry = item.entry;
    file.longNameLength = 0;
    if (item.longEntryCount != 0) {
        file.longNameLength = std::min(NameLength(item), MaxLongNameUnits);
        std::copy_n(item.name.get(), file.longNameLength, file.longName);
    }
}

namespace {

FatStatus FollowChain(CFatFile& file, FatVolume& volume) {
    const std::uint32_t badCluster = BadClusterMark(volume.fatType);
    std::uint32_t cluster = file.firstCluster;
    // A loop comes back to the cluster at some power of two; otherwise the volume's cluster count
    // bounds the walk.
    std::uint32_t checkpoint = 0;
    for (std::uint32_t index = 0; index < volume.clusterCount; ++index) {
        if (cluster < 2 || cluster >= volume.clusterCount + 2 || cluster == checkpoint) {
            return STATUS_DISK_CORRUPT_ERROR;
        }
        checkpoint = (index & (index + 1)) == 0 ? cluster : checkpoint;
        FatStatus status = MapRange(file.runs, index, index + 1, cluster);
        if (Failed(status)) {
            return status;
        }
        status = GetFatEntry(volume, cluster, &cluster);
        if (Failed(status)) {
            return status;
        }
        if (cluster > badCluster) {
            return STATUS_SUCCESS;
        }
        if (cluster == badCluster) {
            // On a volume with that many clusters it is a number too, but as a link it is a mark.
            return STATUS_DISK_CORRUPT_ERROR;
        }
    }
    return STATUS_DISK_CORRUPT_ERROR;
}

}  // namespace

FatStatus InitFromItem(CFatFile& file, FatVolume& volume, const DirItem& item,
                       ObjectOrigin origin) {
    file.volume = &volume;
    LinkLast<LiveObjectTag>(volume.liveObjects, file);
    CopyEntryAndName(file, item);
    file.firstCluster = FirstCluster(file.entry);
    file.blocks.buckets = TryNewArray<BlockIndexNode*>(IndexBucketCount);
    if (!file.blocks.buckets) {
        return STATUS_NO_MEMORY;
    }
    FatStatus status = Init(file.runs);
    if (Failed(status)) {
        return status;
    }
    if (origin == ObjectOrigin::MountedRoot && file.firstCluster == FixedRootCluster) {
        file.allocatedSize = FileSize(file.entry);
        SetFileSize(file.entry, 0);
        return STATUS_SUCCESS;
    }
    if (file.firstCluster != 0) {
        status = FollowChain(file, volume);
    }
    file.allocatedSize = std::uint64_t{TotalClusters(file.runs)} * volume.bytesPerCluster;
    return status;
}

std::uint64_t DataSize(const CFatFile& file) {
    return IsDirectory(file) ? file.allocatedSize : FileSize(file.entry);
}

std::uint32_t LastLinkedCluster(const CFatFile& file) {
    const std::uint64_t linked = file.linkedSize != 0 ? file.linkedSize : file.allocatedSize;
    return ClusterOf(file.runs,
                     static_cast<std::uint32_t>(linked >> file.volume->clusterShift) - 1);
}

void Release(CFatFile& file) {
    if (--file.refCount == 0) {
        delete &file;
    }
}

void CloseRelease(CFatFile& file) {
    file.position = 0;
    Release(file);
}

void Detach(CFatFile& file, DirtyBlocks dirtyBlocks) {
    if (!file.volume) {
        return;
    }
    file.listing.reset();
    if (!DropFileBlocks(file, dirtyBlocks)) {
        file.volume->isUncertain = true;
    }
    file.blocks.buckets.reset();
    Release(file.runs);
    file.allocatedSize = 0;
    Unlink<LiveObjectTag>(file);
    file.volume = nullptr;
}

namespace {

bool AreClustersValid(const CFatFile& file) {
    const ClusterRun* const runs = file.runs.runs;
    for (std::uint32_t run = 1; run < file.runs.count; ++run) {
        const std::uint64_t length = runs[run].endIndex - runs[run - 1].endIndex;
        if (runs[run].startCluster < 2 ||
            runs[run].startCluster + length > std::uint64_t{file.volume->clusterCount} + 2) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool IsSound(const CFatFile& file) {
    if (!file.volume) {
        return true;
    }
    if (!AreClustersValid(file) || IsDirectory(file) != (file.listing != nullptr)) {
        return false;
    }
    if (!IsSound(file.runs) || (file.listing && !IsSound(*file.listing)) ||
        !IsLinked<LiveObjectTag>(file)) {
        return false;
    }
    if (file.firstCluster == FixedRootCluster) {
        return TotalClusters(file.runs) == 0;
    }
    if (file.linkedSize != 0 && (!file.listing || file.linkedSize >= file.allocatedSize)) {
        return false;
    }
    const bool hasClusters = TotalClusters(file.runs) != 0;
    return file.allocatedSize ==
               std::uint64_t{TotalClusters(file.runs)} * file.volume->bytesPerCluster &&
           file.firstCluster == FirstCluster(file.entry) &&
           hasClusters == (file.firstCluster != 0) &&
           (!hasClusters || file.runs.runs[1].startCluster == file.firstCluster);
}

}  // namespace fatvol
