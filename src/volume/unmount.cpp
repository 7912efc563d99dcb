// Unmounting: everything pending goes to the medium, and everything held is freed.
#include "data/fat_file.h"
#include "dir/dir_listing.h"
#include "storage/storage_io.h"
#include "volume/fat_volume.h"
#include "volume/flush.h"
#include "volume/mount.h"

namespace fatvol {
namespace {

void DiscardDirectories(FatVolume& volume) {
    auto* link = volume.liveObjects.next;
    while (link != &volume.liveObjects) {
        auto& object = static_cast<CFatFile&>(*link);
        link = link->next;
        if (IsDirectory(object)) {
            Detach(object, DirtyBlocks::Discard);
        }
    }
}

}  // namespace

void DetachObjects(FatVolume& volume, DirtyBlocks dirtyBlocks) {
    while (IsLinked(volume.liveObjects)) {
        Detach(static_cast<CFatFile&>(*volume.liveObjects.next), dirtyBlocks);
    }
}

FatStatus UnmountVolume(FatVolume& volume) {
    if (volume.state == VolumeState::Mounted) {
        // Its counts are hints that nobody has to believe, but a second try costs little.
        if (Failed(ResetFsInfo(volume))) {
            (void)ResetFsInfo(volume);
        }
        if (CountGrownDirectories(volume) != 0) {
            // What fails there is tried again below, but for links that cannot be set: they would
            // need a part of the FAT that cannot be read.
            bool allWritten = false;
            (void)FlushDirectories(volume, &allWritten);
            (void)LinkGrownDirectories(volume);
        }
        const FatStatus status = ReleaseFatVolume(volume);
        if (Failed(status)) {
            volume.state = VolumeState::ReleaseFailed;
            return status;
        }
    }
    if (volume.lostFatBlock) {
        // The FAT on the volume is incomplete: the second one, whole though older, must not be
        // replaced by it, and new directories would not fit either of them.
        DiscardDirectories(volume);
    } else {
        // The first FAT is complete, so a copy that fails twice takes nothing away.
        if (Failed(CopyFatToSecond(volume))) {
            (void)CopyFatToSecond(volume);
        }
    }
    EmptyOpenObjectCache(volume.openObjects);
    DetachObjects(volume, DirtyBlocks::WriteBack);
    CloseStorage(*volume.storage);
    return STATUS_SUCCESS;
}

}  // namespace fatvol
