// The write-back cache of file and directory contents: 256 blocks of 256 KiB, shared by all
// volumes. A block holds one aligned piece of one file and is found through the index of that
// file; the cache keeps the free blocks and the recency order of the others. A dirty block reaches
// the volume when it is evicted or when its file is destroyed.
//
// Invariants:
//  1. Outside a claim, a block is either free (freeStack[blocksTaken] and up) or in its owner's
//     index and in the recency list.
//  2. A file has at most one block per block number.
//  3. Only the last node of an index chain has fewer than 8 entries, and no node is empty.
//  4. The bytes of a block past its file's data size are zero.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/cache_sizes.h"
#include "platform/intrusive_list.h"
#include "storage/fat_status.h"
#include "storage/log2_floor.h"

namespace fatvol {

class CFatFile;

inline constexpr std::uint32_t CacheBlockSize = 0x40000;  // bytes
inline constexpr std::uint32_t BlockShift = Log2Floor(CacheBlockSize);
inline constexpr std::uint32_t BlockMask = CacheBlockSize - 1;
inline constexpr std::uint32_t IndexBucketCount = 269;
inline constexpr std::uint32_t IndexNodeEntries = 8;

// The number of the block that holds a byte of a file.
constexpr std::uint32_t BlockNumber(std::uint64_t fileOffset) {
    return static_cast<std::uint32_t>(fileOffset >> BlockShift);
}

struct BlockRecencyTag;

struct CacheBlock : ListNode<BlockRecencyTag> {
    CFatFile* owner;
    std::uint64_t fileOffset;  // bytes; a multiple of the block size
    std::uint16_t dirty;       // 1 while it holds bytes that are not on the volume
    std::uint8_t data[CacheBlockSize];
};

struct BlockIndexNode {
    struct Entry {
        std::uint32_t blockNumber;
        CacheBlock* block;
    };
    BlockIndexNode* next;
    std::uint32_t count;  // entries in use
    Entry entries[IndexNodeEntries];
};
static_assert(sizeof(BlockIndexNode) == 144);

// The cached blocks of one file: block b is in the chain of bucket b % 269.
struct BlockIndex {
    std::unique_ptr<BlockIndexNode*[]> buckets;
};

struct FreeMemory {
    void operator()(void* memory) const;
};

struct BlockCache {
    std::uint32_t blocksTaken = 0;             // blocks that are not free
    ListNode<BlockRecencyTag> recency;         // next: least recently used
    std::unique_ptr<void, FreeMemory> memory;  // all blocks, one after another
    std::unique_ptr<CacheBlock*[]> freeStack;
};

// The cache of the library, from Fat_LibInitialize to Fat_LibTerminate. The library's state owns
// it.
extern BlockCache* SharedBlockCache;

// A cache with every block free; null when there is no memory.
std::unique_ptr<BlockCache> CreateBlockCache();

// The cached block of this number, made the most recently used one; null when it is not cached.
CacheBlock* FindBlock(const BlockIndex& index, std::uint32_t blockNumber);

// Enters a claimed block, which the file does not have yet, as the most recently used one.
// STATUS_NO_MEMORY leaves it claimed.
FatStatus AddBlock(BlockIndex& index, std::uint32_t blockNumber, CacheBlock& block);

// A block for the caller to fill and to add, or else to give back. When none is free, the least
// recently used one is evicted. If that one cannot be written, the claim fails with the storage's
// status and the block stays as it was, but most recently used: the next claim tries another.
FatStatus ClaimBlock(CacheBlock** block);

// Puts a claimed block that was not added on the free stack.
void GiveBackBlock(CacheBlock& block);

// Writes a block if it is dirty and takes it out of index and recency list. A failed write leaves
// it there, dirty, as the most recently used one.
FatStatus EvictBlock(CacheBlock& block);

// Writes the bytes of a block below its file's data size to the volume. The dirty mark is the
// caller's affair; a failure may have written some of them.
FatStatus WriteBackBlock(const CacheBlock& block);

// Writes the dirty blocks of a file and keeps them cached. False when one could not be written: it
// stays dirty, and the others are written all the same.
bool FlushFileBlocks(CFatFile& file);

// Whether bytes of a file wait to be written.
bool HasDirtyBlocks(const CFatFile& file);

// Writes the cached bytes of a file from `offset` on that are not on the volume yet. Their blocks
// stay dirty. The first failure ends it.
FatStatus WriteFileBlocksFrom(const CFatFile& file, std::uint64_t offset);

// Forgets the cached bytes of a file from `sizeBytes` on, dirty or not: blocks beyond leave the
// cache, and the rest of the last one becomes zero.
void TruncateFileBlocks(CFatFile& file, std::uint64_t sizeBytes);

enum class DirtyBlocks { WriteBack, Discard };

// Frees all blocks of a file, in bucket order, after writing the dirty ones if so wanted. False
// when one could not be written at two tries: its bytes are lost, and the others are freed all the
// same.
bool DropFileBlocks(CFatFile& file, DirtyBlocks dirtyBlocks);

// Whether the invariants above hold, for the cache and for the index of one file.
bool IsSound(const BlockCache& cache);
bool IsSound(const BlockIndex& index, const CFatFile& owner);

}  // namespace fatvol
