// The caches of the FAT and of files, each with more blocks to hold than it has room for.
#include <deque>

#include "api/library_state.h"
#include "data/block_cache.h"
#include "volume/fat_volume.h"
#include "volume/fixture.h"

namespace fatvol::test {
namespace {

constexpr uint32_t cellsPerBlock = 5;

// A volume whose FAT is the cells. The block that has to go is often of the bucket of the new one.
struct FatCells {
    static constexpr uint32_t capacity = FatCacheCapacity;

    static uint32_t Cluster(uint32_t cell) {
        const uint32_t i = cell / cellsPerBlock;
        const uint32_t block = i / 32 * 16 + i % 16 + (i / 16 % 2) * FatBucketCount;
        return block << (FatBlockShift - 2) | (3 + cell % cellsPerBlock);
    }
    bool Get(uint32_t cell, uint32_t* value) const {
        return Succeeded(fatvol::GetFatEntry(*mounted.volume, Cluster(cell), value));
    }
    bool Set(uint32_t cell, uint32_t value) const {
        return Succeeded(fatvol::SetFatEntry(*mounted.volume, Cluster(cell), value));
    }
    bool AreSound() const { return IsSound(mounted.volume->fatTable); }

    Mounted mounted;
};

// A volume with a file whose blocks meet in few chains of its index.
struct FileCells {
    static constexpr uint32_t capacity = CacheBlockCount, perChain = 20;

    static uint64_t Offset(uint32_t cell) {
        const uint32_t block = cell / cellsPerBlock;
        const uint32_t number = block % perChain * IndexBucketCount + block / perChain;
        return uint64_t{number} * blockBytes + cell % cellsPerBlock * 50000;
    }
    bool Get(uint32_t cell, uint32_t* value) const {
        const auto bytes = ReadAt(file.handle, Offset(cell), 4);
        *value = bytes ? Get32(bytes->data()) : 0;
        return bytes.has_value();
    }
    bool Set(uint32_t cell, uint32_t value) const {
        Bytes bytes(4);
        Put32(bytes.data(), value);
        return WriteAt(file.handle, Offset(cell), bytes);
    }
    bool AreSound() const { return IsLibrarySound(); }

    Mounted mounted;
    File file{u"F"};
};

template <class Cells>
void ExpectKept(MemoryDisk& disk) {
    constexpr uint32_t blockCount = Cells::capacity + 16;
    // Blocks that cannot be written when it is their turn stay, and others have to go early.
    constexpr uint32_t surelyCached = Cells::capacity / 2;
    std::map<uint32_t, uint32_t> values;  // by cell
    {
        const Cells cells{.mounted = Mounted(disk)};
        bool readsFail = false, writesFail = false, hasRead = false, hasFailed = false;
        disk.beforeCall = [&](const Call& call) {
            const bool fails = IsWrite(call.kind) ? writesFail : readsFail;
            hasRead |= !IsWrite(call.kind);
            hasFailed |= fails;
            return fails ? -7 : 0;
        };
        std::deque<uint32_t> recent;  // blocks
        for (uint32_t step = 0, next = 0; step < 6000; ++step) {
            SCOPED_TRACE(step);
            Rng rng(step);
            // Round and round, which asks for blocks just evicted, with leaps.
            const auto leap = static_cast<uint32_t>(Below(rng, 5 * blockCount));
            const uint32_t block = leap < blockCount ? leap : next++ % blockCount;
            const auto cell = static_cast<uint32_t>(block * cellsPerBlock + rng() % cellsPerBlock);
            const bool isSet = Below(rng, step / 1000 % 2 == 0 ? 150 : 3) == 0;
            const auto value = static_cast<uint32_t>(rng());
            writesFail = Below(rng, 4) == 0;
            readsFail = Below(rng, 20) == 0;
            hasRead = hasFailed = false;
            uint32_t read = 0;
            const bool isDone = isSet ? cells.Set(cell, value) : cells.Get(cell, &read);
            ASSERT_NE(isDone, hasFailed);
            ASSERT_TRUE(std::erase(recent, block) == 0 || !hasRead);
            // What cannot be written makes way for others.
            readsFail = false;
            uint32_t failures = 0;
            while (!cells.Get(cell, &read)) {
                ASSERT_LT(++failures, Cells::capacity);
            }
            const bool mayBeOld = !isSet || !isDone;
            ASSERT_TRUE((mayBeOld && read == values[cell]) || (isSet && read == value));
            values[cell] = read;
            recent.push_back(block);
            if (recent.size() > surelyCached) {
                recent.pop_front();
            }
            ASSERT_TRUE(cells.AreSound());
        }
        disk.beforeCall = nullptr;
    }
    const Cells cells{.mounted = Mounted(disk)};
    for (const auto& [cell, value] : values) {
        uint32_t read = 0;
        EXPECT_TRUE(cells.Get(cell, &read) && read == value) << cell;
    }
}

TEST_F(VolumeTest, KeepsFatBlocksThroughFailures) {
    ImageBuilder builder({32, 512, 1, 2 * FatBucketCount << (FatBlockShift - 2)});
    ExpectKept<FatCells>(builder.disk);
}

TEST_F(VolumeTest, KeepsFileBlocksThroughFailures) {
    ImageBuilder builder({16, 512, 64, 50000});
    EntryOptions options;
    options.size = FileCells::perChain * IndexBucketCount * blockBytes;
    for (uint32_t i = 0; i < *options.size / builder.geometry.clusterBytes; ++i) {
        options.clusters.push_back(2 + (i ^ 4));  // runs of four
    }
    builder.AddFile(builder.root, u"F", {}, options);
    ExpectKept<FileCells>(builder.disk);
}

}  // namespace
}  // namespace fatvol::test
