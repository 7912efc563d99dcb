#include "ops/cache_key.h"

#include <algorithm>
#include <new>
#include <string_view>

#include "dir/upcase.h"
#include "ops/path_lookup.h"
#include "platform/allocation.h"
#include "volume/fat_volume.h"

namespace fatvol {

bool IsAtOrBelow(std::u16string_view path, std::u16string_view directory) {
    return path.starts_with(directory) &&
           (path.size() == directory.size() || path[directory.size()] == u'\\');
}

FatStatus PrepareKey(FatVolume& volume, const NameKey& key, const char16_t* foldedPath,
                     PreparedKey* prepared) {
    const std::uint32_t units = key.size / 2;
    std::unique_ptr<char16_t[]> keyString(new (std::nothrow) char16_t[units]);
    if (!keyString || Failed(ReserveKey(volume.openObjects.keys, key))) {
        return STATUS_NO_MEMORY;
    }
    std::copy_n(foldedPath, units - 1, keyString.get());
    keyString[units - 1] = 0;
    prepared->key = key;
    prepared->keyString = std::move(keyString);
    return STATUS_SUCCESS;
}

void CacheObject(CFatFile& object, PreparedKey prepared) {
    object.keyString = std::move(prepared.keyString);
    object.openKey.key = prepared.key;
    // The key's place in the table is there.
    (void)AddOpenObject(object.volume->openObjects, object);
}

namespace {

// A path of at most MaxPathUnits units, folded.
struct FoldedPath {
    char16_t units[MaxPathUnits];
    std::size_t length;

    explicit FoldedPath(std::u16string_view path) : length(path.size()) {
        std::transform(path.begin(), path.end(), units, FoldUnit);
    }
    std::u16string_view View() const { return {units, length}; }
};

FatStatus PrepareMoved(FatVolume& volume, std::u16string_view newRoot, std::u16string_view below,
                       PreparedKey* prepared) {
    char16_t path[PathBufferUnits];
    newRoot.copy(path, newRoot.size());
    below.copy(path + newRoot.size(), below.size());
    path[newRoot.size() + below.size()] = 0;
    return PrepareKey(volume, MakeNameKey(path), path, prepared);
}

CFatFile& ObjectOf(ListNode<OpenObjectTag>& link) {
    return static_cast<CFatFile&>(link);
}

}  // namespace

FatStatus Rekeying::Prepare(FatVolume& volume, std::u16string_view oldPath,
                            std::u16string_view newPath) {
    if (oldPath.size() > MaxPathUnits || newPath.size() > MaxPathUnits) {
        return STATUS_INVALID_PARAMETER;
    }
    const FoldedPath from(oldPath);
    const FoldedPath to(newPath);
    OpenObjectCache& cache = volume.openObjects;
    changes = TryNewArray<Change>(cache.count);
    if (!changes) {
        return STATUS_NO_MEMORY;
    }
    for (auto* link = cache.recency.next; link != &cache.recency;) {
        CFatFile& object = ObjectOf(*link);
        link = link->next;
        const std::u16string_view path(object.keyString.get());
        if (!IsAtOrBelow(path, from.View())) {
            continue;
        }
        const std::u16string_view below = path.substr(from.length);
        if (to.length + below.size() > MaxPathUnits) {
            if (!LetGoOpenObject(cache, object)) {
                return STATUS_INVALID_PARAMETER;
            }
            continue;
        }
        Change& change = changes[count];
        const FatStatus status = PrepareMoved(volume, to.View(), below, &change.prepared);
        if (Failed(status)) {
            return status;
        }
        change.object = FileReference::To(object);
        ++count;
    }
    return STATUS_SUCCESS;
}

void Rekeying::Apply(FatVolume& volume) {
    KeyTable& keys = volume.openObjects.keys;
    for (std::uint32_t i = 0; i < count; ++i) {
        CFatFile& object = *changes[i].object;
        UnlinkKey(keys, object.openKey);
        object.keyString = std::move(changes[i].prepared.keyString);
        object.openKey.key = changes[i].prepared.key;
        // The key's place in the table is there.
        (void)InsertKey(keys, object.openKey);
    }
}

}  // namespace fatvol
