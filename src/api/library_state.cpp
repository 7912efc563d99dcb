#include "api/library_state.h"

#include "data/buffer_pool.h"
#include "data/file_data.h"
#include "platform/allocation.h"
#include "volume/fat_volume.h"
#include "volume/mount.h"

namespace fatvol {

LibraryState* Library = nullptr;

namespace {

void FreeSharedData() {
    TransferRunTable.reset();
    SharedBlockCache.reset();
    IndexNodePool.reset();
    RunArrayPool.reset();
}

bool IsUsable(const FatVolume* volume) {
    return volume && volume->state == VolumeState::Mounted;
}

// The link that owns a mounted volume, or the empty link at the end of the chain.
std::unique_ptr<FatVolume>& LinkTo(const FatVolume* volume) {
    std::unique_ptr<FatVolume>* link = &Library->mountedVolumes;
    while (*link && link->get() != volume) {
        link = &(*link)->nextMounted;
    }
    return *link;
}

}  // namespace

bool CreateLibrary() {
    RunArrayPool = CreatePool(PooledRunCapacity * sizeof(ClusterRun));
    SharedBlockCache = CreateBlockCache();
    IndexNodePool = CreatePool(sizeof(BlockIndexNode));
    TransferRunTable = TryNewArray<TransferRun>(TransferRunCount);
    auto state = TryNew<LibraryState>();
    if (!RunArrayPool || !SharedBlockCache || !IndexNodePool || !TransferRunTable || !state) {
        FreeSharedData();
        return false;
    }
    Library = state.release();
    return true;
}

void DestroyLibrary() {
    while (Library->mountedVolumes) {
        const auto volume = DismissVolume(*Library->mountedVolumes);
        AbandonVolume(*volume);
    }
    delete std::exchange(Library, nullptr);
    FreeSharedData();
}

bool IsMountedVolume(const FatVolume* volume) {
    return volume && LinkTo(volume);
}

void AdoptVolume(std::unique_ptr<FatVolume> volume) {
    Library->currentVolume = volume.get();
    volume->nextMounted = std::move(Library->mountedVolumes);
    Library->mountedVolumes = std::move(volume);
}

std::unique_ptr<FatVolume> DismissVolume(const FatVolume& volume) {
    if (Library->currentVolume == &volume) {
        Library->currentVolume = nullptr;
    }
    std::unique_ptr<FatVolume>& link = LinkTo(&volume);
    std::unique_ptr<FatVolume> dismissed = std::move(link);
    link = std::move(dismissed->nextMounted);
    return dismissed;
}

FatVolume* CurrentVolume() {
    return Library && IsUsable(Library->currentVolume) ? Library->currentVolume : nullptr;
}

bool CanCloseFile(int handle) {
    return CurrentVolume() && Library->files.IsOccupied(handle);
}

bool CanCloseFind(int handle) {
    return CurrentVolume() && Library->finds.IsOccupied(handle);
}

CFatFile* FileOf(int handle) {
    if (!CanCloseFile(handle)) {
        return nullptr;
    }
    CFatFile& file = *Library->files.slots[handle];
    return IsUsable(file.volume) ? &file : nullptr;
}

FindRecord* FindRecordOf(int handle) {
    if (!CanCloseFind(handle)) {
        return nullptr;
    }
    FindRecord& record = *Library->finds.slots[handle];
    return IsUsable(record.directory->volume) ? &record : nullptr;
}

}  // namespace fatvol
