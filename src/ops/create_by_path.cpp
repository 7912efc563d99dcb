#include "ops/create_by_path.h"

#include "dir/dir_change.h"
#include "dir/dir_listing.h"
#include "dir/dir_lookup.h"
#include "dir/subdirectory.h"
#include "ops/cache_key.h"
#include "ops/path_lookup.h"
#include "volume/fat_volume.h"
#include "volume/flush.h"
#include "volume/resize_file.h"

namespace fatvol {
namespace {

// Opens the directory of the walk's next component, or makes it.
FatStatus OpenOrMake(FatVolume& volume, const PathKeys& keys, CFatFile& directory,
                     const char16_t* component, FileReference* object) {
    const DirItem* item = FindDirItem(directory, component);
    if (!item) {
        return CreateSubdirectory(directory, component, 0, object);
    }
    return IsDirectory(item->entry) ? OpenItem(volume, keys, *item, object) : STATUS_NOT_FOUND;
}

// The parent directory of a path, made with all that is missing on the way.
FatStatus MakeParentPath(FatVolume& volume, PathKeys& keys, FileReference* parent) {
    PathWalk walk = StartWalk(volume, keys);
    char16_t component[PathBufferUnits];
    for (;;) {
        if (!IsDirectory(*walk.directory)) {
            return STATUS_NOT_FOUND;
        }
        if (walk.prefix == keys.prefixCount) {
            *parent = std::move(walk.directory);
            return STATUS_SUCCESS;
        }
        NextComponent(walk, component);
        FileReference next;
        FatStatus status = OpenOrMake(volume, keys, *walk.directory, component, &next);
        if (Succeeded(status)) {
            status = StepInto(volume, keys, std::move(next), walk);
        }
        if (Failed(status)) {
            return status;
        }
    }
}

FatStatus MakeObject(FatVolume& volume, CFatFile& parent, DirItem& item, std::uint32_t sizeBytes,
                     FileReference* made) {
    FileReference object = NewFatFile();
    if (!object) {
        return STATUS_NO_MEMORY;
    }
    FatStatus status = InitFromItem(*object, volume, item);
    if (Failed(status)) {
        return status == STATUS_NO_MEMORY ? status : STATUS_FILE_CORRUPT_ERROR;
    }
    if (sizeBytes != 0) {
        status = ResizeFile(*object, sizeBytes, &parent, &item);
    }
    if (Succeeded(status)) {
        *made = std::move(object);
    }
    return status;
}

FatStatus CreateFileIn(FatVolume& volume, CFatFile& parent, const char16_t* name,
                       std::uint32_t sizeBytes, std::uint8_t attributes, FileReference* created) {
    const auto attribute = static_cast<std::uint8_t>(attributes & ~AttrDirectory);
    DirItem* item = nullptr;
    FatStatus status = CreateDirEntries(parent, name, {attribute, 0, 0}, &item);
    if (Failed(status)) {
        return status;
    }
    status = MakeObject(volume, parent, *item, sizeBytes, created);
    if (Failed(status)) {
        UndoEntry(parent, *item);
    }
    return status;
}

}  // namespace

FatStatus CreateByPath(FatVolume& volume, const char16_t* path, NewObject kind,
                       std::uint32_t sizeBytes, std::uint8_t attributes, FileReference* created) {
    if ((attributes & AttrVolumeLabel) != 0) {
        return STATUS_INVALID_PARAMETER;
    }
    PathKeys keys;
    MakePathKeys(path, &keys);
    if (CFatFile* open = LookupOpenObject(volume, keys)) {
        TouchOpenObject(volume.openObjects, *open);
        return STATUS_DRIVER_INTERNAL_ERROR;
    }
    FileReference parent;
    FatStatus status = LinkIfManyWait(volume);
    if (Succeeded(status)) {
        status = MakeParentPath(volume, keys, &parent);
    }
    if (Failed(status)) {
        return status;
    }
    const char16_t* name = keys.prefixCount == 0 ? path : keys.prefixes[keys.prefixCount - 1].rest;
    if (FindDirItem(*parent, name)) {
        return STATUS_DRIVER_INTERNAL_ERROR;
    }
    PreparedKey key;
    status = PrepareKey(volume, keys.fullKey, keys.folded, &key);
    if (Failed(status)) {
        return status;
    }
    FileReference object;
    status = kind == NewObject::Directory
                 ? CreateSubdirectory(*parent, name, attributes, &object)
                 : CreateFileIn(volume, *parent, name, sizeBytes, attributes, &object);
    if (Succeeded(status)) {
        CacheObject(*object, std::move(key));
        *created = std::move(object);
    }
    return status;
}

}  // namespace fatvol
