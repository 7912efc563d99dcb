#include "ops/path_lookup.h"

#include <algorithm>
#include <cstring>

#include "dir/dir_listing.h"
#include "dir/dir_lookup.h"
#include "dir/dir_parser.h"
#include "dir/upcase.h"
#include "ops/open_object_cache.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

constexpr char16_t Separator = u'\\';

// Where a walk starts: a directory, held, the rest of the path below it and the number of prefixes
// up to it.
struct WalkStart {
    FileReference directory;
    const char16_t* rest = nullptr;
    std::uint32_t prefix = 0;
};

// The deepest directory on the way that is open, or the root.
WalkStart FindWalkStart(FatVolume& volume, const PathKeys& keys) {
    for (std::uint32_t i = keys.prefixCount; i-- > 0;) {
        const PrefixKey& prefix = keys.prefixes[i];
        if (CFatFile* open = FindOpenObject(volume.openObjects, prefix.key, keys.upcased)) {
            TouchOpenObject(volume.openObjects, *open);
            return {FileReference::To(*open), prefix.rest, i + 1};
        }
    }
    return {FileReference::To(*volume.rootDirectory), keys.path, 0};
}

// Copies the first component of a path and returns what follows it.
const char16_t* CopyComponent(const char16_t* path, char16_t* component) {
    while (*path != 0 && *path != Separator) {
        *component++ = *path++;
    }
    *component = 0;
    return path;
}

}  // namespace

void MakePathKeys(const char16_t* path, PathKeys* keys) {
    keys->path = path;
    keys->prefixCount = 0;
    NameHasher hasher;
    std::uint32_t length = 0;
    for (; path[length] != 0; ++length) {
        const char16_t unit = UpcaseUnit(path[length]);
        keys->upcased[length] = unit;
        if (unit == Separator) {
            keys->prefixes[keys->prefixCount++] = {hasher.Key(), path + length + 1};
        }
        hasher.Add(unit);
    }
    keys->upcased[length] = 0;
    keys->fullKey = hasher.Key();
}

CFatFile* LookupOpenObject(const FatVolume& volume, const PathKeys& keys) {
    return FindOpenObject(volume.openObjects, keys.fullKey, keys.upcased);
}

FatStatus OpenItem(FatVolume& volume, const DirItem& item, FileReference* object) {
    FileReference opened = NewFatFile();
    if (!opened) {
        return STATUS_NO_MEMORY;
    }
    FatStatus status = InitFromItem(*opened, volume, item);
    if (Succeeded(status) && IsDirectory(*opened)) {
        status = LoadDirListing(*opened);
    }
    if (Failed(status)) {
        return status == STATUS_NO_MEMORY ? status : STATUS_FILE_CORRUPT_ERROR;
    }
    *object = std::move(opened);
    return STATUS_SUCCESS;
}

FatStatus CacheObject(CFatFile& object, const NameKey& key, const char16_t* upcasedPath) {
    const std::uint32_t units = key.size / 2;
    std::unique_ptr<char16_t[]> keyString(new (std::nothrow) char16_t[units]);
    if (!keyString) {
        return STATUS_NO_MEMORY;
    }
    std::copy_n(upcasedPath, units - 1, keyString.get());
    keyString[units - 1] = 0;
    object.keyString = std::move(keyString);
    object.openKey.key = key;
    return AddOpenObject(object.volume->openObjects, object);
}

namespace {

// Opens the directory of an item on the way and caches it under its prefix.
FatStatus StepInto(FatVolume& volume, const DirItem& item, const PathKeys& keys,
                   std::uint32_t prefix, FileReference* directory) {
    FileReference opened;
    FatStatus status = OpenItem(volume, item, &opened);
    if (Succeeded(status)) {
        status = CacheObject(*opened, keys.prefixes[prefix].key, keys.upcased);
    }
    if (Succeeded(status)) {
        *directory = std::move(opened);
    }
    return status;
}

FatStatus WalkPath(FatVolume& volume, const PathKeys& keys, WalkStart walk, FileReference* parent,
                   DirItem** item) {
    char16_t component[PathBufferUnits];
    for (;;) {
        if (!IsDirectory(*walk.directory)) {
            return STATUS_NOT_FOUND;
        }
        const char16_t* after = CopyComponent(walk.rest, component);
        DirItem* found = FindDirItem(*walk.directory, component);
        if (!found) {
            return STATUS_NOT_FOUND;
        }
        if (*after == 0) {
            *parent = std::move(walk.directory);
            *item = found;
            return STATUS_SUCCESS;
        }
        if (!IsDirectory(found->entry)) {
            return STATUS_NOT_FOUND;
        }
        const FatStatus status = StepInto(volume, *found, keys, walk.prefix, &walk.directory);
        if (Failed(status)) {
            return status;
        }
        walk.rest = after + 1;
        ++walk.prefix;
    }
}

}  // namespace

FatStatus FindPathEntry(FatVolume& volume, const PathKeys& keys, FileReference* parent,
                        DirItem** item) {
    return WalkPath(volume, keys, FindWalkStart(volume, keys), parent, item);
}

FatStatus OpenByPath(FatVolume& volume, const char16_t* path, FileReference* object) {
    PathKeys keys;
    MakePathKeys(path, &keys);
    if (CFatFile* open = LookupOpenObject(volume, keys)) {
        TouchOpenObject(volume.openObjects, *open);
        *object = FileReference::To(*open);
        return STATUS_SUCCESS;
    }
    FileReference parent;
    DirItem* item = nullptr;
    FatStatus status = FindPathEntry(volume, keys, &parent, &item);
    if (Failed(status)) {
        return status;
    }
    FileReference opened;
    status = OpenItem(volume, *item, &opened);
    if (Succeeded(status)) {
        status = CacheObject(*opened, keys.fullKey, keys.upcased);
    }
    if (Succeeded(status)) {
        *object = std::move(opened);
    }
    return status;
}

}  // namespace fatvol
