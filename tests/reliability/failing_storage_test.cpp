// The n-th storage call of the workload fails, once or with all that follow.
#include <iostream>

#include "volume/fat_volume.h"
#include "workload.h"

namespace fatvol::test {
namespace {

struct Failure {
    const char* name;
    bool reads, writes, onwards, torn;
};
constexpr Failure failures[] = {{"a read, once", true, false, false, false},
                                {"reads from then on", true, false, true, false},
                                {"a write, once", false, true, false, false},
                                {"a write in its middle, once", false, true, false, true},
                                {"writes from then on", false, true, true, true},
                                {"all calls from then on", true, true, true, true}};

class FailingStorage : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Fat, FailingStorage, testing::Values(12, 16, 32),
                         testing::PrintToStringParamName());

TEST_P(FailingStorage, EveryFailureIsToldAndRecoveredFrom) {
    for (const Failure& failure : failures) {
        uint64_t failed = 0, lost = 0, refusing = 0;
        const auto run = [&](uint64_t n) {
            SCOPED_TRACE(std::string(failure.name) + ", call " + std::to_string(n));
            Session session(GetParam());
            session.failReads = failure.reads;
            session.failWrites = failure.writes;
            session.disk.failure.tornWrites = failure.torn;
            session.point = {.failAt = n, .onwards = failure.onwards};
            session.RunAll();
            const uint64_t calls = session.point.seen;
            session.ExpectRecovered();
            failed += session.point.failed != 0;
            lost += session.lostClusters;
            refusing += session.refused;
            return calls;
        };
        const uint64_t calls = run(0);
        EXPECT_EQ(lost, 0U);
        ForEvents(calls, 6, run);
        std::cout << "FAT" << GetParam() << ", " << failure.name << ": " << failed << " of "
                  << calls << " calls failed in turn; " << lost << " lost clusters; " << refusing
                  << " volumes refused changes\n";
    }
}

// What no flush has written yet is tried twice.
TEST_P(FailingStorage, UnmountingOutlivesOneFailure) {
    const auto run = [&](uint64_t n) {
        SCOPED_TRACE("write " + std::to_string(n) + " of unmounting");
        Session session(GetParam());
        session.RunAll();
        session.failWrites = true;
        session.point = {.failAt = n};
        session.ExpectUnmounted();
        return session.point.seen;
    };
    ForEvents(run(0), 4, run);
}

// Two entries of a damaged volume share their clusters, which are given back once.
TEST(SharedClusters, AreFreedOnce) {
    ImageBuilder builder({.fatType = 16});
    EntryOptions shared;
    shared.clusters = {50, 51, 52, 53, 54};
    builder.AddFile(ImageBuilder::root, u"A", Bytes(2500, 'a'), shared);
    builder.AddRawSlots(ImageBuilder::root,
                        {MakeShortEntry(*PlainShortName(u"B"), 0x20, 50, 2500)});
    Fat_LibInitialize();
    {
        const Mounted mounted(builder.disk);
        EXPECT_TRUE(CanOpen(u"A") && CanOpen(u"B"));
        EXPECT_TRUE(Fat_DeleteFile(u"A") && Fat_DeleteFile(u"B"));
        EXPECT_EQ(mounted.Info().freeClusters, 5000U);
    }
    EXPECT_TRUE(Fat_LibTerminate());
}

// Nothing that the workload does makes a volume uncertain, so this sets it.
TEST_P(FailingStorage, UncertainVolumesAreOnlyRead) {
    Session session(GetParam());
    ASSERT_TRUE(session.Start());
    const File file(u"D\\Long.File");
    session.volume->isUncertain = true;
    unsigned int done = 0;
    FatFileInfo info{};
    EXPECT_EQ(Fat_CreateFile(u"New", 0, 0), -1);
    EXPECT_FALSE(Fat_CreateDir(u"New", 0) || Fat_DeleteFile(u"D\\SHORT") ||
                 Fat_RenameFile(u"D", u"New") || Fat_MoveFile(u"D\\E", nullptr) ||
                 Fat_SetFileSize(file.handle, 0) || Fat_SetFileAttribute(file.handle, &info) ||
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
