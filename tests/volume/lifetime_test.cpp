// The life of the library, of volumes and of handles, and calls that must fail without effect.
#include <climits>
#include <cstring>
#include <stdexcept>

#include "fixture.h"
#include "volume/fat_table.h"

// What is allocated at the moment, in builds with the address sanitizer.
extern "C" size_t __sanitizer_get_current_allocated_bytes();

namespace fatvol::test {
namespace {

ImageBuilder OneFile(char fill, const VolumeLayout& layout = {}) {
    ImageBuilder builder(layout);
    builder.AddFile(builder.root, u"F", Bytes(700, static_cast<uint8_t>(fill)));
    return builder;
}

// Everything that takes handles must fail with these ones and leave what it was given as it was.
void ExpectFail(int file, int find) {
    unsigned int out = 77;
    FatFileInfo info, untouched;
    std::memset(&info, 0x5A, sizeof(info));
    untouched = info;
    EXPECT_FALSE(Fat_ReadFile(file, 1, &out, &out) || Fat_ReadFileEx(file, 0, 1, &out, &out) ||
                 Fat_WriteFile(file, 1, &info, &out) || Fat_WriteFileEx(file, 0, 1, &info, &out) ||
                 Fat_GetFileOffset(file, &out) || Fat_SetFileOffset(file, 0, 0) ||
                 Fat_GetFileSize(file, &out) || Fat_IsDir(file) ||
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
    EXPECT_TRUE(Fat_LibTerminate());
    EXPECT_FALSE(Fat_LibTerminate());
    ExpectNothingWorks(0, 0);
    EXPECT_EQ(Fat_Mount(new MemoryStorage(builder.disk), nullptr), nullptr);
    EXPECT_EQ(builder.disk.counters.destroyed, 1U);
    EXPECT_EQ(builder.disk.counters.opens, 0U);
    Fat_LibInitialize();
    ExpectNothingWorks(0, 0);
    Mounted mounted(builder.disk);
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
    EXPECT_FALSE(
        Fat_ReadFile(file, 1, nullptr, &out) || Fat_ReadFileEx(file, 0, 1, nullptr, &out) ||
        Fat_WriteFile(file, 1, nullptr, &out) || Fat_WriteFileEx(file, 0, 1, nullptr, &out) ||
        Fat_ReadFile(file, 1, &info, nullptr) || Fat_ReadFileEx(file, 0, 1, &info, nullptr) ||
        Fat_WriteFile(file, 1, &info, nullptr) || Fat_WriteFileEx(file, 0, 1, &info, nullptr) ||
        Fat_GetFileOffset(file, nullptr) || Fat_GetFileSize(file, nullptr) ||
        Fat_GetFileAttribute(file, nullptr) || Fat_FindNextFile(find, nullptr) ||
        Fat_Unmount(nullptr) || Fat_GetVolumeInfo(mounted.volume, &shorter) ||
        Fat_GetVolumeInfo(nullptr, &shorter) || Fat_GetVolumeInfo(mounted.volume, nullptr));
    EXPECT_EQ(out, 77U);
    EXPECT_EQ(ReadAt(file, 0, 900), Bytes(700, 'x'));
    SetCurrentFileSystem(nullptr);
    ExpectNothingWorks(file, find);
    SetCurrentFileSystem(mounted.volume);
    EXPECT_TRUE(Fat_CloseFile(file) && Fat_CloseFindHandle(find));
    EXPECT_EQ(Fat_Mount(nullptr, nullptr), nullptr);
    EXPECT_FALSE(CanOpen(u"F"));
}

TEST_F(VolumeTest, TellsWhatTheEntryHolds) {
    ImageBuilder builder({});
    EntryOptions options;
    options.attributes = 0x27;
    options.times = {199, 0xBF7D, 0xFF9F, 0, 0x0000, 0x0021};  // 2107-12-31 23:59:58, 1980-01-01
    builder.AddFile(builder.root, u"Some name.txt", Bytes(5), options);
    const Mounted mounted(builder.disk);
    FatFileInfo found, asked;
    std::memset(&found, 0x5A, sizeof(found));
    asked = found;
    EXPECT_TRUE(Fat_CloseFindHandle(Fat_FindFirstRootFile(&found)));
    const File file(u"SOME NAME.TXT");
    EXPECT_TRUE(Fat_GetFileAttribute(file.handle, &asked));
    const std::vector<unsigned int> expected = {
        0x27, 0x66D29300, 0x023868B8, 0x5A5A5A5A, 0x5A5A5A5A, 0xE1D58000, 0x01A8E79F, 0, 5};
    for (FatFileInfo* info : {&found, &asked}) {
        std::vector<unsigned int> actual(9);
        std::memcpy(actual.data(), info, 36);
        EXPECT_EQ(actual, expected);
        EXPECT_EQ(NameOf(*info), u"Some name.txt");
        EXPECT_EQ(std::u16string(info->shortName), u"LN~00000");
        EXPECT_EQ(info->reserved[0] & info->reserved[1], 0x5A5A5A5AU);
    }
}

// Handles belong to the volume they were opened on, and fail but can be closed when it is gone.
TEST_F(VolumeTest, HandlesKeepTheirVolume) {
    ImageBuilder builderA = OneFile('a'), builderB = OneFile('b');
    Mounted a(builderA.disk), b(builderB.disk);
    EXPECT_EQ(ReadWhole(u"F"), Bytes(700, 'b'));
    SetCurrentFileSystem(a.volume);
    FatFileInfo info{};
    const int file = Fat_OpenFile(u"F"), find = Fat_FindFirstRootFile(&info);
    EXPECT_EQ(ReadWhole(u"F"), Bytes(700, 'a'));
    SetCurrentFileSystem(b.volume);
    EXPECT_TRUE(WriteAt(file, 600, Bytes(100, 'A')));
    EXPECT_EQ(ReadWhole(u"F"), Bytes(700, 'b'));
    FatVolume* const gone = a.volume;
    EXPECT_TRUE(a.Unmount());
    EXPECT_EQ(ReadTree(builderA.disk)[u"F"].content[600], 'A');
    EXPECT_EQ(builderA.disk.counters.destroyed, 1U);
    ExpectFail(file, find);
    EXPECT_FALSE(Fat_Unmount(gone));
    EXPECT_EQ(Fat_OpenFile(u"F"), file + 1);
    SetCurrentFileSystem(gone);
    ExpectNothingWorks(file + 1, find);
    SetCurrentFileSystem(b.volume);
    EXPECT_TRUE(Fat_CloseFile(file + 1) && Fat_CloseFile(file) && Fat_CloseFindHandle(find));
    EXPECT_TRUE(b.Unmount());
    EXPECT_FALSE(CanOpen(u"F"));
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
        EXPECT_EQ(disk.counters.closes, 1U);
        EXPECT_EQ(disk.counters.destroyed, 1U);
        EXPECT_EQ(ReadTree(disk)[u"F"].content, Bytes(700, 'y'));
        EXPECT_EQ(GetFatEntry(disk, builder.geometry, 4000), onwards ? 0U : 0xFFF7U);
        EXPECT_EQ(CheckImage(disk).Text(), "");
        const Mounted again(disk);
        EXPECT_TRUE(Fat_CloseFile(file));
    }
}

// What was not written is lost, but nothing stays behind.
TEST_F(VolumeTest, TerminationGivesVolumesUp) {
    ImageBuilder builder = OneFile('x');
    EXPECT_NE(Fat_Mount(new MemoryStorage(builder.disk), nullptr), nullptr);
    EXPECT_TRUE(WriteAt(Fat_OpenFile(u"F"), 0, {'y'}));
    EXPECT_FALSE(Fat_LibTerminate());
    EXPECT_EQ(builder.disk.counters.closes, 1U);
    EXPECT_EQ(builder.disk.counters.destroyed, 1U);
    EXPECT_EQ(builder.disk.counters.bytesWritten, 0U);
    Fat_LibInitialize();
}

#if defined(__SANITIZE_ADDRESS__)  // only the sanitizer's allocator counts exactly
TEST_F(VolumeTest, LeavesNothingAllocated) {
    ImageBuilder builder({32, 512, 1, 70000});
    Rng rng(4);
    FillRandomTree(builder, rng, 300, 3000);
    size_t before = 0;
    for (int cycle = 0; cycle < 3; ++cycle) {
        before = __sanitizer_get_current_allocated_bytes();  // the pools keep some records idle
        Tree tree;
        const Mounted mounted(builder.disk);
        ListTree(tree);
    }
    EXPECT_EQ(__sanitizer_get_current_allocated_bytes(), before);
}
#endif

// A host that spoils its storage object after having set the callbacks.
struct SpoiltStorage : MemoryStorage {
    using Spoil = void (*)(CVolumeStorage&);
    SpoiltStorage(MemoryDisk& disk, Spoil how) : MemoryStorage(disk), spoil(how) {}
    void PrepareDevice() override {
        MemoryStorage::PrepareDevice();
        spoil(*this);
    }
    const Spoil spoil;
};

// Mounting fails, the storage is closed if it could be opened, and no volume is current.
void ExpectRefused(MemoryStorage* storage, bool isOpened) {
    const DiskCounters& counters = storage->Disk().counters;
    const uint64_t destroyed = counters.destroyed, closes = counters.closes;
    EXPECT_EQ(Fat_Mount(storage, nullptr), nullptr);
    EXPECT_EQ(counters.destroyed, destroyed + 1);
    EXPECT_EQ(counters.closes, closes + isOpened);
    EXPECT_FALSE(CanOpen(u"F"));
}

TEST_F(VolumeTest, RefusesWhatIsNoVolume) {
    struct Field {
        uint32_t offset, size, value;
    };
    const VolumeLayout layout{32, 512, 1, 5000};
    ImageBuilder other = OneFile('o');
    const Mounted mounted(other.disk);
    for (const auto& fields :
         std::vector<std::vector<Field>>{{{510, 2, 0x55AA}},  // the signature
                                         {{32, 4, 70}},       // fewer sectors than the FATs
                                         {{17, 2, 16}},       // root entries
                                         {{44, 4, 0}},        // the root's cluster
                                         {{44, 4, 1}},
                                         {{44, 4, 5002}}}) {
        ImageBuilder builder = OneFile('x', layout);
        for (const auto& [offset, size, value] : fields) {
            builder.SetBootField(offset, size, value);
        }
        SetCurrentFileSystem(mounted.volume);
        ExpectRefused(new MemoryStorage(builder.disk), fields[0].offset != 510);
    }
    ImageBuilder farAway({32, 512, 1, 5000, 0, 255, 0, 40000});  // data beyond 4 GiB
    ExpectRefused(new MemoryStorage(farAway.disk), true);
    for (const uint32_t rootLink : {0U, 1U, 2U, 5002U, 0x0FFFFFF7U}) {
        ImageBuilder builder = OneFile('x', layout);
        builder.SetFatEntry(2, rootLink);
        ExpectRefused(new MemoryStorage(builder.disk), true);
    }
}

TEST_F(VolumeTest, RefusesWhatTheHostFails) {
    ImageBuilder builder = OneFile('x', {32, 512, 1, 200000});
    MemoryDisk& disk = builder.disk;
    for (const SpoiltStorage::Spoil spoil : std::initializer_list<SpoiltStorage::Spoil>{
             [](CVolumeStorage& storage) { storage.GetMpbProc = nullptr; },
             [](CVolumeStorage& storage) { storage.ReadBytesProc = nullptr; },
             [](CVolumeStorage& storage) { storage.WriteBytesProc = nullptr; },
             [](CVolumeStorage& storage) { storage.ReadBytesAlignedProc = nullptr; },
             [](CVolumeStorage& storage) { storage.WriteBytesAlignedProc = nullptr; },
             [](CVolumeStorage& storage) { storage.ReadSectorsProc = nullptr; },
             [](CVolumeStorage& storage) { storage.WriteSectorsProc = nullptr; },
             [](CVolumeStorage&) { throw std::runtime_error("host"); }}) {
        ExpectRefused(new SpoiltStorage(disk, spoil), false);
    }
    disk.openResult = -1;
    ExpectRefused(new MemoryStorage(disk), false);
    disk.openResult = 0;
    // The boot sector, four blocks of the FAT and the root directory.
    for (const unsigned int call : {1U, 2U, 3U, 4U, 5U, 6U}) {
        disk.failure.countdown = call;
        ExpectRefused(new MemoryStorage(disk), call > 1);
    }
    disk.failure.countdown = 7;
    FatVolume* const volume = Fat_Mount(new MemoryStorage(disk), &builder);
    EXPECT_EQ(disk.openParameter, &builder);
    EXPECT_TRUE(Fat_Unmount(volume));
}

}  // namespace
}  // namespace fatvol::test
