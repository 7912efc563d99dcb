#include "data/cluster_run_list.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "data/buffer_pool.h"

namespace fatvol {
namespace {

constexpr std::uint32_t DoublingLimit = 2048;  // entries; larger arrays grow by this many

bool IsMarker(std::uint32_t startCluster) {
    return (startCluster & 0x80000000) != 0;
}

ClusterRun* AllocateRuns(std::uint32_t capacity) {
    void* memory = capacity == PooledRunCapacity ? TakeRecord(*RunArrayPool)
                                                 : std::malloc(capacity * sizeof(ClusterRun));
    return static_cast<ClusterRun*>(memory);
}

void FreeRuns(ClusterRun* runs, std::uint32_t capacity) {
    if (capacity == PooledRunCapacity) {
        GiveRecord(*RunArrayPool, runs);
    } else {
        std::free(runs);
    }
}

// Moves the entries to an array of another capacity, which must hold them.
bool ChangeCapacity(ClusterRunList& list, std::uint32_t capacity) {
    if (list.capacity != PooledRunCapacity && capacity != PooledRunCapacity) {
        // A heap array is resized where it is if it can be, so that the fixed steps of large
        // arrays don't add up to quadratic copying.
        void* resized = std::realloc(list.runs, capacity * sizeof(ClusterRun));
        if (!resized) {
            return false;
        }
        list.runs = static_cast<ClusterRun*>(resized);
        list.capacity = capacity;
        return true;
    }
    ClusterRun* runs = AllocateRuns(capacity);
    if (!runs) {
        return false;
    }
    std::copy_n(list.runs, list.count, runs);
    FreeRuns(list.runs, list.capacity);
    list.runs = runs;
    list.capacity = capacity;
    return true;
}

bool Reserve(ClusterRunList& list, std::uint32_t more) {
    while (list.count + more > list.capacity) {
        const std::uint32_t step = std::min(list.capacity, DoublingLimit);
        if (!ChangeCapacity(list, list.capacity + step)) {
            return false;
        }
    }
    return true;
}

void Append(ClusterRunList& list, std::uint32_t endIndex, std::uint32_t startCluster) {
    list.runs[list.count++] = {endIndex, startCluster};
}

// The entry whose range holds an index below the total.
std::uint32_t FindRun(const ClusterRunList& list, std::uint32_t index) {
    std::uint32_t low = 1;
    std::uint32_t high = list.count - 1;
    for (;;) {
        const std::uint32_t middle = (low + high) / 2;
        if (index < list.runs[middle - 1].endIndex) {
            high = middle - 1;
        } else if (index < list.runs[middle].endIndex) {
            return middle;
        } else {
            low = middle + 1;
        }
    }
}

// Where a run goes on at an index at or after its first one.
std::uint32_t ClusterOfRun(const ClusterRunList& list, std::uint32_t run, std::uint32_t index) {
    const std::uint32_t start = list.runs[run].startCluster;
    return IsMarker(start) ? start : start - list.runs[run - 1].endIndex + index;
}

void ShrinkStorage(ClusterRunList& list) {
    if (list.capacity > PooledRunCapacity && list.count < list.capacity / 4) {
        // When no smaller array can be had, the larger one serves as well.
        (void)ChangeCapacity(list, std::max(2 * list.count, PooledRunCapacity));
    }
}

}  // namespace

ClusterRunList::~ClusterRunList() {
    Release(*this);
}

FatStatus Init(ClusterRunList& list) {
    list.runs = AllocateRuns(PooledRunCapacity);
    if (!list.runs) {
        return STATUS_NO_MEMORY;
    }
    list.capacity = PooledRunCapacity;
    list.count = 0;
    Append(list, 0, RUN_SENTINEL);
    return STATUS_SUCCESS;
}

void Release(ClusterRunList& list) {
    if (list.runs) {
        FreeRuns(list.runs, list.capacity);
    }
    list.runs = nullptr;
    list.capacity = 0;
    list.count = 0;
}

std::uint32_t TotalClusters(const ClusterRunList& list) {
    return list.count == 0 ? 0 : list.runs[list.count - 1].endIndex;
}

bool ClusterAt(const ClusterRunList& list, std::uint32_t index, std::uint32_t* cluster,
               std::uint32_t* leftInRun) {
    if (index >= TotalClusters(list)) {
        return false;
    }
    const std::uint32_t run = FindRun(list, index);
    *cluster = ClusterOfRun(list, run, index);
    *leftInRun = list.runs[run].endIndex - index;
    return *cluster != RUN_UNMAPPED;
}

std::uint32_t ClusterOf(const ClusterRunList& list, std::uint32_t index) {
    return ClusterOfRun(list, FindRun(list, index), index);
}

std::uint32_t LastCluster(const ClusterRunList& list) {
    return ClusterOfRun(list, list.count - 1, TotalClusters(list) - 1);
}

FatStatus MapRange(ClusterRunList& list, std::uint32_t start, std::uint32_t end,
                   std::uint32_t cluster) {
    const std::uint32_t total = TotalClusters(list);
    if (start < total || end <= start) {
        return STATUS_DISK_CORRUPT_ERROR;
    }
    if (cluster == RUN_UNMAPPED) {
        start = total;  // a gap in front of a gap is one gap
    }
    const ClusterRun& last = list.runs[list.count - 1];
    const bool opensGap = start > total && last.startCluster != RUN_UNMAPPED;
    const bool merges =
        list.count > 1 && !opensGap && ClusterOfRun(list, list.count - 1, start) == cluster;
    if (!Reserve(list, (opensGap ? 1u : 0u) + (merges ? 0u : 1u))) {
        return STATUS_NO_MEMORY;
    }
    if (opensGap) {
        Append(list, start, RUN_UNMAPPED);
    } else if (start > total) {
        list.runs[list.count - 1].endIndex = start;
    }
    if (merges) {
        list.runs[list.count - 1].endIndex = end;
    } else {
        Append(list, end, cluster);
    }
    return STATUS_SUCCESS;
}

FatStatus ReserveRuns(ClusterRunList& list, std::uint32_t more) {
    return Reserve(list, more) ? STATUS_SUCCESS : STATUS_NO_MEMORY;
}

FatStatus CopyTail(const ClusterRunList& list, ClusterRunList& tail, std::uint32_t count) {
    const std::uint32_t total = TotalClusters(list);
    if (count == 0 || count > total) {
        return STATUS_INVALID_PARAMETER;
    }
    const std::uint32_t newEnd = total - count;
    const std::uint32_t firstAffected = FindRun(list, newEnd);
    if (!Reserve(tail, list.count - firstAffected)) {
        return STATUS_NO_MEMORY;
    }
    for (std::uint32_t run = list.count - 1; run >= firstAffected; --run) {
        const std::uint32_t from = std::max(list.runs[run - 1].endIndex, newEnd);
        const std::uint32_t at = TotalClusters(tail);
        // The room was reserved above and the range is a new, non-empty one: this cannot fail.
        (void)MapRange(tail, at, at + (list.runs[run].endIndex - from),
                       ClusterOfRun(list, run, from));
    }
    return STATUS_SUCCESS;
}

void CutTail(ClusterRunList& list, std::uint32_t count) {
    if (count == 0) {
        return;
    }
    const std::uint32_t newEnd = TotalClusters(list) - count;
    if (newEnd == 0) {
        list.count = 1;
    } else {
        const std::uint32_t last = FindRun(list, newEnd - 1);
        list.count = last + 1;
        list.runs[last].endIndex = newEnd;
    }
    ShrinkStorage(list);
}

FatStatus RemoveTail(ClusterRunList& list, ClusterRunList& removed, std::uint32_t count) {
    const FatStatus status = CopyTail(list, removed, count);
    if (Succeeded(status)) {
        CutTail(list, count);
    }
    return status;
}

bool IsSound(const ClusterRunList& list) {
    if (list.count == 0 || list.count > list.capacity || list.runs[0].endIndex != 0 ||
        list.runs[0].startCluster != RUN_SENTINEL) {
        return false;
    }
    for (std::uint32_t run = 1; run < list.count; ++run) {
        const std::uint32_t previousEnd = list.runs[run - 1].endIndex;
        if (list.runs[run].endIndex <= previousEnd) {
            return false;
        }
        if (run > 1 && ClusterOfRun(list, run - 1, previousEnd) == list.runs[run].startCluster) {
            return false;
        }
    }
    return true;
}

}  // namespace fatvol
