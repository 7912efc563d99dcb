// Setting the FAT up, its dirty list, and its release.
#include "volume/fat_table.h"

#include <algorithm>

#include "data/fat_file.h"
#include "platform/allocation.h"
#include "storage/storage_io.h"
#include "volume/fat_entry.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

constexpr std::uint32_t EntryShift16 = FatBlockShift - 1;
constexpr std::uint32_t EntryShift32 = FatBlockShift - 2;

// Which blocks the entries of clusters 0 to clusterCount + 1 fill. A FAT12 is always one block.
void SetBlockGeometry(FatTable& table, std::uint32_t fatType, std::uint32_t sectorShift,
                      std::uint32_t clusterCount) {
    table.blockSectorShift = FatBlockShift - sectorShift;
    table.sectorsPerBlock = 1u << table.blockSectorShift;
    const std::uint64_t entries = std::uint64_t{clusterCount} + 2;
    const std::uint64_t sectorMask = (std::uint64_t{1} << sectorShift) - 1;
    if (fatType == 12) {
        const std::uint64_t bytes = (3 * entries + 1) / 2;
        table.lastBlockIndex = 0;
        table.sectorsInLastBlock = static_cast<std::uint32_t>((bytes + sectorMask) >> sectorShift);
        return;
    }
    table.entryShift = fatType == 16 ? EntryShift16 : EntryShift32;
    const std::uint64_t bytes = entries * (fatType == 16 ? 2 : 4);
    const std::uint64_t sectors = (bytes + sectorMask) >> sectorShift;
    table.lastBlockIndex = static_cast<std::uint32_t>((entries - 1) >> table.entryShift);
    table.sectorsInLastBlock =
        static_cast<std::uint32_t>((sectors - 1) & (table.sectorsPerBlock - 1)) + 1;
}

}  // namespace

FatBlock** FindDirtyPlace(FatTable& table, const FatBlock& block) {
    const auto end = table.dirtyList.begin() + table.dirtyCount;
    const auto found = std::find(table.dirtyList.begin(), end, &block);
    return found != end ? &*found : nullptr;
}

FatStatus InitFatTable(FatVolume& volume, std::uint32_t fatType, std::uint32_t sectorShift,
                       std::uint32_t clusterCount) {
    FatTable& table = volume.fatTable;
    SetBlockGeometry(table, fatType, sectorShift, clusterCount);
    const FatEntryFunctions functions = EntryFunctionsOf(fatType);
    table.getFatEntry = functions.get;
    table.setFatEntry = functions.set;
    table.buckets = TryNewArray<std::unique_ptr<FatCacheBucket>>(FatBucketCount);
    table.nodes = TryNewArray<FatCacheNode>(FatCacheCapacity);
    if (!table.buckets || !table.nodes) {
        return STATUS_NO_MEMORY;
    }
    return BuildClusterBitmap(volume);
}

std::uint32_t SectorsOfBlock(const FatTable& table, std::uint32_t blockIndex) {
    return blockIndex == table.lastBlockIndex ? table.sectorsInLastBlock : table.sectorsPerBlock;
}

FatStatus WriteFatBlock(FatVolume& volume, const FatBlock& block) {
    volume.fatTable.changedSinceCopy.set(block.blockIndex);
    return WriteSectors(*volume.storage, block.data, block.firstSector,
                        SectorsOfBlock(volume.fatTable, block.blockIndex));
}

FatStatus ReserveDirtyPlace(FatVolume& volume, const FatBlock& block) {
    FatTable& table = volume.fatTable;
    // The list is full only after a flush that failed.
    if (table.dirtyCount < FatDirtyCapacity || FindDirtyPlace(table, block)) {
        return STATUS_SUCCESS;
    }
    return FlushFatTable(volume);
}

FatStatus MarkFatBlockDirty(FatVolume& volume, FatBlock& block) {
    FatTable& table = volume.fatTable;
    if (FindDirtyPlace(table, block)) {
        return STATUS_SUCCESS;
    }
    block.dirty = 1;
    table.dirtyList[table.dirtyCount++] = &block;
    return table.dirtyCount == FatDirtyCapacity ? FlushFatTable(volume) : STATUS_SUCCESS;
}

void ForceFatBlockDirty(FatVolume& volume, FatBlock& block) {
    FatTable& table = volume.fatTable;
    if (table.dirtyCount < FatDirtyCapacity || FindDirtyPlace(table, block)) {
        // When the list cannot be written the block is on it all the same.
        const FatStatus status = MarkFatBlockDirty(volume, block);
        volume.hasUntoldFailure = Failed(status) || volume.hasUntoldFailure;
    } else {
        block.dirty = 1;
        table.unlistedDirty = true;
    }
}

namespace {

FatStatus FlushDirtyList(FatVolume& volume) {
    FatTable& table = volume.fatTable;
    for (std::uint32_t place = table.dirtyCount; place-- > 0;) {
        FatBlock* block = table.dirtyList[place];
        if (!block) {
            continue;
        }
        const FatStatus status = WriteFatBlock(volume, *block);
        if (Failed(status)) {
            table.dirtyCount = place + 1;
            return status;
        }
        block->dirty = 0;
    }
    table.dirtyCount = 0;
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus FlushFatTable(FatVolume& volume) {
    FatTable& table = volume.fatTable;
    FatStatus status = FlushDirtyList(volume);
    if (Failed(status) || !table.unlistedDirty) {
        return status;
    }
    for (auto* link = table.recency.next; link != &table.recency; link = link->next) {
        FatBlock& block = *static_cast<FatCacheNode*>(link)->block;
        if (block.dirty != 0) {
            status = WriteFatBlock(volume, block);
            if (Failed(status)) {
                return status;
            }
            block.dirty = 0;
        }
    }
    table.unlistedDirty = false;
    return STATUS_SUCCESS;
}

FatStatus ReleaseFatVolume(FatVolume& volume) {
    if (CFatFile* root = std::exchange(volume.rootDirectory, nullptr)) {
        Release(*root);
    }
    const FatStatus status = FlushFatTable(volume);
    FatTable& table = volume.fatTable;
    for (auto* link = table.recency.next; link != &table.recency; link = link->next) {
        const auto& block = static_cast<FatCacheNode*>(link)->block;
        if (block->dirty != 0) {
            // A last try for what the flush left behind; the flush's status is the one returned.
            volume.lostFatBlock = Failed(WriteFatBlock(volume, *block)) || volume.lostFatBlock;
        }
    }
    table.dirtyList.fill(nullptr);
    table.dirtyCount = 0;
    table.unlistedDirty = false;
    table.recency.next = table.recency.prev = &table.recency;
    table.nodes.reset();
    table.nodesInUse = 0;
    table.buckets.reset();
    volume.clusterBitmap = ClusterBitmap{};
    return status;
}

}  // namespace fatvol
