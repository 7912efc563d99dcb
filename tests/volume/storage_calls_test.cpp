// Which storage calls are made, in which order and with what counts.
#include "fixture.h"
#include "volume/fat_table.h"

namespace fatvol::test {
namespace {

using enum CallKind;

// The FAT from its last block down, of which only the sectors in use are read.
std::vector<Call> FatReads(const Geometry& geometry) {
    const uint64_t bits = (uint64_t{geometry.clusterCount} + 2) * geometry.fatType;
    const uint64_t sectorBits = uint64_t{geometry.bytesPerSector} * 8;
    const uint64_t perBlock = FatBlockSize / geometry.bytesPerSector;
    std::vector<Call> calls;
    for (uint64_t end = (bits + sectorBits - 1) / sectorBits; end > 0;) {
        const uint64_t first = (end - 1) / perBlock * perBlock;
        calls.push_back(CallAt(ReadSectors, geometry.reservedSectors + first, end - first));
        end = first;
    }
    return calls;
}

TEST_F(VolumeTest, MountsAndUnmountsInOrder) {
    for (const VolumeLayout& layout : {VolumeLayout{12, 128, 1, 169},
                                       {12, 4096, 128, 60, 0, 1, 512},
                                       {16, 128, 2, 140000, 5, 3, 512},
                                       {32, 512, 1, 200000, 0, 1, 0, 4000},
                                       {32, 256, 4, 5000, 40},
                                       {32, 4096, 1, 65534},
                                       {32, 4096, 128, 65535}}) {
        ImageBuilder builder(layout);
        MemoryDisk& disk = builder.disk;
        const Geometry& g = builder.geometry;
        const uint64_t slot = builder.AddFile(builder.root, u"F", Bytes(100, 'x'));
        const uint64_t data = g.ClusterPosition(Get16(&disk.Read(slot, 32)[26]));
        disk.keepCalls = true;
        Mounted mounted(disk);
        std::vector<Call> expected = FatReads(g);
        const Call lastBlock = expected[0];
        expected.insert(expected.begin(), CallAt(ReadBytes, 0, 2048));
        expected.push_back(g.fatType == 32 ? CallAt(ReadBytes, g.ClusterPosition(g.rootCluster),
                                                    std::min(g.clusterBytes, blockBytes))
                                           : CallAt(ReadBytes, g.rootPosition, g.rootBytes));
        // A file and the FAT are changed, which writes nothing.
        EXPECT_TRUE(WriteAt(File(u"F").handle, 5, {'a', 'b'}));
        EXPECT_EQ(fatvol::SetFatEntry(*mounted.volume, g.clusterCount + 1, g.badMark),
                  STATUS_SUCCESS);
        expected.push_back(CallAt(ReadBytes, data, 100));
        if (FatReads(g).size() > FatCacheCapacity) {
            expected.push_back(lastBlock);  // once more
        }
        EXPECT_EQ(TakeCalls(disk), expected);

        EXPECT_TRUE(mounted.Unmount());
        expected.clear();
        if (g.fatType == 32) {
            const uint64_t fsInfo = uint64_t{g.fsInfoSector} * g.bytesPerSector;
            expected = {CallAt(ReadBytes, fsInfo, 512), CallAt(WriteBytes, fsInfo, 512)};
            EXPECT_EQ(disk.Read(fsInfo + 488, 8), Bytes(8, 0xFF));  // counts unknown
        }
        expected.push_back({WriteSectors, lastBlock.position, lastBlock.count});
        if (g.fatCount > 1) {
            const uint64_t second = g.reservedSectors + g.fatSectors;
            expected.push_back(CallAt(ReadSectors, g.reservedSectors, g.fatSectors));
            expected.push_back(CallAt(WriteSectors, second, g.fatSectors));
        }
        expected.push_back(CallAt(WriteBytes, data, 100));
        EXPECT_EQ(TakeCalls(disk), expected);
        EXPECT_EQ(CheckImage(disk).Text(), "");
        EXPECT_EQ(disk.Read(data + 4, 4), Bytes({'x', 'a', 'b', 'x'}));
    }
}

// Whole clusters through the aligned calls; what begins inside a cluster, and the last piece if it
// is one cluster or less, through the byte calls.
TEST_F(VolumeTest, MovesEachRunWithOneCall) {
    constexpr uint32_t K = blockBytes;
    const VolumeLayout small, large{12, 4096, 128, 60};  // clusters of 512 bytes, of two blocks
    struct Piece {
        CallKind kind;
        uint32_t cluster, skip, bytes;
    };
    const struct {
        const VolumeLayout& layout;
        std::vector<uint32_t> chain;
        uint32_t offset;  // from which the file is read
        std::vector<Piece> pieces;
    } cases[] = {
        {small, {10}, 0, {{ReadBytes, 10, 0, 1}}},
        {small, {10}, 0, {{ReadBytes, 10, 0, 512}}},
        {small, {10, 11, 12}, 0, {{ReadAligned, 10, 0, 1024}, {ReadBytes, 12, 0, 1}}},
        {small, {10, 11, 12}, 0, {{ReadAligned, 10, 0, 1536}}},
        {small, {10, 11, 20}, 0, {{ReadAligned, 10, 0, 1024}, {ReadBytes, 20, 0, 512}}},
        {small, {12, 11}, 0, {{ReadAligned, 12, 0, 512}, {ReadBytes, 11, 0, 511}}},
        {large, {5, 6, 9}, 0, {{ReadAligned, 5, 0, 4 * K}, {ReadBytes, 9, 0, K}}},
        {large, {5, 6, 9}, K, {{ReadBytes, 5, K, 3 * K}, {ReadBytes, 9, 0, K}}},
        {large, {5, 8, 9}, 100, {{ReadBytes, 5, 0, K}, {ReadBytes, 5, K, K}, {ReadBytes, 8, 0, 9}}},
    };
    for (const auto& [layout, chain, offset, pieces] : cases) {
        SCOPED_TRACE(testing::PrintToString(chain));
        ImageBuilder builder(layout);
        uint32_t size = offset == K ? K : 0;
        std::vector<Call> reads, writes;
        for (const auto& [kind, cluster, skip, bytes] : pieces) {
            const uint64_t position = builder.geometry.ClusterPosition(cluster) + skip;
            size += bytes;
            reads.push_back(CallAt(kind, position, bytes));
            writes.push_back(
                CallAt(kind == ReadBytes ? WriteBytes : WriteAligned, position, bytes));
        }
        EntryOptions options;
        options.clusters = chain;
        builder.AddFile(builder.root, u"F", Bytes(size, 'x'), options);
        Mounted mounted(builder.disk);
        builder.disk.keepCalls = true;
        EXPECT_EQ(ReadAt(File(u"F").handle, offset, size), Bytes(size - offset, 'x'));
        EXPECT_EQ(TakeCalls(builder.disk), reads);
        EXPECT_EQ(ReadAt(File(u"F").handle, offset, size), Bytes(size - offset, 'x'));
        EXPECT_TRUE(WriteAt(File(u"F").handle, offset, Bytes(size - offset, 'y')));
        EXPECT_TRUE(mounted.Unmount());
        const std::vector<Call> calls = TakeCalls(builder.disk);  // two copy the FAT
        EXPECT_TRUE(&layout == &large || std::vector(calls.begin() + 2, calls.end()) == writes);
    }
}

// The object of a closed file lives on, with its changes, until as many others as there may be have
// been opened.
TEST_F(VolumeTest, WritesWhenTheObjectIsDestroyed) {
    constexpr int limit = OpenObjectLimit;
    ImageBuilder builder({});
    const auto name = [](int i) { return u"F" + std::u16string(1, char16_t(0x4E00 + i)); };
    for (int i = 0; i <= limit + 1; ++i) {
        builder.AddFile(builder.root, name(i), Bytes(700));
    }
    const Mounted mounted(builder.disk);
    EXPECT_TRUE(WriteAt(File(name(0)).handle, 699, {'z'}));
    for (int i = 1; i <= limit + 1; ++i) {
        EXPECT_EQ(builder.disk.counters.bytesWritten, i <= limit ? 0U : 700U);
        EXPECT_TRUE(CanOpen(name(i)));
    }
}

}  // namespace
}  // namespace fatvol::test
