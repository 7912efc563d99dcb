// Volumes of every shape are read as they were built, and nothing on them changes by it.
#include "fixture.h"

namespace fatvol::test {
namespace {

// FAT type, bytes per sector, sectors per cluster, clusters, reserved sectors, FATs, root entries,
// sectors per FAT, root cluster, sectors after the last cluster, fill
const VolumeLayout layouts[] = {
    {12, 512, 1, 1},
    {12, 128, 1, 4086, 0, 2, 63},
    {12, 256, 8, 3000, 0, 1, 512, 0, 0, 0, 0xA7},
    {12, 4096, 128, 64, 0, 3, 512},
    {16, 512, 1, 4087, 7, 2, 512, 0, 0, 0, 0xE5},
    {16, 256, 2, 65524, 0, 4, 512},
    {16, 4096, 2, 6000, 0, 2, 512, 9},
    {32, 512, 8, 100, 0, 2, 0, 0, 57},
    {32, 128, 2, 70000, 0, 3, 0, 0, 2, 1, 0xFF},
    {32, 512, 1, 66000, 9, 1, 0, 0, 66001},
    {32, 2048, 4, 4087, 0, 2, 0, 0, 3, 2},
    {32, 4096, 128, 48, 0, 2, 0, 3, 2, 0, 1},
};

class EveryLayout : public VolumeTest, public testing::WithParamInterface<size_t> {};

TEST_P(EveryLayout, IsReadAndStaysAsItIs) {
    Rng rng(GetParam());
    ImageBuilder builder(layouts[GetParam()]);
    const Geometry& geometry = builder.geometry;
    MemoryDisk& disk = builder.disk;
    disk.successStatus = static_cast<int>(GetParam());  // 0 and above mean success
    builder.AddVolumeLabel({'A', ' ', 'L', 'A', 'B', 'E', 'L', ' ', ' ', ' ', ' '});
    if (geometry.HasCluster(geometry.badMark)) {
        builder.SetFatEntry(geometry.badMark, geometry.badMark);
    }
    FillRandomTree(builder, rng, 150);

    if (geometry.fatCount > 1) {
        disk.Fill(geometry.FatPosition(1), geometry.fatBytes, 0x5C);
    }
    {
        const Mounted mounted(disk);
        const FatVolumeInfo info = mounted.Info();
        EXPECT_EQ(info.fatType, geometry.fatType);
        EXPECT_EQ(info.bytesPerSector, geometry.bytesPerSector);
        EXPECT_EQ(info.bytesPerCluster, geometry.clusterBytes);
        EXPECT_EQ(info.clusterCount, geometry.clusterCount);
        EXPECT_EQ(info.freeClusters, builder.FreeClusters());
        EXPECT_EQ(std::u16string(info.volumeLabel), u"A LABEL");
        Tree tree;
        ListTree(tree);
        EXPECT_EQ(Difference(builder.tree, tree), "");
    }
    // FSInfo, and the second FAT, which was stale.
    EXPECT_EQ(disk.counters.bytesWritten, (geometry.fsInfoSector != 0 ? 512 : 0) +
                                              (geometry.fatCount > 1 ? geometry.fatBytes : 0));
    EXPECT_TRUE(ReadTree(disk) == builder.tree);
    EXPECT_EQ(CheckImage(disk).Text(), "");

    const Mounted mounted(disk);
    for (const auto& [path, node] : builder.tree) {
        const std::u16string folded = FoldAscii(path), alias = DisplayName(node.entry.data());
        EXPECT_TRUE(CanOpen(folded)) << Printable(path);
        EXPECT_FALSE(CanOpen(path + u"~"));
        const size_t nameAt = path.rfind(u'\\') + 1;
        EXPECT_EQ(CanOpen(path.substr(0, nameAt) + alias), folded.substr(nameAt) == alias);
    }
}

INSTANTIATE_TEST_SUITE_P(Reading, EveryLayout, testing::Range<size_t>(0, std::size(layouts)));

// Clusters whose numbers are marks in a link are never free.
TEST_F(VolumeTest, CountsNoClusterThatIsAMark) {
    for (const VolumeLayout& layout : {VolumeLayout{12, 512, 1, 4086}, {16, 512, 1, 70000}}) {
        ImageBuilder builder(layout);
        EXPECT_EQ(Mounted(builder.disk).Info().freeClusters, builder.geometry.badMark - 2);
    }
}

// Data beyond 2 TiB, on 2^26 clusters.
TEST_F(VolumeTest, ReadsAndWritesFarAway) {
    ImageBuilder builder({32, 4096, 32, 1U << 26, 0, 1});
    Rng rng(3);
    const uint32_t last = builder.geometry.clusterCount + 1;
    EntryOptions options;
    options.clusters = {last - 1, last, last / 3 * 2, 5};
    ASSERT_GT(builder.geometry.ClusterPosition(last / 3 * 2), 1ULL << 41);
    const Bytes content = RandomBytes(rng, 4 * builder.geometry.clusterBytes - 7);
    const Bytes reversed(content.rbegin(), content.rend());
    builder.AddFile(builder.root, u"FAR", content, options);
    {
        const Mounted mounted(builder.disk);
        EXPECT_EQ(mounted.Info().freeClusters, last - 6);
        EXPECT_TRUE(ReadWhole(u"FAR") == content);
        EXPECT_TRUE(WriteAt(File(u"FAR").handle, 0, reversed));
    }
    EXPECT_TRUE(ReadTree(builder.disk)[u"FAR"].content == reversed);
}

}  // namespace
}  // namespace fatvol::test
