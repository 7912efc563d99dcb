#include "ops/open_object_cache.h"

#include <cstring>

#include "data/fat_file.h"
#include "volume/fat_volume.h"
#include "volume/flush.h"

namespace fatvol {
namespace {

CFatFile& ObjectOf(ListNode<OpenObjectTag>& link) {
    return static_cast<CFatFile&>(link);
}

}  // namespace

CFatFile* FindOpenObject(const OpenObjectCache& cache, const NameKey& key,
                         const char16_t* foldedPath) {
    KeyNode* node = FindKey(cache.keys, key, [&](const KeyNode& candidate) {
        const CFatFile& object = *static_cast<const OpenKey&>(candidate).object;
        const std::size_t units = key.size / 2 - 1;
        return std::memcmp(object.keyString.get(), foldedPath, units * sizeof(char16_t)) == 0;
    });
    return node ? static_cast<OpenKey*>(node)->object : nullptr;
}

void TrimOpenObjectCache(OpenObjectCache& cache) {
    auto* link = cache.recency.next;
    while (cache.count > OpenObjectLimit && link != &cache.recency) {
        CFatFile& object = ObjectOf(*link);
        link = link->next;
        // A directory that has grown waits for the write of the FAT, which depends on it.
        if (object.refCount != 1 || object.linkedSize != 0) {
            continue;
        }
        if (!FlushFileBlocks(object)) {
            // It stays, lest its bytes are lost, and the next flush tells. Another one is tried
            // next time: trying them all each time would take longer and longer while storage
            // fails.
            object.volume->hasUntoldFailure = true;
            TouchOpenObject(cache, object);
            return;
        }
        RemoveOpenObject(cache, object);
    }
}

FatStatus AddOpenObject(OpenObjectCache& cache, CFatFile& object) {
    const FatStatus status = InsertKey(cache.keys, object.openKey);
    if (Failed(status)) {
        return status;
    }
    AddReference(object);
    LinkLast<OpenObjectTag>(cache.recency, object);
    ++cache.count;
    TrimOpenObjectCache(cache);
    return STATUS_SUCCESS;
}

void RemoveOpenObject(OpenObjectCache& cache, CFatFile& object) {
    Unlink<OpenObjectTag>(object);
    UnlinkKey(cache.keys, object.openKey);
    --cache.count;
    Release(object);
}

void TouchOpenObject(OpenObjectCache& cache, CFatFile& object) {
    MoveLast<OpenObjectTag>(cache.recency, object);
}

void EmptyOpenObjectCache(OpenObjectCache& cache) {
    while (IsLinked(cache.recency)) {
        RemoveOpenObject(cache, ObjectOf(*cache.recency.next));
    }
}

bool LetGoOpenObject(OpenObjectCache& cache, CFatFile& object) {
    bool isWritten = object.refCount == 1;
    if (isWritten && object.linkedSize != 0) {
        isWritten = Succeeded(FlushDirectories(*object.volume, &isWritten)) && isWritten;
    }
    if (!isWritten || !FlushFileBlocks(object)) {
        return false;
    }
    RemoveOpenObject(cache, object);
    return true;
}

bool IsSound(const OpenObjectCache& cache) {
    std::uint32_t linked = 0;
    for (auto* link = cache.recency.next; link != &cache.recency; link = link->next, ++linked) {
        const CFatFile& object = ObjectOf(*link);
        if (!object.keyString || object.refCount == 0 || !object.volume ||
            object.openKey.key != MakeNameKey(object.keyString.get()) ||
            FindOpenObject(cache, object.openKey.key, object.keyString.get()) != &object) {
            return false;
        }
    }
    return linked == cache.count && CountKeys(cache.keys) == cache.count;
}

}  // namespace fatvol
