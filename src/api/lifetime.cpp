// The exported functions of the library's life: start and end, mounting, the current volume.
#include <cstring>

#include "api/fatvol.h"
#include "api/file_info.h"
#include "api/library_state.h"
#include "platform/locale_text.h"
#include "storage/storage_io.h"
#include "volume/fat_volume.h"
#include "volume/mount.h"

using namespace fatvol;

namespace {

// A storage object that is owned already, by a mounted volume or by the call that mounts it or
// deletes it, must not get a second owner.
bool IsStorageInUse(const CFatStorage* storage) {
    const FatVolume* volume = Library ? Library->mountedVolumes.get() : nullptr;
    while (volume && volume->storage.get() != storage) {
        volume = volume->nextMounted.get();
    }
    return volume || StorageCall::IsUnderWay(storage);
}

}  // namespace

void Fat_LibInitialize(void) noexcept {
    if (!Library) {
        SelectEnvironmentLocale();
        // Without memory there is no library, and every other function says so.
        (void)CreateLibrary();
    }
}

bool Fat_LibTerminate(void) noexcept {
    if (!IsLibraryReady()) {
        return false;
    }
    const bool allClosed = Library->files.count == 0 && Library->finds.count == 0;
    DestroyLibrary();
    return allClosed;
}

FatVolume* Fat_Mount(CFatStorage* storage, void* parameter) noexcept {
    if (IsStorageInUse(storage)) {
        return nullptr;
    }
    const bool isReady = IsLibraryReady();
    // Its blocks may need the place of another volume's, whose storage is called then.
    const StorageCall call(storage);
    StorageOwner owned(storage);
    if (!isReady) {
        return nullptr;
    }
    Library->currentVolume = nullptr;
    if (!owned) {
        return nullptr;
    }
    std::unique_ptr<FatVolume> volume = MountStorage(std::move(owned), parameter);
    if (volume) {
        AdoptVolume(std::move(volume));
    }
    return Library->currentVolume;
}

bool Fat_Unmount(FatVolume* volume) noexcept {
    if (!IsLibraryReady() || !IsMountedVolume(volume) || Failed(UnmountVolume(*volume))) {
        return false;
    }
    DismissVolume(*volume);
    return true;
}

void SetCurrentFileSystem(FatVolume* volume) noexcept {
    if (IsLibraryReady()) {
        Library->currentVolume = IsMountedVolume(volume) ? volume : nullptr;
    }
}

bool Fat_GetVolumeInfo(FatVolume* volume, FatVolumeInfo* info) noexcept {
    if (!IsLibraryReady() || !info || !IsMountedVolume(volume) ||
        volume->state != VolumeState::Mounted ||
        (info->size < sizeof(FatVolumeInfo) && info->size != FirstVolumeInfoSize)) {
        return false;
    }
    FillVolumeInfo(*volume, info);
    return true;
}

bool Fat_FlushVolume(FatVolume* volume) noexcept {
    return IsLibraryReady() && IsMountedVolume(volume) && volume->state == VolumeState::Mounted &&
           FlushVolume(*volume);
}

void osMemCpy(void* destination, void* source, unsigned long long size) noexcept {
    if (destination && source) {
        std::memcpy(destination, source, size);
    }
}
