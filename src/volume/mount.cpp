#include "volume/mount.h"

#include "data/fat_file.h"
#include "dir/dir_listing.h"
#include "dir/dir_parser.h"
#include "platform/allocation.h"
#include "storage/log2_floor.h"
#include "storage/storage_io.h"
#include "volume/fat_volume.h"
#include "volume/geometry.h"

namespace fatvol {
namespace {

// The item that stands for the root directory, which has no entry of its own.
DirItem MakeRootItem(const FatVolume& volume, std::uint32_t rootCluster,
                     std::uint32_t rootDirectorySize) {
    DirItem item;
    item.entry.DIR_Attr = AttrDirectory;
    SetFirstCluster(item.entry, volume.isFat32 ? rootCluster : FixedRootCluster);
    SetFileSize(item.entry, rootDirectorySize);
    return item;
}

FatStatus OpenRootDirectory(FatVolume& volume, const DirItem& item) {
    FileReference root = NewFatFile();
    if (!root) {
        return STATUS_NO_MEMORY;
    }
    FatStatus status = InitFromItem(*root, volume, item, ObjectOrigin::MountedRoot);
    if (Failed(status)) {
        return status == STATUS_NO_MEMORY ? status : STATUS_DISK_CORRUPT_ERROR;
    }
    status = LoadDirListing(*root);
    if (Succeeded(status)) {
        volume.rootDirectory = root.Detached();
    }
    return status;
}

}  // namespace

FatStatus MountVolume(FatVolume& volume) {
    Mpb mpb{};
    FatStatus status = ReadMpb(*volume.storage, &mpb);
    if (Failed(status)) {
        return status;
    }
    if (mpb.BPB_BytsPerSec != volume.storage->BytesPerSector) {
        // The host would transfer sectors of another size than those that buffers are made for.
        return STATUS_UNRECOGNIZED_VOLUME;
    }
    std::uint32_t rootCluster = 0;
    std::uint32_t rootDirectorySize = 0;
    status = ComputeGeometry(volume, mpb, &rootCluster, &rootDirectorySize);
    if (Failed(status)) {
        return status;
    }
    status =
        InitFatTable(volume, volume.fatType, Log2Floor(volume.bytesPerSector), volume.clusterCount);
    if (Failed(status)) {
        return status;
    }
    // Cluster 0 means "no clusters" in an entry; a root directory must have one.
    if (volume.isFat32 && (rootCluster < 2 || rootCluster > volume.clusterCount + 1)) {
        return STATUS_DISK_CORRUPT_ERROR;
    }
    return OpenRootDirectory(volume, MakeRootItem(volume, rootCluster, rootDirectorySize));
}

std::unique_ptr<FatVolume> MountStorage(StorageOwner storage, void* parameter) {
    auto volume = TryNew<FatVolume>();
    if (!volume || Failed(OpenStorage(*storage, parameter))) {
        return nullptr;
    }
    volume->storage = std::move(storage);
    if (Failed(MountVolume(*volume))) {
        AbandonVolume(*volume);
        return nullptr;
    }
    return volume;
}

void AbandonVolume(FatVolume& volume) {
    DetachObjects(volume, DirtyBlocks::Discard);
    EmptyOpenObjectCache(volume.openObjects);
    if (volume.rootDirectory) {
        Release(*std::exchange(volume.rootDirectory, nullptr));
    }
    CloseStorage(*volume.storage);
}

bool IsSound(const FatVolume& volume) {
    bool rootIsLive = false;
    for (auto* link = volume.liveObjects.next; link != &volume.liveObjects; link = link->next) {
        const auto& object = static_cast<const CFatFile&>(*link);
        rootIsLive = rootIsLive || &object == volume.rootDirectory;
        if (object.volume != &volume || !IsSound(object) || !IsSound(object.blocks, object)) {
            return false;
        }
    }
    return rootIsLive && IsSound(volume.fatTable) && IsSound(volume.clusterBitmap) &&
           volume.clusterBitmap.map.bitCount == volume.clusterCount + 2 && AgreesWithFat(volume) &&
           IsSound(volume.openObjects);
}

}  // namespace fatvol
