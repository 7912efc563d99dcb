#include "dir/subdirectory.h"

#include <cstring>

#include "dir/dir_change.h"
#include "dir/dir_listing.h"
#include "platform/allocation.h"
#include "volume/cluster_allocation.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

// "." or ".." with the times of the directory's own entry.
ShortEntry MakeDotEntry(const ShortEntry& own, const std::uint8_t* name, std::uint32_t cluster) {
    ShortEntry entry = own;
    std::memcpy(entry.DIR_Name, name, ShortNameSize);
    entry.DIR_Attr = AttrDirectory;
    entry.DIR_NTRes = 0;
    SetFirstCluster(entry, cluster);
    SetFileSize(entry, 0);
    return entry;
}

FatStatus AddDotItem(DirListing& listing, const ShortEntry& entry, std::uint32_t slot) {
    auto item = NewDirItem(entry, slot, 0, MakeShortKeyString(entry.DIR_Name).units);
    return item ? AddDirItem(listing, std::move(item)) : STATUS_NO_MEMORY;
}

struct DotEntries {
    ShortEntry dot;
    ShortEntry dotDot;
};

FatStatus MakeListing(CFatFile& directory, const DotEntries& dots) {
    auto listing = TryNew<DirListing>();
    if (!listing) {
        return STATUS_NO_MEMORY;
    }
    FatStatus status = ResizeDirListing(*listing, directory.volume->bytesPerCluster / DirEntrySize);
    if (Succeeded(status)) {
        status = AddDotItem(*listing, dots.dot, 0);
    }
    if (Succeeded(status)) {
        status = AddDotItem(*listing, dots.dotDot, 1);
    }
    if (Succeeded(status)) {
        SetBits(listing->slots, 0, 2);
        listing->endSlot = 2;
        directory.listing = std::move(listing);
    }
    return status;
}

// Makes a block of zeros in the cache without reading the volume: nobody needs what stood there.
FatStatus MakeZeroBlock(CFatFile& directory, std::uint64_t fileOffset, CacheBlock** made) {
    CacheBlock* block = nullptr;
    FatStatus status = ClaimBlock(&block);
    if (Failed(status)) {
        return status;
    }
    block->owner = &directory;
    block->fileOffset = fileOffset;
    block->dirty = 1;
    std::memset(block->data, 0, CacheBlockSize);
    status = AddBlock(directory.blocks, BlockNumber(fileOffset), *block);
    if (Failed(status)) {
        GiveBackBlock(*block);
        return status;
    }
    *made = block;
    return STATUS_SUCCESS;
}

// The directory's cluster may be larger than a cache block: all of it has to read as zero.
FatStatus MakeContent(CFatFile& directory, const DotEntries& dots) {
    CacheBlock* first = nullptr;
    FatStatus status = MakeZeroBlock(directory, 0, &first);
    if (Failed(status)) {
        return status;
    }
    std::memcpy(first->data, &dots.dot, DirEntrySize);
    std::memcpy(first->data + DirEntrySize, &dots.dotDot, DirEntrySize);
    CacheBlock* further = nullptr;
    for (std::uint64_t offset = CacheBlockSize;
         offset < directory.allocatedSize && Succeeded(status); offset += CacheBlockSize) {
        status = MakeZeroBlock(directory, offset, &further);
    }
    return status;
}

std::uint32_t ParentCluster(const CFatFile& parent) {
    return &parent == parent.volume->rootDirectory ? 0 : parent.firstCluster;
}

FatStatus MakeObject(CFatFile& parent, const DirItem& item, FileReference* made) {
    FileReference directory = NewFatFile();
    if (!directory) {
        return STATUS_NO_MEMORY;
    }
    FatStatus status = InitFromItem(*directory, *parent.volume, item);
    if (Failed(status)) {
        return status == STATUS_NO_MEMORY ? status : STATUS_FILE_CORRUPT_ERROR;
    }
    const DotEntries dots{MakeDotEntry(directory->entry, DotName, directory->firstCluster),
                          MakeDotEntry(directory->entry, DotDotName, ParentCluster(parent))};
    status = MakeListing(*directory, dots);
    if (Succeeded(status)) {
        status = MakeContent(*directory, dots);
    }
    if (Failed(status)) {
        // The directory will not exist: none of its bytes may reach the volume.
        Detach(*directory, DirtyBlocks::Discard);
        return status;
    }
    *made = std::move(directory);
    return STATUS_SUCCESS;
}

// Takes one free cluster and ends its chain.
FatStatus TakeCluster(FatVolume& volume, ClusterRunList& cluster) {
    FatStatus status = Init(cluster);
    if (Succeeded(status)) {
        status = AllocateClusters(volume.clusterBitmap, 1, cluster);
    }
    if (Failed(status)) {
        return status;
    }
    return ChainClusters(volume, cluster);
}

// A cluster whose FAT entry cannot be freed stays taken, which does no harm.
void GiveClusterBack(FatVolume& volume, const ClusterRunList& cluster) {
    if (ForceFree(volume, cluster)) {
        ReleaseRuns(volume.clusterBitmap, cluster);
    }
}

}  // namespace

FatStatus CreateSubdirectory(CFatFile& parent, const char16_t* name, std::uint8_t attributes,
                             FileReference* created) {
    FatVolume& volume = *parent.volume;
    ClusterRunList cluster;
    FatStatus status = TakeCluster(volume, cluster);
    DirItem* item = nullptr;
    if (Succeeded(status)) {
        const auto attribute = static_cast<std::uint8_t>(attributes | AttrDirectory);
        status = CreateDirEntries(parent, name, {attribute, 0, LastCluster(cluster)}, &item);
    }
    if (Succeeded(status)) {
        status = MakeObject(parent, *item, created);
        if (Failed(status) && Failed(RemoveEntry(parent, *item))) {
            volume.isUncertain = true;
            return status;  // the entry stands, so its cluster must stay taken
        }
    }
    if (Failed(status) && TotalClusters(cluster) != 0) {
        GiveClusterBack(volume, cluster);
    }
    return status;
}

}  // namespace fatvol
