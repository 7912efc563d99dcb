#include <algorithm>
#include <cstring>
#include <string_view>

#include "data/file_data.h"
#include "dir/dir_change.h"
#include "dir/dir_listing.h"
#include "dir/dir_lookup.h"
#include "dir/dir_slots.h"
#include "ops/cache_key.h"
#include "ops/change_by_path.h"
#include "ops/path_entry.h"
#include "storage/storage_io.h"
#include "volume/fat_volume.h"
#include "volume/flush.h"

namespace fatvol {
namespace {

constexpr std::uint32_t DotEntryCount = 2;  // "." and ".."

// Opens the destination of a move.
FatStatus OpenDestination(FatVolume& volume, const char16_t* path, FileReference* directory) {
    if (!path) {
        *directory = FileReference::To(*volume.rootDirectory);
        return STATUS_SUCCESS;
    }
    PathKeys keys;
    MakePathKeys(path, &keys);
    if (const CFatFile* open = TouchCached(volume, keys); open && IsInUse(*open)) {
        return STATUS_FILE_INVALID;
    }
    const FatStatus status = OpenByPath(volume, path, directory);
    if (Failed(status)) {
        return status;
    }
    return IsDirectory(**directory) ? STATUS_SUCCESS : STATUS_FILE_INVALID;
}

// Points the ".." among the first two entries of a directory to its new parent. A directory of
// another system that has none there is left alone.
void Repoint(ShortEntry (&dots)[DotEntryCount], const CFatFile& parent) {
    if (HasShortName(dots[1], DotDotName)) {
        const bool isRoot = &parent == parent.volume->rootDirectory;
        SetFirstCluster(dots[1], isRoot ? 0 : parent.firstCluster);
    }
}

// The entries of an open directory may stand changed in the cache.
FatStatus RepointOpen(CFatFile& directory, const CFatFile& parent) {
    ShortEntry dots[DotEntryCount]{};
    FatStatus status = ReadDirSlots(directory, 0, DotEntryCount, dots);
    if (Failed(status)) {
        return status;
    }
    Repoint(dots, parent);
    status = WriteDirSlots(directory, 0, DotEntryCount, dots);
    DirItem* const item = NextDirItem(*directory.listing, 1);
    if (Succeeded(status) && item && item->slot == 1) {
        item->entry = dots[1];
    }
    return status;
}

// The entries of a directory that is not open stand on the volume alone.
FatStatus RepointClosed(std::uint32_t firstCluster, const CFatFile& parent) {
    FatVolume& volume = *parent.volume;
    const std::uint64_t position = ClusterPosition(volume, firstCluster);
    ShortEntry dots[DotEntryCount];
    const FatStatus status = ReadBytes(*volume.storage, dots, position, sizeof dots);
    if (Failed(status)) {
        return status;
    }
    Repoint(dots, parent);
    return WriteBytes(*volume.storage, dots, position, sizeof dots);
}

bool HasDataCluster(const FatVolume& volume, const ShortEntry& entry) {
    const std::uint32_t cluster = FirstCluster(entry);
    return cluster >= 2 && cluster < volume.clusterCount + 2;
}

// Moves the entry and, of a directory, the way up.
FatStatus MoveEntry(PathEntry& entry, CFatFile& destination) {
    CFatFile& source = *entry.parent.directory;
    const ShortEntry moved = entry.parent.item->entry;
    if (IsDirectory(moved) && !HasDataCluster(*source.volume, moved)) {
        return STATUS_FILE_CORRUPT_ERROR;
    }
    return MoveDirEntry(source, *entry.parent.item, destination, [&](const CFatFile& parent) {
        if (!IsDirectory(moved)) {
            return STATUS_SUCCESS;
        }
        return entry.object ? RepointOpen(*entry.object, parent)
                            : RepointClosed(FirstCluster(moved), parent);
    });
}

// The path of a name in the destination directory.
struct TargetPath {
    char16_t units[2 * PathBufferUnits];
    std::size_t length = 0;

    TargetPath(const char16_t* directory, std::u16string_view name) {
        if (directory) {
            const std::u16string_view parent(directory);
            length = parent.copy(units, parent.size());
            units[length++] = u'\\';
        }
        length += name.copy(units + length, name.size());
    }
    std::u16string_view View() const { return {units, length}; }
};

}  // namespace

FatStatus MoveByPath(FatVolume& volume, const char16_t* path, const char16_t* destination) {
    FileReference target;
    FatStatus status = OpenDestination(volume, destination, &target);
    if (Failed(status)) {
        return status;
    }
    const char16_t* name = path + (std::u16string_view(path).rfind(u'\\') + 1);
    if (FindDirItem(*target, name)) {
        return STATUS_DRIVER_INTERNAL_ERROR;
    }
    PathKeys keys;
    MakePathKeys(path, &keys);
    PathEntry entry;
    status = FindUnusedEntry(volume, keys, &entry);
    if (Succeeded(status)) {
        status = LinkIfManyWait(volume);
    }
    Rekeying rekeying;
    if (Succeeded(status)) {
        status = rekeying.Prepare(volume, path, TargetPath(destination, name).View());
    }
    if (Succeeded(status)) {
        status = MoveEntry(entry, *target);
    }
    if (Succeeded(status)) {
        rekeying.Apply(volume);
    }
    return status;
}

}  // namespace fatvol
