#include "data/block_cache.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "data/buffer_pool.h"
#include "data/direct_transfer.h"
#include "data/fat_file.h"
#include "platform/allocation.h"

namespace fatvol {

BlockCache* SharedBlockCache = nullptr;

void FreeMemory::operator()(void* memory) const {
    std::free(memory);
}

std::unique_ptr<BlockCache> CreateBlockCache() {
    auto cache = TryNew<BlockCache>();
    if (!cache) {
        return nullptr;
    }
    cache->memory.reset(std::calloc(CacheBlockCount, sizeof(CacheBlock)));
    cache->freeStack = TryNewArray<CacheBlock*>(CacheBlockCount);
    if (!cache->memory || !cache->freeStack) {
        return nullptr;
    }
    auto* bytes = static_cast<std::uint8_t*>(cache->memory.get());
    for (std::uint32_t i = 0; i < CacheBlockCount; ++i) {
        // Default initialisation leaves the data alone, so that no page is touched before its use.
        cache->freeStack[i] = new (bytes + std::size_t{i} * sizeof(CacheBlock)) CacheBlock;
    }
    return cache;
}

namespace {

BlockIndexNode*& BucketOf(const BlockIndex& index, std::uint32_t blockNumber) {
    return index.buckets[blockNumber % IndexBucketCount];
}

// The link that points at the last node of a chain that has one.
BlockIndexNode*& LinkToLast(BlockIndexNode*& head) {
    BlockIndexNode** link = &head;
    while ((*link)->next) {
        link = &(*link)->next;
    }
    return *link;
}

BlockIndexNode::Entry* FindEntry(const BlockIndex& index, std::uint32_t blockNumber) {
    for (BlockIndexNode* node = BucketOf(index, blockNumber); node; node = node->next) {
        for (std::uint32_t i = 0; i < node->count; ++i) {
            if (node->entries[i].blockNumber == blockNumber) {
                return &node->entries[i];
            }
        }
    }
    return nullptr;
}

// Fills the entry's place with the last entry of the chain and gives a node so emptied back.
void RemoveEntry(BlockIndex& index, BlockIndexNode::Entry& entry) {
    BlockIndexNode*& link = LinkToLast(BucketOf(index, entry.blockNumber));
    BlockIndexNode* last = link;
    entry = last->entries[--last->count];
    if (last->count == 0) {
        link = nullptr;
        GiveRecord(*IndexNodePool, last);
    }
}

// Takes a block out of its file's index and the recency list.
void RemoveBlock(CacheBlock& block) {
    BlockIndex& index = block.owner->blocks;
    RemoveEntry(index, *FindEntry(index, BlockNumber(block.fileOffset)));
    Unlink(block);
}

}  // namespace

CacheBlock* FindBlock(const BlockIndex& index, std::uint32_t blockNumber) {
    const BlockIndexNode::Entry* entry = FindEntry(index, blockNumber);
    if (!entry) {
        return nullptr;
    }
    MoveLast(SharedBlockCache->recency, *entry->block);
    return entry->block;
}

FatStatus AddBlock(BlockIndex& index, std::uint32_t blockNumber, CacheBlock& block) {
    BlockIndexNode** link = &BucketOf(index, blockNumber);
    if (*link) {
        BlockIndexNode* last = LinkToLast(*link);
        link = last->count < IndexNodeEntries ? nullptr : &last->next;
        if (!link) {
            last->entries[last->count++] = {blockNumber, &block};
        }
    }
    if (link) {
        auto* node = static_cast<BlockIndexNode*>(TakeRecord(*IndexNodePool));
        if (!node) {
            return STATUS_NO_MEMORY;
        }
        node->next = nullptr;
        node->count = 1;
        node->entries[0] = {blockNumber, &block};
        *link = node;
    }
    LinkLast(SharedBlockCache->recency, block);
    return STATUS_SUCCESS;
}

FatStatus ClaimBlock(CacheBlock** block) {
    BlockCache& cache = *SharedBlockCache;
    if (cache.blocksTaken < CacheBlockCount) {
        *block = cache.freeStack[cache.blocksTaken++];
        return STATUS_SUCCESS;
    }
    auto& victim = static_cast<CacheBlock&>(*cache.recency.next);
    const FatStatus status = EvictBlock(victim);
    if (Succeeded(status)) {
        *block = &victim;
    }
    return status;
}

void GiveBackBlock(CacheBlock& block) {
    BlockCache& cache = *SharedBlockCache;
    cache.freeStack[--cache.blocksTaken] = &block;
}

FatStatus WriteBackBlock(const CacheBlock& block) {
    return DirectWrite(*block.owner, block.fileOffset, block.data);
}

namespace {

// The block will be gone, so a failure is worth a second try.
bool WriteLastTime(const CacheBlock& block) {
    const FatStatus first = WriteBackBlock(block);
    return Succeeded(first) || Succeeded(WriteBackBlock(block));
}

}  // namespace

bool DropFileBlocks(CFatFile& file, DirtyBlocks dirtyBlocks) {
    bool allWritten = true;
    for (std::uint32_t bucket = 0; file.blocks.buckets && bucket < IndexBucketCount; ++bucket) {
        while (BlockIndexNode* node = file.blocks.buckets[bucket]) {
            for (std::uint32_t i = 0; i < node->count; ++i) {
                CacheBlock& block = *node->entries[i].block;
                if (block.dirty != 0 && dirtyBlocks == DirtyBlocks::WriteBack) {
                    allWritten = WriteLastTime(block) && allWritten;
                }
                block.dirty = 0;
                Unlink(block);
                GiveBackBlock(block);
            }
            file.blocks.buckets[bucket] = node->next;
            GiveRecord(*IndexNodePool, node);
        }
    }
    return allWritten;
}

namespace {

// Calls `action` for each cached block of a file.
template <class Action>
void ForEachBlock(const CFatFile& file, Action action) {
    for (std::uint32_t bucket = 0; file.blocks.buckets && bucket < IndexBucketCount; ++bucket) {
        for (BlockIndexNode* node = file.blocks.buckets[bucket]; node; node = node->next) {
            for (std::uint32_t i = 0; i < node->count; ++i) {
                action(*node->entries[i].block);
            }
        }
    }
}

// Entries move towards the start of their directory, so what lies before a block of it goes first:
// nothing is gone from the volume before it stands there in its new place.
FatStatus WriteDirectoryBlocksBefore(const CacheBlock& block) {
    FatStatus status = STATUS_SUCCESS;
    ForEachBlock(*block.owner, [&](CacheBlock& other) {
        if (Succeeded(status) && other.dirty != 0 && other.fileOffset < block.fileOffset) {
            status = WriteBackBlock(other);
            other.dirty = Failed(status) ? 1 : 0;
        }
    });
    return status;
}

}  // namespace

FatStatus EvictBlock(CacheBlock& block) {
    if (block.dirty != 0) {
        FatStatus status =
            IsDirectory(*block.owner) ? WriteDirectoryBlocksBefore(block) : STATUS_SUCCESS;
        if (Succeeded(status)) {
            status = WriteBackBlock(block);
        }
        if (Failed(status)) {
            MoveLast(SharedBlockCache->recency, block);
            return status;
        }
        block.dirty = 0;
    }
    RemoveBlock(block);
    return STATUS_SUCCESS;
}

bool FlushFileBlocks(CFatFile& file) {
    bool allWritten = true;
    ForEachBlock(file, [&](CacheBlock& block) {
        if (block.dirty != 0) {
            const bool written = Succeeded(WriteBackBlock(block));
            block.dirty = written ? 0 : 1;
            allWritten = allWritten && written;
        }
    });
    return allWritten;
}

bool HasDirtyBlocks(const CFatFile& file) {
    bool hasDirty = false;
    ForEachBlock(file, [&](const CacheBlock& block) { hasDirty = hasDirty || block.dirty != 0; });
    return hasDirty;
}

FatStatus WriteFileBlocksFrom(const CFatFile& file, std::uint64_t offset) {
    FatStatus status = STATUS_SUCCESS;
    ForEachBlock(file, [&](const CacheBlock& block) {
        const std::uint64_t from = std::max(block.fileOffset, offset);
        if (Succeeded(status) && block.dirty != 0 && from < block.fileOffset + CacheBlockSize) {
            status = DirectWrite(file, from, block.data + (from - block.fileOffset));
        }
    });
    return status;
}

void TruncateFileBlocks(CFatFile& file, std::uint64_t sizeBytes) {
    auto* link = SharedBlockCache->recency.next;
    while (link != &SharedBlockCache->recency) {
        auto& block = static_cast<CacheBlock&>(*link);
        link = link->next;
        if (block.owner != &file || block.fileOffset + CacheBlockSize <= sizeBytes) {
            continue;
        }
        if (block.fileOffset >= sizeBytes) {
            RemoveBlock(block);
            GiveBackBlock(block);
        } else {
            const auto kept = static_cast<std::uint32_t>(sizeBytes - block.fileOffset);
            std::memset(block.data + kept, 0, CacheBlockSize - kept);
        }
    }
}

namespace {

constexpr std::uint32_t TailChecked = 4096;  // bytes; what goes wrong there begins at the end

bool IsZeroPastData(const CFatFile& file, const CacheBlock& block) {
    const std::uint64_t size = DataSize(file);
    const std::uint64_t used = size > block.fileOffset ? size - block.fileOffset : 0;
    const auto from = static_cast<std::uint32_t>(std::min<std::uint64_t>(used, CacheBlockSize));
    const std::uint8_t* const end = block.data + std::min(from + TailChecked, CacheBlockSize);
    return std::all_of(block.data + from, end, [](std::uint8_t byte) { return byte == 0; });
}

bool IsChainSound(const CFatFile& file, const BlockIndexNode* node, std::uint32_t bucket,
                  std::uint32_t* blocks) {
    for (; node; node = node->next) {
        if (node->count == 0 || node->count > IndexNodeEntries ||
            (node->next && node->count < IndexNodeEntries)) {
            return false;
        }
        for (std::uint32_t i = 0; i < node->count; ++i, ++*blocks) {
            const BlockIndexNode::Entry& entry = node->entries[i];
            if (entry.blockNumber % IndexBucketCount != bucket || entry.block->owner != &file ||
                BlockNumber(entry.block->fileOffset) != entry.blockNumber ||
                FindEntry(file.blocks, entry.blockNumber) != &entry || !IsLinked(*entry.block) ||
                !IsZeroPastData(file, *entry.block)) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace

bool IsSound(const BlockIndex& index, const CFatFile& owner) {
    std::uint32_t blocks = 0;
    for (std::uint32_t bucket = 0; index.buckets && bucket < IndexBucketCount; ++bucket) {
        if (!IsChainSound(owner, index.buckets[bucket], bucket, &blocks)) {
            return false;
        }
    }
    return blocks <= SharedBlockCache->blocksTaken;
}

bool IsSound(const BlockCache& cache) {
    std::uint32_t linked = 0;
    for (auto* link = cache.recency.next; link != &cache.recency; link = link->next, ++linked) {
        const auto& block = static_cast<const CacheBlock&>(*link);
        const BlockIndexNode::Entry* entry =
            FindEntry(block.owner->blocks, BlockNumber(block.fileOffset));
        if (!entry || entry->block != &block) {
            return false;
        }
    }
    std::uint32_t free = cache.blocksTaken;
    while (free < CacheBlockCount && !IsLinked(*cache.freeStack[free])) {
        ++free;
    }
    return linked == cache.blocksTaken && free == CacheBlockCount;
}

}  // namespace fatvol
