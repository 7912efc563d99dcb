#include "data/block_cache.h"

#include <numeric>

#include "data/file_data.h"
#include "mounted_volume.h"
#include "ops/path_lookup.h"

namespace fatvol::test {
namespace {

constexpr uint64_t FileSize = 2460ULL * CacheBlockSize + 100000;
constexpr uint32_t ClusterBytes = 32768, ClusterCount = FileSize / ClusterBytes + 1;
constexpr uint32_t RootBlock = ~0U;  // stands for the one block of the root directory

uint64_t BytesOf(uint32_t block) {
    return std::min<uint64_t>(FileSize - uint64_t{block} * CacheBlockSize, CacheBlockSize);
}

// Number in the file, whether it is dirty, place in the memory of the cache.
using Cached = std::tuple<uint32_t, bool, size_t>;

// What the cache should hold and the bytes that it should move.
struct CacheModel {
    CacheModel() { std::iota(freePlaces.begin(), freePlaces.end(), 1); }

    // A transfer that touches one block; whether it succeeds.
    bool Transfer(uint32_t block, bool isWrite, bool isWhole) {
        for (auto cached = recency.begin(); cached != recency.end(); ++cached) {
            if (const auto [number, isDirty, place] = *cached; number == block) {
                recency.erase(cached);
                recency.emplace_back(block, isWrite || isDirty, place);
                return true;
            }
        }
        // Whole blocks are read before there is room for them, and written without reading.
        if ((isWhole && !isWrite && !Read(block)) || (freePlaces.empty() && !Evict()) ||
            (!isWhole && !Read(block))) {
            return false;
        }
        recency.emplace_back(block, isWrite, freePlaces.front());
        freePlaces.pop_front();
        return true;
    }

    bool Read(uint32_t block) {
        bytesRead += readsFail ? 0 : BytesOf(block);
        return !readsFail;
    }

    bool Evict() {
        const auto [block, isDirty, place] = recency.front();
        recency.pop_front();
        if (isDirty && writesFail) {
            recency.emplace_back(block, isDirty, place);
            return false;
        }
        bytesWritten += isDirty ? BytesOf(block) : 0;
        freePlaces.push_front(place);
        return true;
    }

    std::deque<Cached> recency{{RootBlock, false, 0}};
    std::deque<size_t> freePlaces = std::deque<size_t>(CacheBlockCount - 1);
    bool readsFail = false, writesFail = false;
    uint64_t bytesRead = 0, bytesWritten = 0;
};

std::deque<Cached> CachedBlocks(const CFatFile& file) {
    std::deque<Cached> blocks;
    const auto* first = static_cast<const CacheBlock*>(SharedBlockCache->memory.get());
    for (auto* link = SharedBlockCache->recency.next; link != &SharedBlockCache->recency;
         link = link->next) {
        const auto& block = static_cast<const CacheBlock&>(*link);
        blocks.emplace_back(block.owner == &file ? BlockNumber(block.fileOffset) : RootBlock,
                            block.dirty != 0, &block - first);
    }
    return blocks;
}

TEST(BlockCache, KeepsBlocksAndChangesThroughFailures) {
    ImageBuilder builder({16, 512, 64, 20000});
    MemoryDisk& disk = builder.disk;
    EntryOptions options;
    options.size = static_cast<uint32_t>(FileSize);
    for (uint32_t i = 0; i < ClusterCount; ++i) {
        options.clusters.push_back(2 + (i ^ 4));  // runs of four
    }
    builder.AddFile(ImageBuilder::root, u"LARGE", {}, options);
    MemoryDisk content(uint64_t{ClusterCount} * ClusterBytes);
    const MountedVolume volume(disk);
    FileReference file;
    ASSERT_EQ(OpenByPath(*volume, u"LARGE", &file), STATUS_SUCCESS);
    CacheModel model;
    disk.counters = {};
    disk.beforeCall = [&](const Call& call) {
        return (IsWrite(call.kind) ? model.writesFail : model.readsFail) ? -7 : 0;
    };
    for (uint32_t step = 0; step < 3000; ++step) {
        Rng rng(step);
        SCOPED_TRACE(step);
        model.writesFail = Below(rng, 4) == 0;
        model.readsFail = Below(rng, 20) == 0;
        // In 40 buckets of the index, with up to ten blocks in each.
        const auto block = static_cast<uint32_t>(269 * Below(rng, 10) + Below(rng, 40));
        const uint64_t inBlock = Below(rng, 3) * Below(rng, 50000);
        const auto length = static_cast<uint32_t>(std::min(
            BytesOf(block) - inBlock, Below(rng, 4) == 0 ? CacheBlockSize : 1 + rng() % 99));
        const uint64_t offset = uint64_t{block} * CacheBlockSize + inBlock;
        const bool isWrite = Below(rng, 2) == 0;
        const bool succeeds = model.Transfer(block, isWrite, length == CacheBlockSize);
        std::vector<uint8_t> buffer = RandomBytes(rng, length);
        uint32_t done = 0;
        ASSERT_EQ((isWrite ? WriteFileData(*file, offset, length, buffer.data(), &done, FileSize)
                           : ReadFileData(*file, offset, length, buffer.data(), &done, FileSize)),
                  succeeds ? STATUS_SUCCESS : FatStatus{-7});
        if (isWrite && succeeds) {
            content.Write(offset, buffer.data(), length);
        }
        ASSERT_TRUE(!succeeds || (done == length && buffer == content.Read(offset, length)));
        ASSERT_EQ(CachedBlocks(*file), model.recency);
        ASSERT_EQ(disk.counters.bytesRead, model.bytesRead);
        ASSERT_EQ(disk.counters.bytesWritten, model.bytesWritten);
        ASSERT_TRUE(IsSound(*SharedBlockCache) && IsSound(file->blocks, *file));
    }
    disk.beforeCall = nullptr;
    EmptyOpenObjectCache((*volume).openObjects);
    file = FileReference();
    model.writesFail = false;
    while (!model.recency.empty()) {
        model.Evict();
    }
    EXPECT_EQ(disk.counters.bytesWritten, model.bytesWritten);
    for (uint64_t i = 0; i < ClusterCount; ++i) {
        const uint64_t position = builder.geometry.ClusterPosition(options.clusters[i]);
        ASSERT_EQ(disk.Read(position, ClusterBytes), content.Read(i * ClusterBytes, ClusterBytes));
    }
}

}  // namespace
}  // namespace fatvol::test
