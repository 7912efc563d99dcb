#include "ops/path_lookup.h"

#include "dir/dir_listing.h"
#include "dir/dir_lookup.h"
#include "dir/dir_parser.h"
#include "dir/upcase.h"
#include "ops/cache_key.h"
#include "ops/open_object_cache.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

constexpr char16_t Separator = u'\\';

// Where the chain of an object ends: one that meets it ends there too. 0 without clusters.
std::uint32_t EndOf(const CFatFile& object) {
    return TotalClusters(object.runs) != 0 ? LastLinkedCluster(object) : 0;
}

// Whether a chain with this end meets an object, be it in clusters that wait for their link.
bool Meets(const CFatFile& object, std::uint32_t end) {
    return EndOf(object) == end || (object.linkedSize != 0 && LastCluster(object.runs) == end);
}

// Whether another open directory, or one on the way to this one, has clusters of it. Two listings
// of the same entries would write over each other's changes, and directories in a circle, which
// need not stay open so long, would be loaded anew for each component of a path.
bool MeetsAnother(const CFatFile& directory, const PathKeys& keys) {
    const std::uint32_t end = EndOf(directory);
    if (end == 0) {
        return false;
    }
    for (std::uint32_t i = 0; i < keys.prefixCount; ++i) {
        if (keys.prefixes[i].lastCluster == end) {
            return true;
        }
    }
    const auto& live = directory.volume->liveObjects;
    for (auto* link = live.next; link != &live; link = link->next) {
        const auto& other = static_cast<const CFatFile&>(*link);
        if (&other != &directory && IsDirectory(other) && Meets(other, end)) {
            return true;
        }
    }
    return false;
}

}  // namespace

void MakePathKeys(const char16_t* path, PathKeys* keys) {
    keys->path = path;
    keys->prefixCount = 0;
    NameHasher hasher;
    std::uint32_t length = 0;
    for (; path[length] != 0; ++length) {
        const char16_t unit = UpcaseUnit(path[length]);
        keys->folded[length] = FoldUnit(path[length]);
        if (unit == Separator) {
            keys->prefixes[keys->prefixCount++] = {hasher.Key(), path + length + 1, 0};
        }
        hasher.Add(unit);
    }
    keys->folded[length] = 0;
    keys->fullKey = hasher.Key();
}

CFatFile* LookupOpenObject(const FatVolume& volume, const PathKeys& keys) {
    return FindOpenObject(volume.openObjects, keys.fullKey, keys.folded);
}

FatStatus OpenItem(FatVolume& volume, const PathKeys& keys, const DirItem& item,
                   FileReference* object) {
    FileReference opened = NewFatFile();
    if (!opened) {
        return STATUS_NO_MEMORY;
    }
    FatStatus status = InitFromItem(*opened, volume, item);
    if (Succeeded(status) && IsDirectory(*opened)) {
        status = MeetsAnother(*opened, keys) ? STATUS_FILE_CORRUPT_ERROR : LoadDirListing(*opened);
    }
    if (Failed(status)) {
        return status == STATUS_NO_MEMORY ? status : STATUS_FILE_CORRUPT_ERROR;
    }
    *object = std::move(opened);
    return STATUS_SUCCESS;
}

PathWalk StartWalk(FatVolume& volume, PathKeys& keys) {
    for (std::uint32_t i = keys.prefixCount; i-- > 0;) {
        PrefixKey& prefix = keys.prefixes[i];
        if (CFatFile* open = FindOpenObject(volume.openObjects, prefix.key, keys.folded)) {
            TouchOpenObject(volume.openObjects, *open);
            prefix.lastCluster = EndOf(*open);
            return {FileReference::To(*open), prefix.rest, i + 1};
        }
    }
    return {FileReference::To(*volume.rootDirectory), keys.path, 0};
}

const char16_t* NextComponent(const PathWalk& walk, char16_t* component) {
    const char16_t* path = walk.rest;
    while (*path != 0 && *path != Separator) {
        *component++ = *path++;
    }
    *component = 0;
    return path;
}

FatStatus StepInto(FatVolume& volume, PathKeys& keys, FileReference object, PathWalk& walk) {
    PrefixKey& prefix = keys.prefixes[walk.prefix];
    PreparedKey key;
    const FatStatus status = PrepareKey(volume, prefix.key, keys.folded, &key);
    if (Failed(status)) {
        return status;
    }
    prefix.lastCluster = EndOf(*object);
    CacheObject(*object, std::move(key));
    walk = {std::move(object), prefix.rest, walk.prefix + 1};
    return STATUS_SUCCESS;
}

FatStatus FindPathEntry(FatVolume& volume, PathKeys& keys, FileReference* parent, DirItem** item) {
    PathWalk walk = StartWalk(volume, keys);
    char16_t component[PathBufferUnits];
    for (;;) {
        if (!IsDirectory(*walk.directory)) {
            return STATUS_NOT_FOUND;
        }
        const char16_t* after = NextComponent(walk, component);
        DirItem* found = FindDirItem(*walk.directory, component);
        if (!found || (*after != 0 && !IsDirectory(found->entry))) {
            return STATUS_NOT_FOUND;
        }
        if (*after == 0) {
            *parent = std::move(walk.directory);
            *item = found;
            return STATUS_SUCCESS;
        }
        FileReference opened;
        FatStatus status = OpenItem(volume, keys, *found, &opened);
        if (Succeeded(status)) {
            status = StepInto(volume, keys, std::move(opened), walk);
        }
        if (Failed(status)) {
            return status;
        }
    }
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
    FileReference opened;
    if (Succeeded(status)) {
        status = OpenItem(volume, keys, *item, &opened);
    }
    PreparedKey key;
    if (Succeeded(status)) {
        status = PrepareKey(volume, keys.fullKey, keys.folded, &key);
    }
    if (Succeeded(status)) {
        CacheObject(*opened, std::move(key));
        *object = std::move(opened);
    }
    return status;
}

}  // namespace fatvol
