// The n-th storage call of the workload fails, or the n-th allocation of the library, once or with
// all that follow, Fat_LibInitialize and Fat_Mount included. The linker sends every allocator call
// that the library makes here; the tests themselves use others.
#include <malloc.h>

#include <iostream>

#include "api/library_state.h"
#include "volume/fat_volume.h"
#include "workload.h"

namespace fatvol::test {
namespace {

constexpr std::pair<const char*, FailurePoint> failures[] = {
    {"ARead", {.reads = true}},
    {"ReadsFromThenOn", {.reads = true, .onwards = true}},
    {"AWrite", {.writes = true}},
    {"AWriteInItsMiddle", {.writes = true, .tearsWrites = true}},
    {"WritesFromThenOn", {.writes = true, .onwards = true, .tearsWrites = true}},
    {"StorageFromThenOn", {.reads = true, .writes = true, .onwards = true, .tearsWrites = true}},
    {"AnAllocation", {.allocations = true}},
    {"AllocationsFromThenOn", {.allocations = true, .onwards = true}}};

struct Failing : testing::TestWithParam<std::tuple<uint32_t, size_t>> {};
INSTANTIATE_TEST_SUITE_P(Fat, Failing,
                         testing::Combine(testing::Values(12, 16, 32),
                                          testing::Range(size_t{0}, std::size(failures))),
                         [](const auto& each) {
                             return std::to_string(std::get<0>(each.param)) +
                                    failures[std::get<1>(each.param)].first;
                         });

size_t AllocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST_P(Failing, IsToldAndRecoveredFrom) {
    const uint32_t fatType = std::get<0>(GetParam());
    const char* const name = failures[std::get<1>(GetParam())].first;
    const FailurePoint& failure = failures[std::get<1>(GetParam())].second;
    uint64_t events = 0, failed = 0, lost = 0, refusing = 0;
    ForWorkloads([&](uint64_t sequence) {
        const auto run = [&](uint64_t n) {
            SCOPED_TRACE("event " + std::to_string(n));
            FailurePoint point = failure;
            point.failAt = n == 0 ? UINT64_MAX : n;
            Workload workload(fatType, sequence, point);
            workload.RunAll();
            const uint64_t seen = failurePoint.seen;
            failed += failurePoint.failed != 0;
            EXPECT_EQ(failurePoint.failed != 0, n != 0);
            workload.Recover();
            lost += workload.lostClusters;
            refusing += workload.damaged.has_value();
            return seen;
        };
        const uint64_t seen = run(0);
        events += seen;
        const size_t before = AllocatedBytes();
        ForEvents(seen, failure.allocations ? 5 : 2, run);
        EXPECT_LE(AllocatedBytes(), before + (1U << 16));
    });
    std::cout << "FAT" << fatType << ", " << name << ": " << failed << " of " << events
              << " failed in turn; " << lost << " lost clusters; " << refusing
              << " volumes refused changes\n";
}

struct FailingStorage : testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Fat, FailingStorage, testing::Values(12, 16, 32),
                         testing::PrintToStringParamName());

// What no flush has written yet is tried twice.
TEST_P(FailingStorage, UnmountingOutlivesOneFailure) {
    ForWorkloads([&](uint64_t sequence) {
        const auto run = [&](uint64_t n) {
            SCOPED_TRACE("write " + std::to_string(n) + " of unmounting");
            Workload workload(GetParam(), sequence);
            workload.RunAll();
            workload.Use(workload.sides[0]);
            failurePoint = {.writes = true, .failAt = n};
            workload.Unmount();
            const uint64_t seen = failurePoint.seen;
            failurePoint = {};
            workload.CheckDisk();
            return seen;
        };
        ForEvents(run(0), 2, run);
    });
}

// A sector that cannot be written holds up the link that leads to it, and no other.
TEST_F(VolumeTest, LinksGrownDirectoriesBesideABadSector) {
    ImageBuilder builder({});
    for (const char16_t* name : {u"P", u"Q"}) {
        const Slot entry = MakeShortEntry(*PlainShortName(u"A"), 0x20, 0, 0);
        builder.AddRawSlots(builder.AddDirectory(builder.root, name), std::vector(14, entry));
    }
    const Mounted mounted(builder.disk);
    EXPECT_TRUE(Fat_CreateDir(u"P\\N", 0) && Fat_CreateDir(u"Q\\N", 0));
    const uint32_t cluster = FileOf(File(u"P\\N").handle)->firstCluster;
    const Call bad = CallAt(CallKind::WriteBytes, builder.geometry.ClusterPosition(cluster), 512);
    builder.disk.beforeCall = [&](const Call& call) { return call == bad ? -7 : 0; };
    EXPECT_FALSE(Fat_FlushVolume(mounted.volume));
    const Tree tree = ReadTree(builder.disk);
    EXPECT_TRUE(tree.contains(u"Q\\N") && !tree.contains(u"P\\N"));
    builder.disk.beforeCall = nullptr;
    EXPECT_TRUE(Fat_FlushVolume(mounted.volume) && ReadTree(builder.disk).contains(u"P\\N"));
}

// Links go out before a rename begins: its directory cannot grow, and the old name stands.
TEST_F(VolumeTest, RenamesNothingByHalfWhileManyWait) {
    ImageBuilder builder({});
    const auto path = [](uint32_t i, const std::u16string& name) {
        return std::u16string{u'D', char16_t(0x4E00 + i), u'\\'} + name;
    };
    for (uint32_t i = 0; i <= WaitingDirectoryLimit; ++i) {
        const size_t directory = builder.AddDirectory(builder.root, path(i, u"").substr(0, 2));
        const Slot entry = MakeShortEntry(*PlainShortName(u"A"), 0x20, 0, 0);
        builder.AddRawSlots(directory, std::vector(13, entry));
        builder.AddFile(directory, u"F");
    }
    const Mounted mounted(builder.disk);
    const uint32_t left = mounted.Info().freeClusters - 2 * WaitingDirectoryLimit;
    EXPECT_TRUE(Fat_CloseFile(Fat_CreateFile(u"FULL", left * 512, 0x20)));
    for (uint32_t i = 0; i < WaitingDirectoryLimit; ++i) {
        EXPECT_TRUE(Fat_CreateDir(path(i, u"N").c_str(), 0));
    }
    const std::u16string old = path(WaitingDirectoryLimit, u"F");
    EXPECT_FALSE(Fat_RenameFile(old.c_str(), u"More than one slot"));
    const Tree tree = ReadTree(builder.disk);
    EXPECT_TRUE(tree.contains(path(0, u"N")) && tree.contains(old) && CanOpen(old));
}

// The model makes a volume uncertain only with small caches, so this sets it.
TEST_F(VolumeTest, IsOnlyReadWhileItIsUncertain) {
    ImageBuilder builder({});
    const size_t directory = builder.AddDirectory(builder.root, u"D");
    builder.AddFile(directory, u"F", Bytes(40000, 'f'));
    builder.AddDirectory(directory, u"E");
    {
        const Mounted mounted(builder.disk);
        const File file(u"D\\F");
        mounted.volume->isUncertain = true;
        unsigned int done = 0;
        FatFileInfo info{};
        EXPECT_FALSE(Fat_CreateFile(u"New", 0, 0) >= 0 || Fat_CreateDir(u"New", 0) ||
                     Fat_DeleteFile(u"D\\E") || Fat_RenameFile(u"D", u"New") ||
                     Fat_MoveFile(u"D\\E", nullptr) || Fat_SetFileSize(file.handle, 0) ||
                     Fat_SetFileAttribute(file.handle, &info) ||
                     Fat_WriteFile(file.handle, 1, &info, &done) ||
                     Fat_WriteFileEx(file.handle, 0, 1, &info, &done) ||
                     Fat_FlushVolume(mounted.volume));
        EXPECT_TRUE(ReadWhole(u"D\\F") == Bytes(40000, 'f') && List(u"").size() == 1);
        EXPECT_EQ(mounted.Info().refusesChanges, 1U);
        FatVolumeInfo old{};  // as callers of the first version have it
        old.size = 48;
        old.refusesChanges = 77;
        EXPECT_TRUE(Fat_GetVolumeInfo(mounted.volume, &old));
        EXPECT_EQ(old.refusesChanges, 77U);
    }
    const Mounted again(builder.disk);
    EXPECT_TRUE(Fat_DeleteFile(u"D\\E") && again.Info().refusesChanges == 0);
}

}  // namespace
}  // namespace fatvol::test
