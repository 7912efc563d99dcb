#include <gtest/gtest.h>

#include "data/buffer_pool.h"
#include "data/cluster_run_list.h"
#include "support/random_tree.h"

namespace fatvol::test {
namespace {

// Ranges with gaps between them are added and tails taken away; the arrays leave their pool, grow
// and shrink.
TEST(RunList, AgreesWithAPlainList) {
    const auto pool = CreatePool(PooledRunCapacity * sizeof(ClusterRun));
    RunArrayPool = pool.get();
    for (uint32_t sequence = 0; sequence < 100; ++sequence) {
        SCOPED_TRACE(sequence);
        Rng rng(sequence);
        ClusterRunList list;
        ASSERT_TRUE(Succeeded(Init(list)));
        std::vector<uint32_t> model;
        for (int i = 0; i < 300; ++i) {
            const auto total = static_cast<uint32_t>(model.size());
            if (total == 0 || Below(rng, 100) < (i < 200 ? 95 : 20)) {
                const auto start = static_cast<uint32_t>(total + Below(rng, 10) / 9 * 3);
                const auto first = static_cast<uint32_t>(2 + Below(rng, 90));
                model.resize(start, RUN_UNMAPPED);
                for (uint32_t k = 0; k <= first % 4; ++k) {
                    model.push_back(first + k);
                }
                ASSERT_EQ(MapRange(list, start, start + first % 4 + 1, first), STATUS_SUCCESS);
            } else {
                const auto count = static_cast<uint32_t>(1 + Below(rng, std::min(total, 30U)));
                ClusterRunList removed;
                ASSERT_TRUE(Succeeded(Init(removed)));
                ASSERT_EQ(RemoveTail(list, removed, count), STATUS_SUCCESS);
                ASSERT_TRUE(TotalClusters(removed) == count && IsSound(removed));
                model.resize(total - count);
            }
            uint32_t cluster = 0, left = 0;
            ASSERT_TRUE(IsSound(list) && TotalClusters(list) == model.size());
            for (uint32_t index = 0; index < model.size(); ++index) {
                const bool isMapped = ClusterAt(list, index, &cluster, &left);
                ASSERT_EQ(isMapped ? cluster : RUN_UNMAPPED, model[index]) << index;
            }
        }
    }
}

}  // namespace
}  // namespace fatvol::test
