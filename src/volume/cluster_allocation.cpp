#include "volume/cluster_allocation.h"

#include <algorithm>

#include "data/cluster_run_list.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

FatStatus AppendRun(ClusterRunList& list, std::uint32_t firstCluster, std::uint32_t count) {
    const std::uint32_t total = TotalClusters(list);
    return MapRange(list, total, total + count, firstCluster);
}

FatStatus TakeOneRun(ClusterBitmap& bitmap, std::uint32_t first, std::uint32_t count,
                     ClusterRunList& target) {
    const FatStatus status = AppendRun(target, first, count);
    if (Failed(status)) {
        return status;
    }
    TakeClusters(bitmap, first, count);
    if (first == bitmap.hint) {
        FindNextClearRun(bitmap.map, bitmap.hint + count, &bitmap.hint);
    }
    return STATUS_SUCCESS;
}

// Collects free runs from the hint upward; no cluster below it is free. `*next` is the cluster
// after the last one.
FatStatus GatherRuns(const ClusterBitmap& bitmap, std::uint32_t count, ClusterRunList& gathered,
                     std::uint32_t* next) {
    *next = bitmap.hint;
    while (count > 0) {
        std::uint32_t start = 0;
        const std::uint32_t length = FindNextClearRun(bitmap.map, *next, &start);
        if (length == 0) {
            return STATUS_DISK_CORRUPT_ERROR;
        }
        const std::uint32_t taken = std::min(length, count);
        const FatStatus status = AppendRun(gathered, start, taken);
        if (Failed(status)) {
            return status;
        }
        *next = start + taken;
        count -= taken;
    }
    return STATUS_SUCCESS;
}

// Calls `action(firstCluster, count)` for each run of a list until one fails.
template <class Action>
FatStatus ForEachRun(const ClusterRunList& list, Action action) {
    for (std::uint32_t run = 1; run < list.count; ++run) {
        const std::uint32_t length = list.runs[run].endIndex - list.runs[run - 1].endIndex;
        const FatStatus status = action(list.runs[run].startCluster, length);
        if (Failed(status)) {
            return status;
        }
    }
    return STATUS_SUCCESS;
}

FatStatus TakeScatteredRuns(ClusterBitmap& bitmap, std::uint32_t count, ClusterRunList& target) {
    ClusterRunList gathered;
    FatStatus status = Init(gathered);
    std::uint32_t next = 0;
    if (Succeeded(status)) {
        status = GatherRuns(bitmap, count, gathered, &next);
    }
    if (Succeeded(status)) {
        status = ReserveRuns(target, gathered.count - 1);
    }
    if (Failed(status)) {
        return status;
    }
    status = ForEachRun(gathered, [&](std::uint32_t first, std::uint32_t length) {
        const FatStatus appended = AppendRun(target, first, length);
        if (Succeeded(appended)) {
            TakeClusters(bitmap, first, length);
        }
        return appended;
    });
    FindNextClearRun(bitmap.map, next, &bitmap.hint);
    return status;
}

}  // namespace

FatStatus AllocateClusters(ClusterBitmap& bitmap, std::uint32_t count, ClusterRunList& target) {
    if (count > bitmap.freeCount) {
        return STATUS_DISK_FULL;
    }
    const std::uint32_t first = FindClearBits(bitmap.map, count, bitmap.hint);
    return first != NoBit ? TakeOneRun(bitmap, first, count, target)
                          : TakeScatteredRuns(bitmap, count, target);
}

void ReleaseRuns(ClusterBitmap& bitmap, const ClusterRunList& list) {
    // Releasing a run has no way to fail.
    (void)ForEachRun(list, [&](std::uint32_t first, std::uint32_t length) {
        ReleaseClusters(bitmap, first, length);
        return STATUS_SUCCESS;
    });
}

namespace {

// Calls `set(cluster, next)` for each cluster of a list, in file order, until one fails.
template <class Set>
FatStatus ForEachLink(const ClusterRunList& list, Set set) {
    std::uint32_t previous = 0;
    const FatStatus status = ForEachRun(list, [&](std::uint32_t first, std::uint32_t length) {
        for (std::uint32_t cluster = first; cluster < first + length; ++cluster) {
            const FatStatus linked = previous != 0 ? set(previous, cluster) : STATUS_SUCCESS;
            if (Failed(linked)) {
                return linked;
            }
            previous = cluster;
        }
        return STATUS_SUCCESS;
    });
    return Failed(status) || previous == 0 ? status : set(previous, EndOfChain);
}

}  // namespace

FatStatus ChainClusters(FatVolume& volume, const ClusterRunList& list) {
    return ForEachLink(list, [&](std::uint32_t cluster, std::uint32_t next) {
        return SetFatEntry(volume, cluster, next);
    });
}

FatStatus FreeChain(FatVolume& volume, const ClusterRunList& list, std::uint32_t* tried) {
    return ForEachLink(list, [&](std::uint32_t cluster, std::uint32_t) {
        ++*tried;
        return SetFatEntry(volume, cluster, FreeCluster);
    });
}

bool ForceChain(FatVolume& volume, const ClusterRunList& list) {
    bool allSet = true;
    (void)ForEachLink(list, [&](std::uint32_t cluster, std::uint32_t next) {
        allSet = ForceFatEntry(volume, cluster, next) && allSet;
        return STATUS_SUCCESS;
    });
    return allSet;
}

bool ForceFree(FatVolume& volume, const ClusterRunList& list) {
    bool allSet = true;
    (void)ForEachLink(list, [&](std::uint32_t cluster, std::uint32_t) {
        allSet = ForceFatEntry(volume, cluster, FreeCluster) && allSet;
        return STATUS_SUCCESS;
    });
    return allSet;
}

}  // namespace fatvol
