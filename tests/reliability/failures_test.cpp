// The n-th storage call of the workload fails, or the n-th allocation of the library, once or with
// all that follow, Fat_LibInitialize and Fat_Mount included. The linker sends every allocator call
// that the library makes here; the tests themselves use others.
#include <malloc.h>

#include <iostream>

#include "volume/fat_volume.h"
#include "workload.h"

namespace fatvol::test {
namespace {

struct Failure {
    const char* name;
    FailurePoint point;
    bool tearsWrites = false;
};
const Failure failures[] = {
    {"ARead", {.reads = true}},
    {"ReadsFromThenOn", {.reads = true, .onwards = true}},
    {"AWrite", {.writes = true}},
    {"AWriteInItsMiddle", {.writes = true}, true},
    {"WritesFromThenOn", {.writes = true, .onwards = true}, true},
    {"StorageFromThenOn", {.reads = true, .writes = true, .onwards = true}, true},
    {"AnAllocation", {.allocations = true}},
    {"AllocationsFromThenOn", {.allocations = true, .onwards = true}}};

struct Failing : testing::TestWithParam<std::tuple<uint32_t, size_t>> {};
INSTANTIATE_TEST_SUITE_P(Fat, Failing,
                         testing::Combine(testing::Values(12, 16, 32),
                                          testing::Range(size_t{0}, std::size(failures))),
                         [](const auto& each) {
                             return std::to_string(std::get<0>(each.param)) +
                                    failures[std::get<1>(each.param)].name;
                         });

TEST_P(Failing, IsToldAndRecoveredFrom) {
    const uint32_t fatType = std::get<0>(GetParam());
    const Failure& failure = failures[std::get<1>(GetParam())];
    uint64_t failed = 0, lost = 0, refusing = 0;
    const auto run = [&](uint64_t n) {
        SCOPED_TRACE("event " + std::to_string(n));
        FailurePoint point = failure.point;
        point.failAt = n;
        Session session(fatType, point);
        session.disk.failure.tornWrites = failure.tearsWrites;
        session.RunAll();
        const uint64_t events = failurePoint.seen;
        failed += failurePoint.failed != 0;
        session.ExpectRecovered();
        lost += session.lostClusters;
        refusing += session.refused;
        return events;
    };
    const uint64_t events = run(0);
    EXPECT_EQ(lost, 0U);
    const struct mallinfo2 before = mallinfo2();
    ForEvents(events, failure.point.allocations ? 20 : 6, run);
    EXPECT_LE(mallinfo2().uordblks, before.uordblks + (1U << 16));
    std::cout << "FAT" << fatType << ", " << failure.name << ": " << failed << " of " << events
              << " failed in turn; " << lost << " lost clusters; " << refusing
              << " volumes refused changes\n";
}

struct FailingStorage : testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Fat, FailingStorage, testing::Values(12, 16, 32),
                         testing::PrintToStringParamName());

// What no flush has written yet is tried twice.
TEST_P(FailingStorage, UnmountingOutlivesOneFailure) {
    const auto run = [&](uint64_t n) {
        SCOPED_TRACE("write " + std::to_string(n) + " of unmounting");
        Session session(GetParam());
        session.RunAll();
        failurePoint = {.writes = true, .failAt = n};
        session.ExpectUnmounted();
        return failurePoint.seen;
    };
    ForEvents(run(0), 4, run);
}

// Nothing that the workload does makes a volume uncertain, so this sets it.
TEST_P(FailingStorage, UncertainVolumesAreOnlyRead) {
    Session session(GetParam());
    ASSERT_TRUE(session.Start());
    const File file(u"D\\Long.File");
    session.volume->isUncertain = true;
    unsigned int done = 0;
    FatFileInfo info{};
    EXPECT_FALSE(Fat_CreateFile(u"New", 0, 0) >= 0 || Fat_CreateDir(u"New", 0) ||
                 Fat_DeleteFile(u"D\\SHORT") || Fat_RenameFile(u"D", u"New") ||
                 Fat_MoveFile(u"D\\E", nullptr) || Fat_SetFileSize(file.handle, 0) ||
                 Fat_SetFileAttribute(file.handle, &info) ||
                 Fat_WriteFile(file.handle, 1, &info, &done) ||
                 Fat_WriteFileEx(file.handle, 0, 1, &info, &done));
    EXPECT_TRUE(ReadWhole(u"D\\Long.File") == Bytes(40000, 'f') && !List(u"").empty());
    FatVolumeInfo old{};  // as callers of the first version have it
    old.size = 48;
    old.refusesChanges = 77;
    EXPECT_TRUE(Fat_GetVolumeInfo(session.volume, &old));
    EXPECT_EQ(old.refusesChanges, 77U);
    session.ExpectRecovered();
    EXPECT_TRUE(session.refused);
}

}  // namespace
}  // namespace fatvol::test
