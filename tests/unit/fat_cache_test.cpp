// The cache of a FAT with more blocks than it holds.
#include <deque>

#include "volume/fat_table.h"
#include "volume/fat_volume.h"
#include "volume/fixture.h"

namespace fatvol::test {
namespace {

constexpr uint32_t blockCount = 272, capacity = 256;

// Blocks that could not be written when it was their turn to go stay longer than others.
constexpr uint32_t lateBlocks = 16;

TEST_F(VolumeTest, KeepsFatBlocksAndChangesThroughFailures) {
    ImageBuilder builder({32, 512, 1, (blockCount - 1) * 65536 + 1000});
    MemoryDisk& disk = builder.disk;
    std::map<uint32_t, uint32_t> values;  // by cluster
    {
        const Mounted mounted(disk);
        bool readsFail = false, writesFail = false, hasRead = false, hasFailed = false;
        disk.beforeCall = [&](const Call& call) {
            const bool fails = IsWrite(call.kind) ? writesFail : readsFail;
            hasRead |= !IsWrite(call.kind);
            hasFailed |= fails;
            return fails ? -7 : 0;
        };
        std::deque<uint32_t> recent;  // blocks
        uint32_t next = 0;
        for (uint32_t step = 0; step < 6000; ++step) {
            SCOPED_TRACE(step);
            Rng rng(step);
            // Round and round, which asks for blocks just evicted, with leaps.
            const auto leap = static_cast<uint32_t>(Below(rng, 5 * blockCount));
            const uint32_t block = leap < blockCount ? leap : next++ % blockCount;
            const auto cluster = static_cast<uint32_t>(block << 16 | (3 + Below(rng, 5)));
            const bool isSet = Below(rng, step / 1000 % 2 == 0 ? 150 : 3) == 0;
            const auto value = static_cast<uint32_t>(rng());
            uint32_t read = 0;
            writesFail = Below(rng, 4) == 0;
            readsFail = Below(rng, 20) == 0;
            hasRead = hasFailed = false;
            const FatStatus status = isSet ? fatvol::SetFatEntry(*mounted.volume, cluster, value)
                                           : fatvol::GetFatEntry(*mounted.volume, cluster, &read);
            ASSERT_EQ(status, hasFailed ? FatStatus{-7} : STATUS_SUCCESS);
            ASSERT_TRUE(std::erase(recent, block) == 0 || !hasRead);
            // A block that cannot be written makes way for others: four at most are dirty.
            readsFail = false;
            int failures = 0;
            while (Failed(fatvol::GetFatEntry(*mounted.volume, cluster, &read))) {
                ASSERT_LE(++failures, 4);
            }
            const bool mayBeOld = !isSet || Failed(status);
            ASSERT_TRUE((mayBeOld && read == values[cluster]) || (isSet && read == value));
            values[cluster] = read;
            recent.push_back(block);
            if (recent.size() > capacity - lateBlocks) {
                recent.pop_front();
            }
            ASSERT_TRUE(IsSound(mounted.volume->fatTable));
        }
        disk.beforeCall = nullptr;
    }
    for (const auto& [cluster, value] : values) {
        EXPECT_EQ(GetFatEntry(disk, builder.geometry, cluster), value & 0x0FFFFFFF) << cluster;
    }
}

}  // namespace
}  // namespace fatvol::test
