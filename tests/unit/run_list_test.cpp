#include <gtest/gtest.h>

#include <cstring>

#include "data/buffer_pool.h"
#include "data/cluster_run_list.h"
#include "support/random_tree.h"

namespace fatvol::test {
namespace {

using Clusters = std::vector<uint32_t>;  // by file cluster index; RUN_UNMAPPED in gaps

TEST(BufferPool, GrowsAndShrinksInSteps) {
    const auto pool = CreatePool(24);
    std::vector<void*> taken;
    uint32_t total = 16;
    for (const size_t goal : {17U, 0U, 16U, 0U, 100U, 50U, 70U, 0U}) {
        while (taken.size() != goal) {
            if (taken.size() < goal) {
                total += taken.size() == total ? 16U : 0;
                taken.push_back(std::memset(TakeRecord(*pool), 0x5A, 24));
            } else {
                GiveRecord(*pool, taken.back());
                taken.pop_back();
                total -= total - taken.size() == 32 ? 16U : 0;
            }
            ASSERT_TRUE(IsSound(*pool) && pool->total == total && pool->inUse == taken.size());
        }
    }
}

// The clusters from `from` on as runs, the last one first.
std::vector<Clusters> RunsFrom(const Clusters& clusters, size_t from) {
    std::vector<Clusters> runs;
    for (size_t i = from; i < clusters.size(); ++i) {
        const bool isUnmapped = clusters[i] == RUN_UNMAPPED;
        if (i == from || clusters[i] != clusters[i - 1] + (isUnmapped ? 0 : 1)) {
            runs.emplace_back();
        }
        runs.back().push_back(clusters[i]);
    }
    std::reverse(runs.begin(), runs.end());
    return runs;
}

void ExpectHolds(const ClusterRunList& list, const Clusters& model) {
    const std::vector<Clusters> runs = RunsFrom(model, 0);
    ASSERT_TRUE(IsSound(list) && list.count == runs.size() + 1);
    ASSERT_TRUE(model.empty() || LastCluster(list) == model.back());
    uint32_t index = TotalClusters(list), cluster = 0, left = 0;
    ASSERT_EQ(index, model.size());
    ASSERT_FALSE(ClusterAt(list, index, &cluster, &left));
    for (const Clusters& run : runs) {
        for (uint32_t fromEnd = 1; fromEnd <= run.size(); ++fromEnd) {
            const bool isMapped = ClusterAt(list, --index, &cluster, &left);
            ASSERT_EQ(isMapped ? cluster : RUN_UNMAPPED, model[index]);
            ASSERT_EQ(left, fromEnd);
        }
    }
}

TEST(RunList, AgreesWithAPlainList) {
    const auto pool = CreatePool(PooledRunCapacity * sizeof(ClusterRun));
    RunArrayPool = pool.get();
    for (uint32_t sequence = 0; sequence < 60; ++sequence) {
        SCOPED_TRACE(sequence);
        Rng rng(sequence);
        const auto below = [&](uint64_t n) { return static_cast<uint32_t>(Below(rng, n)); };
        ClusterRunList list, removed;
        ASSERT_TRUE(Succeeded(Init(list)) && Succeeded(Init(removed)));
        Clusters model, removedModel;
        // The first list outgrows the doubling of its array, and then only shrinks.
        const int steps = sequence == 0 ? 8000 : 250;
        for (int i = 0; i < steps; ++i) {
            uint32_t capacity = list.capacity;
            const auto total = static_cast<uint32_t>(model.size());
            ASSERT_EQ(RemoveTail(list, removed, total + 1), STATUS_INVALID_PARAMETER);
            ASSERT_EQ(MapRange(list, total, total, 5), STATUS_DISK_CORRUPT_ERROR);
            const uint32_t chance = sequence == 0 ? i < 7000 ? 100 : 0 : i % 100 < 70 ? 95 : 20;
            if (total == 0 || below(100) < chance) {
                const uint32_t start = total + below(10) / 9 * below(4), end = start + 1 + below(4);
                const bool goesOn = start == total && total > 0 && model.back() != RUN_UNMAPPED;
                const uint32_t cluster = goesOn && below(3) == 0 ? model.back() + 1 : 2 + below(90);
                model.resize(start, RUN_UNMAPPED);
                while (model.size() < end) {
                    model.push_back(cluster + static_cast<uint32_t>(model.size()) - start);
                }
                ASSERT_EQ(MapRange(list, start, end, cluster), STATUS_SUCCESS);
                capacity += list.count > capacity ? std::min(capacity, 2048U) : 0;
            } else {
                const uint32_t count = 1 + below(below(10) == 0 ? total : std::min(total, 30U));
                for (const Clusters& run : RunsFrom(model, total - count)) {
                    removedModel.insert(removedModel.end(), run.begin(), run.end());
                }
                model.resize(total - count);
                ASSERT_EQ(RemoveTail(list, removed, count), STATUS_SUCCESS);
                capacity = list.count < capacity / 4 ? std::max(2 * list.count, 16U) : capacity;
            }
            if (i % (steps / 250) == 0) {
                ASSERT_NO_FATAL_FAILURE(ExpectHolds(list, model));
                ASSERT_NO_FATAL_FAILURE(ExpectHolds(removed, removedModel));
            }
            ASSERT_EQ(list.capacity, capacity);
            ASSERT_EQ(RunArrayPool->inUse, (list.capacity == 16) + (removed.capacity == 16));
        }
    }
}

}  // namespace
}  // namespace fatvol::test
