// The clusters of a file as runs of consecutive clusters, in file order, searched by bisection.
// Entry 0 is a sentinel; entry i covers the file cluster indices from runs[i - 1].endIndex up to,
// not including, runs[i].endIndex.
//
// Invariants:
//  1. count is at least 1 and entry 0 is {0, RUN_SENTINEL}.
//  2. endIndex rises strictly from entry to entry.
//  3. A run never continues the one before it (they would be one run).
//  4. capacity is 16 exactly when runs is a record of RunArrayPool; otherwise it is a heap array.
#pragma once

#include <cstdint>

#include "storage/fat_status.h"

namespace fatvol {

inline constexpr std::uint32_t RUN_SENTINEL = 0xFFFFFFFD;
inline constexpr std::uint32_t RUN_UNMAPPED = 0xFFFFFFFE;  // indices without clusters
inline constexpr std::uint32_t PooledRunCapacity = 16;

struct ClusterRun {
    std::uint32_t endIndex;      // file cluster index one past the run's last cluster
    std::uint32_t startCluster;  // the run's first cluster, or a marker (top bit set)
};
static_assert(sizeof(ClusterRun) * PooledRunCapacity == 128);

struct ClusterRunList {
    std::uint32_t capacity = 0;  // entries
    std::uint32_t count = 0;     // entries in use, the sentinel included
    ClusterRun* runs = nullptr;  // owned; null until Init

    ClusterRunList() = default;
    ClusterRunList(const ClusterRunList&) = delete;
    ClusterRunList& operator=(const ClusterRunList&) = delete;
    ~ClusterRunList();
};

// Makes a list without an array empty. STATUS_NO_MEMORY leaves it without one.
FatStatus Init(ClusterRunList& list);

// Gives the array back; the list is as before Init.
void Release(ClusterRunList& list);

// The number of file cluster indices covered; 0 without an array.
std::uint32_t TotalClusters(const ClusterRunList& list);

// The volume cluster of a file cluster index and the number of clusters from there to the end of
// its run. False beyond the total and where no cluster is mapped.
bool ClusterAt(const ClusterRunList& list, std::uint32_t index, std::uint32_t* cluster,
               std::uint32_t* leftInRun);

// The volume cluster of a file cluster index that is covered.
std::uint32_t ClusterOf(const ClusterRunList& list, std::uint32_t index);

// The last cluster of a list with at least one run.
std::uint32_t LastCluster(const ClusterRunList& list);

// Appends the file cluster indices from `start` to `end` (exclusive) as a run from `cluster` on;
// one that continues the last run becomes part of it. Indices between the total and `start` become
// unmapped. STATUS_DISK_CORRUPT_ERROR when `start` lies before the total or the range is empty;
// a failure leaves the list as it was.
FatStatus MapRange(ClusterRunList& list, std::uint32_t start, std::uint32_t end,
                   std::uint32_t cluster);

// Makes room for `more` further entries, so that as many calls of MapRange cannot fail.
// STATUS_NO_MEMORY leaves the list as it was.
FatStatus ReserveRuns(ClusterRunList& list, std::uint32_t more);

// Appends the last `count` clusters of a list to `tail`, the last run first.
// STATUS_INVALID_PARAMETER when the list has fewer, STATUS_NO_MEMORY when `tail` cannot take them;
// a failure leaves `tail` as it was.
FatStatus CopyTail(const ClusterRunList& list, ClusterRunList& tail, std::uint32_t count);

// Cuts the last `count` clusters (at most the total) off a list.
void CutTail(ClusterRunList& list, std::uint32_t count);

// CopyTail, then CutTail. A failure leaves both lists as they were.
FatStatus RemoveTail(ClusterRunList& list, ClusterRunList& removed, std::uint32_t count);

// Whether the invariants above hold.
bool IsSound(const ClusterRunList& list);

}  // namespace fatvol
