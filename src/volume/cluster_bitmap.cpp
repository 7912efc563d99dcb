#include "volume/cluster_bitmap.h"

#include <algorithm>
#include <cstring>

#include "platform/allocation.h"
#include "storage/little_endian.h"
#include "volume/fat_entry.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

FatStatus Allocate(ClusterBitmap& bitmap, std::uint32_t clusterCount) {
    const std::uint32_t bitCount = clusterCount + 2;
    const std::uint32_t allocation = BitmapAllocation(bitCount);
    bitmap.map.bits = TryNewArray<std::uint8_t>(allocation);
    if (!bitmap.map.bits) {
        return STATUS_NO_MEMORY;
    }
    std::memset(bitmap.map.bits.get(), 0xFF, allocation);
    bitmap.map.bitCount = bitCount;
    bitmap.map.byteCount = (bitCount + 7) / 8;
    bitmap.freeCount = 0;
    return STATUS_SUCCESS;
}

void CountFree(ClusterBitmap& bitmap, std::uint32_t cluster) {
    ClearBits(bitmap.map, cluster, 1);
    ++bitmap.freeCount;
}

FatStatus CollectFree12(FatVolume& volume, ClusterBitmap& bitmap) {
    for (std::uint32_t cluster = volume.clusterCount + 1; cluster >= 2; --cluster) {
        std::uint32_t value = 0;
        const FatStatus status = GetFatEntry(volume, cluster, &value);
        if (Failed(status)) {
            return status;
        }
        if (value == FreeCluster && cluster <= bitmap.lastLinkable) {
            CountFree(bitmap, cluster);
        }
    }
    return STATUS_SUCCESS;
}

// Collects the free clusters of one block whose entries are `width` bytes wide.
void CollectFreeOfBlock(ClusterBitmap& bitmap, const FatBlock& block, std::uint32_t width,
                        std::uint32_t first, std::uint32_t last) {
    const std::uint32_t perBlock = FatBlockSize / width;
    for (std::uint32_t cluster = last + 1; cluster-- > first;) {
        const std::uint8_t* entry = block.data + std::size_t{cluster % perBlock} * width;
        const std::uint32_t value = width == 2 ? LoadU16(entry) : LoadU32(entry);
        if (value == FreeCluster && cluster <= bitmap.lastLinkable) {
            CountFree(bitmap, cluster);
        }
    }
}

// From the last block down, so that the blocks of the first clusters, where a search for free
// clusters begins, end as the most recently used ones.
FatStatus CollectFree(FatVolume& volume, ClusterBitmap& bitmap) {
    const FatTable& table = volume.fatTable;
    for (std::uint32_t index = table.lastBlockIndex + 1; index-- > 0;) {
        FatBlock* block = nullptr;
        const FatStatus status =
            GetFatBlock(volume, index, index << table.blockSectorShift, &block);
        if (Failed(status)) {
            return status;
        }
        const std::uint32_t first = std::max(index << table.entryShift, 2u);
        const std::uint64_t end = std::uint64_t{index + 1} << table.entryShift;
        const auto last =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(end - 1, volume.clusterCount + 1));
        CollectFreeOfBlock(bitmap, *block, FatBlockSize >> table.entryShift, first, last);
    }
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus BuildClusterBitmap(FatVolume& volume) {
    ClusterBitmap& bitmap = volume.clusterBitmap;
    FatStatus status = Allocate(bitmap, volume.clusterCount);
    if (Failed(status)) {
        return status;
    }
    bitmap.lastLinkable = std::min(volume.clusterCount + 1, BadClusterMark(volume.fatType) - 1);
    status = volume.fatType == 12 ? CollectFree12(volume, bitmap) : CollectFree(volume, bitmap);
    if (Failed(status)) {
        bitmap = ClusterBitmap{};
        return status;
    }
    bitmap.hint = 2;
    FindNextClearRun(bitmap.map, 2, &bitmap.hint);
    return STATUS_SUCCESS;
}

void TakeClusters(ClusterBitmap& bitmap, std::uint32_t first, std::uint32_t count) {
    SetBits(bitmap.map, first, count);
    bitmap.freeCount -= count;
}

void ReleaseClusters(ClusterBitmap& bitmap, std::uint32_t first, std::uint32_t count) {
    if (first > bitmap.lastLinkable) {
        return;
    }
    count = std::min(count, bitmap.lastLinkable + 1 - first);
    bitmap.hint = std::min(bitmap.hint, first);
    for (std::uint32_t cluster = first; cluster < first + count; ++cluster) {
        // Two files of a damaged volume may give the same cluster back.
        bitmap.freeCount += IsBitSet(bitmap.map, cluster) ? 1u : 0u;
    }
    ClearBits(bitmap.map, first, count);
}

bool IsSound(const ClusterBitmap& bitmap) {
    const Bitmap& map = bitmap.map;
    std::uint32_t clear = 0;
    std::uint32_t firstClear = map.bitCount;
    std::uint32_t start = 0;
    std::uint32_t from = 0;
    while (const std::uint32_t length = FindNextClearRun(map, from, &start)) {
        firstClear = std::min(firstClear, start);
        clear += length;
        from = start + length;
    }
    const bool linkable = clear == 0 || from <= bitmap.lastLinkable + 1;
    return map.bitCount >= 2 && map.byteCount == (map.bitCount + 7) / 8 && firstClear >= 2 &&
           clear == bitmap.freeCount && bitmap.hint <= std::max(firstClear, 2u) && linkable;
}

bool AgreesWithFat(const FatVolume& volume) {
    const FatTable& table = volume.fatTable;
    const auto load = EntryFunctionsOf(volume.fatType).load;
    for (auto* link = table.recency.next; link != &table.recency; link = link->next) {
        const FatBlock& block = *static_cast<const FatCacheNode&>(*link).block;
        const bool isWhole = volume.fatType == 12;  // the only block
        const std::uint32_t first = isWhole ? 0 : block.blockIndex << table.entryShift;
        const std::uint32_t entries = isWhole ? volume.clusterCount + 2 : 1u << table.entryShift;
        const std::uint32_t end = std::min(first + entries, volume.clusterCount + 2);
        std::uint32_t cluster = std::max(first, 2u);
        while (cluster < end) {
            const std::uint32_t length =
                FindNextClearRun(volume.clusterBitmap.map, cluster, &cluster);
            const std::uint32_t runEnd = length == 0 ? end : std::min(cluster + length, end);
            for (; length != 0 && cluster < runEnd; ++cluster) {
                if (load(block, cluster) != FreeCluster) {
                    return false;
                }
            }
            cluster = runEnd;
        }
    }
    return true;
}

}  // namespace fatvol
