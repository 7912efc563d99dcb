#include "api/library_state.h"

#include <algorithm>

#include "platform/allocation.h"
#include "storage/storage_io.h"
#include "volume/fat_volume.h"
#include "volume/mount.h"

namespace fatvol {

LibraryState* Library = nullptr;

namespace {

// Shows the caches and tables of a state, or of none, to the layers below.
void ShareData(const LibraryState* state) {
    RunArrayPool = state ? state->runArrayPool.get() : nullptr;
    SharedBlockCache = state ? state->blockCache.get() : nullptr;
    IndexNodePool = state ? state->indexNodePool.get() : nullptr;
    TransferRunTable = state ? state->transferRunTable.get() : nullptr;
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
    auto state = TryNew<LibraryState>();
    if (!state) {
        return false;
    }
    state->runArrayPool = CreatePool(PooledRunCapacity * sizeof(ClusterRun));
    state->blockCache = CreateBlockCache();
    state->indexNodePool = CreatePool(sizeof(BlockIndexNode));
    state->transferRunTable = TryNewArray<TransferRun>(TransferRunCount);
    if (!state->runArrayPool || !state->blockCache || !state->indexNodePool ||
        !state->transferRunTable) {
        return false;
    }
    Library = state.release();
    ShareData(Library);
    return true;
}

void DestroyLibrary() {
    while (Library->mountedVolumes) {
        const auto volume = DismissVolume(*Library->mountedVolumes);
        AbandonVolume(*volume);
    }
    delete std::exchange(Library, nullptr);
    ShareData(nullptr);
}

bool IsLibraryReady() {
    return Library && !StorageCall::IsAnyUnderWay();
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
    return IsLibraryReady() && IsUsable(Library->currentVolume) ? Library->currentVolume : nullptr;
}

FatVolume* ChangeableVolume() {
    FatVolume* volume = CurrentVolume();
    return volume && !volume->isUncertain ? volume : nullptr;
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

CFatFile* ChangeableFileOf(int handle) {
    CFatFile* file = FileOf(handle);
    return file && !file->volume->isUncertain ? file : nullptr;
}

FindRecord* FindRecordOf(int handle) {
    if (!CanCloseFind(handle)) {
        return nullptr;
    }
    FindRecord& record = *Library->finds.slots[handle];
    return IsUsable(record.directory->volume) ? &record : nullptr;
}

void LetGo(FileReference file) {
    FatVolume* volume = file->volume;
    CloseRelease(*file.Detached());
    if (IsUsable(volume)) {
        TrimOpenObjectCache(volume->openObjects);
    }
}

namespace {

std::uint32_t CountHolders(const CFatFile& object) {
    std::uint32_t count = IsLinked<OpenObjectTag>(object) ? 1u : 0u;
    count += object.volume && object.volume->rootDirectory == &object ? 1u : 0u;
    for (const FileReference& file : Library->files.slots) {
        count += file.get() == &object ? 1u : 0u;
    }
    for (const auto& find : Library->finds.slots) {
        count += find && find->directory.get() == &object ? 1u : 0u;
    }
    return count;
}

bool AreReferencesSound(const FatVolume& volume) {
    for (auto* link = volume.liveObjects.next; link != &volume.liveObjects; link = link->next) {
        const auto& object = static_cast<const CFatFile&>(*link);
        if (object.refCount != CountHolders(object)) {
            return false;
        }
    }
    return true;
}

bool AreCursorsSound() {
    return std::all_of(std::begin(Library->finds.slots), std::end(Library->finds.slots),
                       [](const std::unique_ptr<FindRecord>& find) {
                           return !find || !find->directory->volume || IsLinked(find->cursor);
                       });
}

}  // namespace

bool IsLibrarySound() {
    bool sound = IsSound(*RunArrayPool) && IsSound(*IndexNodePool) && IsSound(*SharedBlockCache) &&
                 IsSound(Library->files) && IsSound(Library->finds) && AreCursorsSound() &&
                 (!Library->currentVolume || IsMountedVolume(Library->currentVolume));
    for (const FatVolume* v = Library->mountedVolumes.get(); v; v = v->nextMounted.get()) {
        sound = sound && (!IsUsable(v) || (IsSound(*v) && AreReferencesSound(*v)));
    }
    return sound;
}

}  // namespace fatvol
