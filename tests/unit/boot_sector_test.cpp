// Storage objects, boot sectors and the geometry computed from them.
#include "storage/boot_sector.h"

#include <gtest/gtest.h>

#include "support/image_builder.h"
#include "support/memory_storage.h"
#include "volume/fat_volume.h"
#include "volume/geometry.h"

namespace fatvol::test {
namespace {

struct Probe : MemoryStorage {
    using CVolumeStorage::CaclSectorShift;
    using CVolumeStorage::ReadBytes;
    using CVolumeStorage::ReadBytesAligned;
    using CVolumeStorage::ReadSectors;
    using CVolumeStorage::WriteBytes;
    using CVolumeStorage::WriteBytesAligned;
    using CVolumeStorage::WriteSectors;
    using MemoryStorage::MemoryStorage;
};

TEST(Storage, OpensOrSaysWhy) {
    ImageBuilder builder({16, 4096});
    MemoryDisk& disk = builder.disk;
    Probe probe(disk);
    disk.openResult = -9;
    EXPECT_EQ(probe.Open(nullptr), -9);
    disk.openResult = 1;
    disk.failure.countdown = 1;
    EXPECT_EQ(probe.Open(nullptr), -5);
    disk.beforeCall = [&](const Call&) {
        EXPECT_TRUE(probe.BytesPerSector == 2048 && probe.SectorShift == 11);
        return 0;
    };
    EXPECT_EQ(probe.Open(nullptr), 0);
    EXPECT_TRUE(probe.BytesPerSector == 4096 && probe.SectorShift == 12);
    EXPECT_EQ(Probe(probe).DbrBuffer, probe.DbrBuffer);
    // Each transfer goes to its own callback.
    disk.beforeCall = nullptr;
    disk.keepCalls = true;
    uint8_t bytes[4096];
    int kind = 0;
    for (const auto transfer :
         {&Probe::ReadBytes, &Probe::WriteBytes, &Probe::ReadBytesAligned,
          &Probe::WriteBytesAligned, &Probe::ReadSectors, &Probe::WriteSectors}) {
        EXPECT_EQ((probe.*transfer)(bytes, 1, 1), 0);
        EXPECT_EQ(disk.calls.back(), (Call{static_cast<CallKind>(kind++), 1, 1}));
    }
    EXPECT_TRUE(probe.Close());
    builder.SetBootField(510, 2, 0x55AA);
    EXPECT_EQ(FatStatus{probe.Open(nullptr)}, STATUS_UNRECOGNIZED_VOLUME);
    for (const auto& [size, shift] : {std::pair{0U, 0U}, {1, 0}, {2, 1}, {3, 1}, {4096, 12}}) {
        probe.CaclSectorShift(size);
        EXPECT_TRUE(probe.BytesPerSector == size && probe.SectorShift == shift) << size;
    }
}

TEST(BootSector, IsAcceptedOrRefused) {
    const struct {
        uint32_t fatType, offset, sizeBytes;
        std::vector<uint32_t> values;
        size_t acceptedCount;  // of them; the rest is refused
    } cases[] = {{16, 510, 2, {0xAA55, 0x55AA, 0}, 1},
                 {16, 0, 1, {0xE9, 0xEB, 0x49, 0xE8, 0}, 3},
                 {16, 11, 2, {128, 256, 512, 1024, 2048, 4096, 0, 64, 127, 768, 4097, 8192}, 6},
                 {16, 13, 1, {1, 2, 4, 8, 16, 32, 64, 128, 0, 3, 255}, 8},
                 {16, 14, 2, {1, 0xFFFF, 0}, 2},
                 {16, 16, 1, {1, 2, 255, 0}, 3},
                 {16, 17, 2, {1, 0xFFFF, 0}, 2},
                 {16, 19, 2, {1, 0xFFFF, 0}, 2},
                 {32, 32, 4, {1, 0xFFFFFFFF, 0}, 2},
                 {16, 21, 1, {0xF0, 0xF8, 0xF9, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF, 0, 0xF7, 0xFA}, 8},
                 {16, 40, 4, {0x00010080}, 1},
                 {32, 17, 2, {0, 512}, 2},
                 {32, 36, 4, {1, 0x10000, 0}, 2},
                 {32, 40, 2, {0, 1, 0xFF7F, 0x80, 0xFFFF}, 3},
                 {32, 42, 2, {0, 1, 0x100}, 1}};
    for (const auto& [fatType, offset, sizeBytes, values, acceptedCount] : cases) {
        for (size_t i = 0; i < values.size(); ++i) {
            ImageBuilder builder({fatType});
            builder.SetBootField(offset, sizeBytes, values[i]);
            std::vector<uint8_t> sector = builder.disk.Read(0, 512);
            ASSERT_EQ(IsBootSectorOk(sector.data()), i < acceptedCount) << offset << " " << i;
            ASSERT_EQ(sector, builder.disk.Read(0, 512));
            // Whatever else is wrong: a 16-bit total wins, once the signature is right.
            Put16(&sector[19], 2880);
            Put32(&sector[32], 1234);
            static_cast<void>(IsBootSectorOk(sector.data()));
            ASSERT_EQ(Get32(&sector[32]), Get16(&sector[510]) == 0xAA55 ? 0 : 1234);
        }
    }
}

TEST(Geometry, FollowsFromTheRecord) {
    // FATs, sectors per cluster, 16-bit total, root entries, sectors per FAT, bytes per sector,
    // reserved sectors, FSInfo, 32-bit total, sectors per FAT and root cluster of FAT32; then FAT
    // type (0: refused), clusters, root position, data position
    const struct {
        Mpb mpb;
        std::array<uint32_t, 4> expected;
    } cases[] = {{{2, 1, 2880, 224, 9, 512, 1, 0, 999999, 0, 0}, {12, 2847, 9728, 16896}},
                 {{2, 1, 4120, 16, 16, 512, 1, 0, 0, 0, 0}, {12, 4086, 16896, 17408}},
                 {{2, 1, 4121, 16, 16, 512, 1, 0, 0, 0, 0}, {16, 4087, 16896, 17408}},
                 {{2, 1, 4121, 17, 16, 512, 1, 0, 0, 0, 0}, {12, 4086, 16896, 17920}},
                 {{1, 8, 0, 1, 300, 4096, 2, 0, 2000000, 0, 0}, {16, 249962, 1236992, 1241088}},
                 {{2, 1, 0, 16, 3, 512, 1, 0, 5008, 0, 0}, {16, 766, 3584, 4096}},  // a short FAT
                 {{2, 1, 0, 0, 0, 512, 32, 1, 10032, 9, 2}, {32, 1150, 25600, 25600}},
                 {{2, 64, 0, 0, 0, 512, 32, 1, 0xFFFFFFFF, 524288, 2},
                  {32, 67092479, 0x20004000, 0x20004000}},
                 {{2, 1, 7, 16, 3, 512, 1, 0, 0, 0, 0}, {}},                  // beyond the end
                 {{255, 1, 0, 0, 0, 512, 32, 1, 1000, 0xFFFFFFFF, 2}, {}},    // and far beyond
                 {{2, 1, 0, 0, 0, 512, 32, 1, 0xFFFFFFFF, 0x400000, 2}, {}},  // data beyond 4 GiB
                 {{2, 1, 0, 16, 0, 512, 32, 1, 10032, 9, 2}, {}},  // root entries on FAT32
                 {{2, 0, 2880, 224, 9, 512, 1, 0, 0, 0, 0}, {}},
                 {{2, 1, 2880, 224, 9, 0, 1, 0, 0, 0, 0}, {}}};
    for (const auto& [mpb, expected] : cases) {
        FatVolume v;
        uint32_t rootCluster = 99, rootSize = 99;
        if (ComputeGeometry(v, mpb, &rootCluster, &rootSize) != STATUS_SUCCESS) {
            EXPECT_EQ(expected[0], 0U);
            continue;
        }
        EXPECT_EQ((std::array{v.fatType, v.clusterCount, v.rootDirectoryPosition, v.dataPosition}),
                  expected);
        EXPECT_TRUE(rootSize == expected[3] - expected[2] && rootCluster == mpb.BPB_RootClus);
    }
}

}  // namespace
}  // namespace fatvol::test
