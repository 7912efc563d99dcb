#include "mounted_volume.h"

namespace fatvol::test {
namespace {

TEST(FatTable, StoresEachTypeOfEntry) {
    for (const VolumeLayout& layout : {VolumeLayout{12, 512, 1, 2847},
                                       {12, 128, 1, 169},
                                       {16, 512, 1, 99998},
                                       {16, 512, 1, 140000},
                                       {32, 4096, 1, 70000},
                                       {32, 128, 1, 65534}}) {
        SCOPED_TRACE(layout.clusterCount);
        ImageBuilder builder(layout);
        MemoryDisk& disk = builder.disk;
        const uint32_t mask = layout.fatType == 32 ? ~0U : (1U << layout.fatType) - 1;
        std::map<uint32_t, uint32_t> values;
        {
            const MountedVolume volume(disk);
            Rng rng(layout.clusterCount);
            for (int i = 0; i < 500; ++i) {
                const auto cluster = static_cast<uint32_t>(2 + Below(rng, layout.clusterCount));
                values[cluster] = i % 5 == 0 ? EndOfChain : static_cast<uint32_t>(rng());
                EXPECT_EQ(fatvol::SetFatEntry(*volume, cluster, values[cluster]), STATUS_SUCCESS);
            }
            for (const auto& [cluster, value] : values) {
                uint32_t read = 0;
                EXPECT_EQ(fatvol::GetFatEntry(*volume, cluster, &read), STATUS_SUCCESS);
                EXPECT_EQ(read, value & mask) << cluster;
            }
            EXPECT_EQ(disk.counters.bytesWritten, 0U);
        }
        for (const auto& [cluster, value] : values) {
            EXPECT_EQ(GetFatEntry(disk, builder.geometry, cluster, 0), value & mask & 0x0FFFFFFF);
            EXPECT_EQ(GetFatEntry(disk, builder.geometry, cluster, 1), value & mask & 0x0FFFFFFF);
            const uint64_t position = builder.geometry.FatPosition(0) + 4 * cluster;
            EXPECT_TRUE(layout.fatType != 32 || Get32(disk.Read(position, 4).data()) == value);
        }
    }
}

// What the cache of a FAT32 should hold and which calls it should make. The operations return
// whether they succeed.
struct CacheModel {
    explicit CacheModel(const Geometry& volume) : geometry(volume) {}

    bool Transfer(CallKind kind, uint32_t block) {
        const uint32_t sector = block * 512, count = std::min(geometry.fatSectors - sector, 512U);
        calls.push_back({kind, geometry.reservedSectors + sector, count});
        return IsWrite(kind) ? !writesFail : !readsFail;
    }

    bool Touch(uint32_t block) {
        if (std::erase(recency, block) == 0 &&
            (!Transfer(CallKind::ReadSectors, block) || (recency.size() == 256 && !Evict()))) {
            return false;
        }
        recency.push_back(block);
        return true;
    }

    bool Evict() {
        const auto listed = std::find(dirty.begin(), dirty.end(), recency.front());
        if (listed != dirty.end()) {
            if (!Transfer(CallKind::WriteSectors, recency.front())) {
                recency.push_back(recency.front());
                recency.pop_front();
                return false;
            }
            *listed = std::nullopt;
        }
        recency.pop_front();
        return true;
    }

    bool Flush() {
        for (; !dirty.empty(); dirty.pop_back()) {
            if (dirty.back() && !Transfer(CallKind::WriteSectors, *dirty.back())) {
                return false;
            }
        }
        return true;
    }

    bool Set(uint32_t cluster, uint32_t value) {
        const uint32_t block = cluster >> 16;
        const bool isListed = std::count(dirty.begin(), dirty.end(), block) != 0;
        if (!Touch(block) || (!isListed && dirty.size() == 4 && !Flush())) {
            return false;
        }
        values[cluster] = value;
        dirty.insert(dirty.end(), !isListed, block);
        return isListed || dirty.size() < 4 || Flush();
    }

    const Geometry& geometry;
    bool readsFail = false, writesFail = false;
    std::deque<uint32_t> recency;                // blocks, least recently used first
    std::vector<std::optional<uint32_t>> dirty;  // blocks; none where one was evicted
    std::map<uint32_t, uint32_t> values;         // by cluster
    std::vector<Call> calls;
};

TEST(FatCache, KeepsBlocksAndChangesThroughFailures) {
    constexpr uint32_t BlockCount = 272;
    ImageBuilder builder({32, 512, 1, (BlockCount - 1) * 65536 + 1000});
    MemoryDisk& disk = builder.disk;
    CacheModel model(builder.geometry);
    {
        const MountedVolume volume(disk);
        for (uint32_t block = BlockCount; block-- > 0;) {
            model.Touch(block);  // as mounting does
        }
        disk.keepCalls = true;
        disk.beforeCall = [&](const Call& call) {
            return (IsWrite(call.kind) ? model.writesFail : model.readsFail) ? -7 : 0;
        };
        uint64_t next = 0;
        for (uint32_t step = 0; step < 6000; ++step) {
            Rng rng(step);
            SCOPED_TRACE(step);
            model.calls.clear();
            disk.calls.clear();
            model.writesFail = Below(rng, 4) == 0;
            model.readsFail = Below(rng, 20) == 0;
            // Round and round, which asks for blocks just evicted, with leaps.
            const uint64_t block =
                Below(rng, 5) == 0 ? Below(rng, BlockCount) : next++ % BlockCount;
            const auto cluster = static_cast<uint32_t>(block << 16 | (2 + Below(rng, 5)));
            const bool isSet = Below(rng, step / 1000 % 2 == 0 ? 150 : 3) == 0;
            uint32_t value = static_cast<uint32_t>(rng()) & 0x0FFFFFFF;
            const FatStatus status = isSet ? fatvol::SetFatEntry(*volume, cluster, value)
                                           : fatvol::GetFatEntry(*volume, cluster, &value);
            const bool succeeds = isSet ? model.Set(cluster, value) : model.Touch(cluster >> 16);
            ASSERT_EQ(status, succeeds ? STATUS_SUCCESS : FatStatus{-7});
            ASSERT_TRUE(isSet || !succeeds || !model.values.contains(cluster) ||
                        value == model.values[cluster]);
            ASSERT_EQ(disk.calls, model.calls);
            ASSERT_TRUE(IsSound((*volume).fatTable));
        }
        disk.beforeCall = nullptr;
    }
    for (const auto& [cluster, value] : model.values) {
        EXPECT_EQ(GetFatEntry(disk, builder.geometry, cluster), value) << cluster;
    }
}

}  // namespace
}  // namespace fatvol::test
