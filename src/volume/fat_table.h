// The file allocation table: reading and writing its entries through a cache of 256 KiB blocks.
//
// Only the first FAT goes through this cache; the second one is brought up to date when the volume
// is flushed or unmounted. Up to 256 blocks stay in memory, found through 269 buckets and recycled
// least recently used first. Changed blocks collect on a list of four, which is written when it is
// full.
//
//   type   entries per block  block of cluster c  entry within its block
//   FAT12  all                0                   12 bits at byte c * 3 / 2
//   FAT16  2^17               c >> 17             16 bits at byte 2 * (c & 0x1FFFF)
//   FAT32  2^16               c >> 16             32 bits at byte 4 * (c & 0xFFFF)
//
// Invariants:
//  1. A node with a block is in the recency list and in bucket block index % 269, each once.
//  2. nodesInUse nodes of the array have been taken; no block index is cached twice.
//  3. A block in one of the first dirtyCount places of dirtyList is dirty and stands there once. A
//     dirty block stands there unless unlistedDirty is set.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>

#include "platform/cache_sizes.h"
#include "platform/intrusive_list.h"
#include "storage/fat_status.h"

struct FatVolume;

namespace fatvol {

inline constexpr std::uint32_t FatBlockSize = 1u << FatBlockShift;         // bytes
inline constexpr std::uint32_t MaxFatBlocks = 1u << (32 - FatBlockShift);  // FATs end below 4 GiB
inline constexpr std::uint32_t FatBucketCount = 269;
inline constexpr std::uint32_t FatBucketGrowth = 6;
inline constexpr std::uint32_t FatDirtyCapacity = 4;

inline constexpr std::uint32_t FreeCluster = 0;
inline constexpr std::uint32_t EndOfChain = 0x0FFFFFFF;  // as written; narrower FATs keep low bits

// The mark of a bad cluster in a FAT of this type. Greater values end a chain.
constexpr std::uint32_t BadClusterMark(std::uint32_t fatType) {
    return fatType == 12 ? 0xFF7 : fatType == 16 ? 0xFFF7 : 0x0FFFFFF7;
}

// The end mark where the chain of a directory that has grown waits for its link: one that is
// written nowhere else, so that it tells whether the cluster has been the directory's ever since.
constexpr std::uint32_t WaitingEnd(std::uint32_t fatType) {
    return BadClusterMark(fatType) + 7;
}

struct FatBlock {
    std::uint32_t blockIndex;
    std::uint32_t firstSector;  // on the volume
    std::uint32_t dirty;        // 1 while it holds changes that are not on the volume
    std::uint8_t data[FatBlockSize];
};
static_assert(sizeof(FatBlock) == FatBlockSize + 0xC);

struct FatCacheTag;
struct FatCacheNode : ListNode<FatCacheTag> {
    std::unique_ptr<FatBlock> block;
};

struct FatCacheBucket {
    std::uint32_t capacity = 0;
    std::uint32_t count = 0;
    std::unique_ptr<FatCacheNode*[]> nodes;  // in insertion order
};

using GetFatEntryFunction = FatStatus (*)(FatVolume&, std::uint32_t cluster, std::uint32_t* value);
using SetFatEntryFunction = FatStatus (*)(FatVolume&, std::uint32_t cluster, std::uint32_t value);

struct FatTable {
    std::uint32_t entryShift = 0;        // log2 of entries per block; not used for FAT12
    std::uint32_t blockSectorShift = 0;  // log2 of sectors per block
    GetFatEntryFunction getFatEntry = nullptr;
    SetFatEntryFunction setFatEntry = nullptr;
    std::unique_ptr<FatCacheNode[]> nodes;
    ListNode<FatCacheTag> recency;  // next: least recently used
    std::uint32_t nodesInUse = 0;
    std::unique_ptr<std::unique_ptr<FatCacheBucket>[]> buckets;
    std::uint32_t sectorsPerBlock = 0;
    std::uint32_t sectorsInLastBlock = 0;
    std::uint32_t lastBlockIndex = 0;
    std::uint32_t dirtyCount = 0;
    std::array<FatBlock*, FatDirtyCapacity> dirtyList{};  // a place may be null
    // An undo had to change blocks while the list was full of blocks that cannot be written.
    bool unlistedDirty = false;
    // By block: the first FAT was written and the second one not yet.
    std::bitset<MaxFatBlocks> changedSinceCopy;
};

// Sets the table of a volume with known geometry up and builds its cluster bitmap. A failure
// leaves what was made to the destructors.
FatStatus InitFatTable(FatVolume& volume, std::uint32_t fatType, std::uint32_t sectorShift,
                       std::uint32_t clusterCount);

// Reads or writes the entry of a cluster from 2 to cluster count + 1. A failed read of the FAT
// changes nothing. A failed write means that the changes could not be put on the dirty list
// (nothing changed) or that the full list could not be written (the entry is changed in memory
// and stays listed).
FatStatus GetFatEntry(FatVolume& volume, std::uint32_t cluster, std::uint32_t* value);
FatStatus SetFatEntry(FatVolume& volume, std::uint32_t cluster, std::uint32_t value);

// Makes the entry of a cluster hold a value, for undoing: the change stays in memory when it cannot
// be written now. False when the block of the entry cannot be read, with nothing changed.
bool ForceFatEntry(FatVolume& volume, std::uint32_t cluster, std::uint32_t value);

// The block of this index, read if it is not cached; it stays valid until another block is asked
// for. `sectorInFat` is its first sector counted from the start of the FAT. When it cannot be read,
// or no room can be made because another block cannot be written, nothing new is cached; the block
// that could not be written stays cached and dirty. STATUS_NO_MEMORY likewise.
FatStatus GetFatBlock(FatVolume& volume, std::uint32_t blockIndex, std::uint32_t sectorInFat,
                      FatBlock** block);

// Writes the dirty blocks, last changed first. What could not be written stays dirty and listed.
FatStatus FlushFatTable(FatVolume& volume);

// Flushes, then frees the cache and the cluster bitmap whatever the result, after a second try for
// the blocks that are still dirty. The root directory's reference is dropped first.
FatStatus ReleaseFatVolume(FatVolume& volume);

// How many sectors of a block belong to the FAT.
std::uint32_t SectorsOfBlock(const FatTable& table, std::uint32_t blockIndex);

// Writes a block to the first FAT; its dirty flag is the caller's affair. The status is that of the
// storage.
FatStatus WriteFatBlock(FatVolume& volume, const FatBlock& block);

// Makes room for one more block on the dirty list, writing the list when it is full. A block that
// is listed needs none. A failure means that the list could not be written whole.
FatStatus ReserveDirtyPlace(FatVolume& volume, const FatBlock& block);

// Marks a block dirty whatever the state of the list.
void ForceFatBlockDirty(FatVolume& volume, FatBlock& block);

// Puts a block on the dirty list after ReserveDirtyPlace, and writes the list when it is full. The
// block is listed even when that fails.
FatStatus MarkFatBlockDirty(FatVolume& volume, FatBlock& block);

// The place of a block on the dirty list, or null.
FatBlock** FindDirtyPlace(FatTable& table, const FatBlock& block);

// Whether the invariants above hold.
bool IsSound(const FatTable& table);

}  // namespace fatvol
