// Finding, reading and evicting the cached blocks of the FAT.
#include <algorithm>
#include <utility>

#include "platform/allocation.h"
#include "storage/storage_io.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

using BucketPlace = std::unique_ptr<FatCacheBucket>;

BucketPlace& BucketOf(const FatTable& table, std::uint32_t blockIndex) {
    return table.buckets[blockIndex % FatBucketCount];
}

FatCacheNode* FindNode(const FatTable& table, std::uint32_t blockIndex) {
    const BucketPlace& bucket = BucketOf(table, blockIndex);
    for (std::uint32_t i = 0; bucket && i < bucket->count; ++i) {
        if (bucket->nodes[i]->block->blockIndex == blockIndex) {
            return bucket->nodes[i];
        }
    }
    return nullptr;
}

// Makes sure that the bucket can take one more node. On failure the bucket is as it was.
FatStatus ReserveInBucket(BucketPlace& place) {
    const std::uint32_t count = place ? place->count : 0;
    if (place && count < place->capacity) {
        return STATUS_SUCCESS;
    }
    BucketPlace larger = TryNew<FatCacheBucket>();
    if (!larger) {
        return STATUS_NO_MEMORY;
    }
    larger->capacity = count + FatBucketGrowth;
    larger->nodes = TryNewArray<FatCacheNode*>(larger->capacity);
    if (!larger->nodes) {
        return STATUS_NO_MEMORY;
    }
    larger->count = count;
    if (place) {
        std::copy_n(place->nodes.get(), count, larger->nodes.get());
    }
    place = std::move(larger);
    return STATUS_SUCCESS;
}

// Takes a node out of its bucket, keeping the order of the others. False when it is not there.
bool RemoveFromBucket(const FatTable& table, const FatCacheNode& node) {
    const BucketPlace& bucket = BucketOf(table, node.block->blockIndex);
    if (!bucket) {
        return false;
    }
    FatCacheNode** const begin = bucket->nodes.get();
    FatCacheNode** const end = begin + bucket->count;
    FatCacheNode** const found = std::find(begin, end, &node);
    if (found == end) {
        return false;
    }
    std::copy(found + 1, end, found);
    --bucket->count;
    return true;
}

void DropBucketIfEmpty(BucketPlace& place) {
    if (place && place->count == 0) {
        place.reset();
    }
}

// Frees the node of the least recently used block. A block that cannot be written stays cached and
// dirty, and becomes the most recently used one so that the next eviction tries another.
FatStatus EvictNode(FatVolume& volume, FatCacheNode** freed) {
    FatTable& table = volume.fatTable;
    auto& node = static_cast<FatCacheNode&>(*table.recency.next);
    if (node.block->dirty != 0) {
        const FatStatus status = WriteFatBlock(volume, *node.block);
        if (Failed(status)) {
            MoveLast(table.recency, node);
            return status;
        }
        node.block->dirty = 0;
        if (FatBlock** place = FindDirtyPlace(table, *node.block)) {
            *place = nullptr;
        }
    }
    if (!RemoveFromBucket(table, node)) {
        return STATUS_FILE_CORRUPT_ERROR;
    }
    Unlink(node);
    node.block.reset();
    *freed = &node;
    return STATUS_SUCCESS;
}

// A node for a block of the bucket `target`, which stays in place even when it is emptied here.
FatStatus TakeNode(FatVolume& volume, const BucketPlace& target, FatCacheNode** node) {
    FatTable& table = volume.fatTable;
    if (table.nodesInUse < FatCacheCapacity) {
        *node = &table.nodes[table.nodesInUse++];
        return STATUS_SUCCESS;
    }
    BucketPlace& victims =
        BucketOf(table, static_cast<FatCacheNode&>(*table.recency.next).block->blockIndex);
    const FatStatus status = EvictNode(volume, node);
    if (Succeeded(status) && &victims != &target) {
        DropBucketIfEmpty(victims);
    }
    return status;
}

FatStatus InsertBlock(FatVolume& volume, std::unique_ptr<FatBlock> block) {
    FatTable& table = volume.fatTable;
    BucketPlace& target = BucketOf(table, block->blockIndex);
    FatCacheNode* node = nullptr;
    FatStatus status = ReserveInBucket(target);
    if (Succeeded(status)) {
        status = TakeNode(volume, target, &node);
    }
    if (Failed(status)) {
        DropBucketIfEmpty(target);
        return status;
    }
    target->nodes[target->count++] = node;
    node->block = std::move(block);
    LinkLast(table.recency, *node);
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus GetFatBlock(FatVolume& volume, std::uint32_t blockIndex, std::uint32_t sectorInFat,
                      FatBlock** block) {
    FatTable& table = volume.fatTable;
    if (FatCacheNode* node = FindNode(table, blockIndex)) {
        MoveLast(table.recency, *node);
        *block = node->block.get();
        return STATUS_SUCCESS;
    }
    // Left uninitialised: the sectors read are all of it that is ever looked at.
    std::unique_ptr<FatBlock> fresh(new (std::nothrow) FatBlock);
    if (!fresh) {
        return STATUS_NO_MEMORY;
    }
    fresh->blockIndex = blockIndex;
    fresh->firstSector = volume.firstFatSector + sectorInFat;
    fresh->dirty = 0;
    const FatStatus read = ReadSectors(*volume.storage, fresh->data, fresh->firstSector,
                                       SectorsOfBlock(table, blockIndex));
    if (Failed(read)) {
        return read;
    }
    FatBlock* const inserted = fresh.get();
    const FatStatus status = InsertBlock(volume, std::move(fresh));
    if (Failed(status)) {
        return status;
    }
    *block = inserted;
    return read;
}

namespace {

bool IsNodeSound(const FatTable& table, const FatCacheNode& node) {
    if (!node.block || FindNode(table, node.block->blockIndex) != &node) {
        return false;
    }
    const auto end = table.dirtyList.begin() + table.dirtyCount;
    const auto places = std::count(table.dirtyList.begin(), end, node.block.get());
    const bool dirty = node.block->dirty != 0;
    return places <= (dirty ? 1 : 0) && (!dirty || places == 1 || table.unlistedDirty);
}

}  // namespace

bool IsSound(const FatTable& table) {
    std::uint32_t linked = 0;
    for (auto* link = table.recency.next; link != &table.recency; link = link->next, ++linked) {
        if (linked == table.nodesInUse ||
            !IsNodeSound(table, static_cast<const FatCacheNode&>(*link))) {
            return false;
        }
    }
    const auto listEnd = table.dirtyList.begin() + table.dirtyCount;
    const auto listed = std::count_if(table.dirtyList.begin(), listEnd, [&](const FatBlock* block) {
        const FatCacheNode* node = block ? FindNode(table, block->blockIndex) : nullptr;
        return !block || (node && node->block.get() == block);
    });
    std::uint32_t inBuckets = 0;
    for (std::uint32_t i = 0; table.buckets && i < FatBucketCount; ++i) {
        inBuckets += table.buckets[i] ? table.buckets[i]->count : 0;
    }
    return linked == inBuckets && linked == table.nodesInUse &&
           table.dirtyCount <= FatDirtyCapacity && listed == table.dirtyCount;
}

}  // namespace fatvol
