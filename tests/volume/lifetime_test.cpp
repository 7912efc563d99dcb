// The life of the library, of volumes and of handles, and calls that must fail without effect.
#include <climits>
#include <cstring>
#include <functional>

#include "fixture.h"
#include "platform/cache_sizes.h"
#include "volume/fat_table.h"

namespace fatvol::test {
namespace {

ImageBuilder OneFile(char fill, const VolumeLayout& layout = {}) {
    ImageBuilder builder(layout);
    builder.AddFile(builder.root, u"F", Bytes(700, static_cast<uint8_t>(fill)));
    return builder;
}

bool Transfers(int file, void* buffer, unsigned int* done) {
    return Fat_ReadFile(file, 1, buffer, done) || Fat_ReadFileEx(file, 0, 1, buffer, done) ||
           Fat_WriteFile(file, 1, buffer, done) || Fat_WriteFileEx(file, 0, 1, buffer, done);
}

// Everything that takes handles must fail with these ones and leave what it was given as it was.
void ExpectFail(int file, int find) {
    unsigned int out = 77;
    FatFileInfo info, untouched;
    std::memset(&info, 0x5A, sizeof(info));
    untouched = info;
    EXPECT_FALSE(Transfers(file, &info, &out) || Fat_GetFileOffset(file, &out) ||
                 Fat_SetFileOffset(file, 0, 0) || Fat_GetFileSize(file, &out) || Fat_IsDir(file) ||
                 Fat_GetFileAttribute(file, &info) || Fat_FindNextFile(find, &info));
    EXPECT_EQ(out, 77U);
    EXPECT_EQ(std::memcmp(&info, &untouched, sizeof(info)), 0);
}

// Without a usable current volume nothing works, not even closing.
void ExpectNothingWorks(int file, int find) {
    FatFileInfo info{};
    ExpectFail(file, find);
    EXPECT_FALSE(Fat_CloseFile(file) || Fat_CloseFindHandle(find));
    EXPECT_EQ(Fat_OpenFile(u"F"), -1);
    EXPECT_EQ(Fat_FindFirstFile(u"D", &info), -1);
    EXPECT_EQ(Fat_FindFirstRootFile(&info), -1);
}

TEST_F(VolumeTest, FailsWithoutLibraryVolumeOrArguments) {
    ImageBuilder builder = OneFile('x');
    const DiskCounters& counters = builder.disk.counters;
    EXPECT_TRUE(Fat_LibTerminate());
    EXPECT_FALSE(Fat_LibTerminate());
    ExpectNothingWorks(0, 0);
    EXPECT_EQ(Fat_Mount(new MemoryStorage(builder.disk), nullptr), nullptr);
    EXPECT_TRUE(counters.destroyed == 1 && counters.opens == 0);
    Fat_LibInitialize();
    ExpectNothingWorks(0, 0);
    FatVolume* const volume = Fat_Mount(new MemoryStorage(builder.disk), &builder);
    EXPECT_EQ(builder.disk.openParameter, &builder);
    FatFileInfo info{};
    const int file = Fat_OpenFile(u"F"), find = Fat_FindFirstRootFile(&info);
    Fat_LibInitialize();  // changes nothing
    for (const int wrong : {INT_MIN, -1, 1, 32, 159, 160, INT_MAX}) {
        ExpectFail(wrong, wrong);
        EXPECT_FALSE(Fat_CloseFile(wrong) || Fat_CloseFindHandle(wrong));
    }
    unsigned int out = 77;
    FatVolumeInfo shorter{};
    shorter.size = sizeof(shorter) - 1;
    EXPECT_EQ(Fat_OpenFile(nullptr), -1);
    EXPECT_EQ(Fat_FindFirstFile(nullptr, &info), -1);
    EXPECT_EQ(Fat_FindFirstRootFile(nullptr), -1);
    EXPECT_FALSE(Transfers(file, nullptr, &out) || Transfers(file, &info, nullptr) ||
                 Fat_GetFileOffset(file, nullptr) || Fat_GetFileSize(file, nullptr) ||
                 Fat_GetFileAttribute(file, nullptr) || Fat_FindNextFile(find, nullptr) ||
                 Fat_Unmount(nullptr) || Fat_GetVolumeInfo(volume, &shorter) ||
                 Fat_GetVolumeInfo(nullptr, &shorter) || Fat_GetVolumeInfo(volume, nullptr));
    EXPECT_EQ(out, 77U);
    EXPECT_EQ(ReadAt(file, 0, 900), Bytes(700, 'x'));
    SetCurrentFileSystem(nullptr);
    ExpectNothingWorks(file, find);
    SetCurrentFileSystem(volume);
    EXPECT_TRUE(Fat_CloseFindHandle(find) && WriteAt(file, 0, {'y'}));
    EXPECT_EQ(Fat_Mount(nullptr, nullptr), nullptr);
    EXPECT_FALSE(CanOpen(u"F"));
    EXPECT_FALSE(Fat_LibTerminate());  // with a file and a volume, which it gives up
    EXPECT_TRUE(counters.closes == 1 && counters.destroyed == 2 && counters.bytesWritten == 0);
    Fat_LibInitialize();
}

TEST_F(VolumeTest, TellsWhatTheEntryHolds) {
    ImageBuilder builder({});
    EntryOptions options;
    options.attributes = 0x27;
    options.times = {199, 0xBF7D, 0xFF9F, 0, 0x0000, 0x0021};  // 2107-12-31 23:59:58, 1980-01-01
    builder.AddFile(builder.root, u"Some name.txt", Bytes(5), options);
    const Mounted mounted(builder.disk);
    FatFileInfo found;
    std::memset(&found, 0x5A, sizeof(found));
    FatFileInfo asked = found;
    EXPECT_TRUE(Fat_CloseFindHandle(Fat_FindFirstRootFile(&found)));
    EXPECT_TRUE(Fat_GetFileAttribute(File(u"SOME NAME.TXT").handle, &asked));
    const std::array<unsigned int, 11> expected = {0x27,       0x66D29300, 0x023868B8, 0x5A5A5A5A,
                                                   0x5A5A5A5A, 0xE1D58000, 0x01A8E79F, 0,
                                                   5,          0x5A5A5A5A, 0x5A5A5A5A};
    for (const FatFileInfo* info : {&found, &asked}) {
        EXPECT_EQ(std::memcmp(info, expected.data(), sizeof(expected)), 0);
        EXPECT_EQ(NameOf(*info), u"Some name.txt");
        EXPECT_EQ(std::u16string(info->shortName), u"LN~00000");
    }
}

TEST_F(VolumeTest, SecondUnmountFinishesAFailedOne) {
    for (const bool onwards : {false, true}) {
        ImageBuilder builder = OneFile('x');
        MemoryDisk& disk = builder.disk;
        FatVolume* const volume = Fat_Mount(new MemoryStorage(disk), nullptr);
        const int file = Fat_OpenFile(u"F");
        EXPECT_TRUE(WriteAt(file, 0, Bytes(700, 'y')));
        EXPECT_EQ(fatvol::SetFatEntry(*volume, 4000, 0xFFF7), STATUS_SUCCESS);
        disk.failure = {.countdown = 1, .onwards = onwards, .reads = false};
        EXPECT_FALSE(Fat_Unmount(volume));
        EXPECT_EQ(disk.counters.closes, 0U);
        SetCurrentFileSystem(volume);
        ExpectNothingWorks(file, 0);
        disk.failure = {};
        EXPECT_TRUE(Fat_Unmount(volume));
        EXPECT_FALSE(Fat_Unmount(volume));
        EXPECT_TRUE(disk.counters.closes == 1 && disk.counters.destroyed == 1);
        EXPECT_EQ(ReadTree(disk)[u"F"].content, Bytes(700, 'y'));
        EXPECT_EQ(GetFatEntry(disk, builder.geometry, 4000), onwards ? 0U : 0xFFF7U);
        EXPECT_EQ(CheckImage(disk).Text(), "");
        const Mounted again(disk);
        EXPECT_TRUE(Fat_CloseFile(file));
    }
}

struct CallingDisk : MemoryDisk {
    using MemoryDisk::MemoryDisk;
    int Transfer(const Call& call, unsigned char* buffer, unsigned int sectorBytes) override {
        callHost();
        return MemoryDisk::Transfer(call, buffer, sectorBytes);
    }

    std::function<void()> callHost = [] {};
};

// The blocks of a volume that is being mounted take the place of another one's, whose storage is
// written to then, and mounts the first one's once more.
TEST_F(VolumeTest, StorageBeingMountedIsInUse) {
    ImageBuilder builder({.sectorsPerCluster = 64}), other = OneFile('o');
    CallingDisk disk(builder.disk.sizeBytes);
    disk.Restore(builder.disk.Snapshot());
    const Mounted mounted(disk);
    EXPECT_TRUE(Fat_CloseFile(Fat_CreateFile(u"BIG", CacheBlockCount * blockBytes, 0)));
    for (uint64_t i = 0; i < CacheBlockCount; ++i) {
        EXPECT_TRUE(WriteAt(File(u"BIG").handle, i * blockBytes, {'x'}));
    }
    auto* const storage = new MemoryStorage(other.disk);
    int calls = 0;
    disk.callHost = [&] { calls += Fat_Mount(storage, nullptr) ? 100 : 1; };
    FatVolume* const volume = Fat_Mount(storage, nullptr);
    disk.callHost = [] {};
    EXPECT_TRUE(calls == 1 && volume && other.disk.counters.destroyed == 0);
    EXPECT_TRUE(Fat_Unmount(volume) && other.disk.counters.destroyed == 1);
}

// Mounting fails, the storage is closed if it could be opened, and no volume is current.
TEST_F(VolumeTest, RefusesWhatIsNoVolume) {
    const VolumeLayout layout{32, 512, 1, 200000};
    ImageBuilder other = OneFile('o');
    const Mounted mounted(other.disk);
    const auto expectRefused = [&](MemoryDisk& disk, bool isOpened) {
        SetCurrentFileSystem(mounted.volume);
        EXPECT_EQ(Fat_Mount(new MemoryStorage(disk), nullptr), nullptr);
        EXPECT_TRUE(disk.counters.destroyed == 1 && disk.counters.closes == isOpened);
        EXPECT_FALSE(CanOpen(u"F"));
        disk.counters = {};
    };
    const struct {
        uint32_t offset, size, value;
    } fields[] = {{510, 2, 0x55AA},  // the signature
                  {32, 4, 70},       // fewer sectors than the FATs
                  {17, 2, 16},       // root entries
                  {44, 4, 0},        // the root's cluster
                  {44, 4, 1},       {44, 4, 200002}};
    for (const auto& [offset, size, value] : fields) {
        ImageBuilder builder = OneFile('x', layout);
        builder.SetBootField(offset, size, value);
        expectRefused(builder.disk, offset != 510);
    }
    for (const uint32_t rootLink : {0U, 1U, 2U, 200002U, 0x0FFFFFF7U}) {
        ImageBuilder builder = OneFile('x', layout);
        builder.SetFatEntry(2, rootLink);
        expectRefused(builder.disk, true);
    }
    ImageBuilder farAway({32, 512, 1, 5000, 0, 255, 0, 40000});  // data beyond 4 GiB
    expectRefused(farAway.disk, true);
    // Opening, the boot sector, four blocks of the FAT and the root directory.
    ImageBuilder builder = OneFile('x', layout);
    for (const unsigned int call : {0U, 1U, 2U, 3U, 4U, 5U, 6U}) {
        builder.disk.openResult = call == 0 ? -1 : 0;
        builder.disk.failure.countdown = call;
        expectRefused(builder.disk, call > 1);
    }
    EXPECT_NE(Mounted(builder.disk).volume, nullptr);
}

}  // namespace
}  // namespace fatvol::test
