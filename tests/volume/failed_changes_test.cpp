// Changes that fail half-way, and volumes that were damaged before: what was there stays there.
#include "api/library_state.h"
#include "fixture.h"

namespace fatvol::test {
namespace {

// A change on a volume with a tree, and what it calls.
struct Change {
    const char* name;
    bool (*run)();
};

bool CreateFileOf(const char16_t* path, uint32_t size) {
    return Fat_CloseFile(Fat_CreateFile(path, size, 0x20));
}

constexpr Change changes[] = {
    {"create", [] { return CreateFileOf(u"D\\A new and long name", 3000); }},
    {"make directories", [] { return Fat_CreateDir(u"D\\E\\New\\And below", 0); }},
    {"delete", [] { return Fat_DeleteFile(u"D\\Long.File"); }},
    {"rename", [] { return Fat_RenameFile(u"D\\SHORT", u"D\\A name of three slots.txt"); }},
    {"move", [] { return Fat_MoveFile(u"D\\E", nullptr); }},
    {"move closed", [] { return Fat_MoveFile(u"D\\Closed", u"D\\E"); }},
    {"grow", [] { return Fat_SetFileSize(File(u"D\\Long.File").handle, 100000); }},
    {"shrink", [] { return Fat_SetFileSize(File(u"D\\Long.File").handle, 700); }},
    {"cut off", [] { return Fat_SetFileSize(File(u"D\\Long.File").handle, 0); }}};

ImageBuilder WithTree(uint32_t fatType) {
    ImageBuilder builder({.fatType = fatType, .clusterCount = fatType == 12 ? 900U : 5000U});
    const size_t d = builder.AddDirectory(ImageBuilder::root, u"D");
    builder.AddFile(d, u"Long.File", Bytes(40000, 'l'));
    builder.AddFile(d, u"SHORT", Bytes(10, 's'));
    builder.AddDirectory(d, u"E");
    builder.AddDirectory(d, u"Closed");
    // Single free slots: a longer name needs the others moved together.
    for (char16_t letter = u'A'; letter <= u'J'; ++letter) {
        builder.AddFile(d, {u'F', letter}, Bytes(600, 'f'));
        builder.AddDeletedSlots(d, 1);
    }
    return builder;
}

// The n-th storage call of each change fails, once or with all that follow. A change that says that
// it failed has changed nothing; one that says that it was done is there. Nothing is lost of
// others.
TEST_F(VolumeTest, ChangesAreDoneOrUndone) {
    int failures = 0;
    for (const uint32_t fatType : {12U, 16U, 32U}) {
        for (const Change& change : changes) {
            bool failedEver = true;
            for (uint64_t n = 1; failedEver && n < 60; ++n) {
                SCOPED_TRACE(std::string(change.name) + ", FAT" + std::to_string(fatType) +
                             ", call " + std::to_string(n));
                ImageBuilder builder = WithTree(fatType);
                Tree before, after, left;
                {
                    const Mounted mounted(builder.disk);
                    ListTree(before);
                }
                {
                    const Mounted mounted(builder.disk);
                    builder.disk.failure = {.countdown = n, .onwards = n % 2 == 0};
                    const bool done = change.run();
                    failedEver = builder.disk.failure.countdown <= (n % 2 == 0 ? 1U : 0U);
                    failures += failedEver && !done ? 1 : 0;
                    builder.disk.failure = {};
                    EXPECT_TRUE(IsLibrarySound());
                    ListTree(after);
                    EXPECT_EQ(Difference(before, after) != "", done);
                    ASSERT_TRUE(Fat_FlushVolume(mounted.volume));
                }
                const ImageReport report = CheckImage(builder.disk);
                EXPECT_TRUE(report.faults.empty() && report.lostClusters == 0) << report.Text();
                const Mounted mounted(builder.disk);
                ListTree(left);
                EXPECT_EQ(Difference(after, left), "");
            }
        }
    }
    EXPECT_GE(failures, 50);  // or else too little was cold to fail
}

// Two entries of a damaged volume share their clusters.
TEST_F(VolumeTest, ClustersOfTwoFilesAreFreedOnce) {
    ImageBuilder builder({.fatType = 16, .clusterCount = 5000});
    EntryOptions shared;
    shared.clusters = {50, 51, 52, 53, 54, 55, 56, 57, 58, 59};
    builder.AddFile(ImageBuilder::root, u"A", Bytes(5000, 'a'), shared);
    builder.AddRawSlots(ImageBuilder::root,
                        {MakeShortEntry(*PlainShortName(u"B"), 0x20, 50, 5000)});
    const Mounted mounted(builder.disk);
    { const File a(u"A"), b(u"B"); }
    EXPECT_TRUE(Fat_DeleteFile(u"A"));
    EXPECT_TRUE(Fat_DeleteFile(u"B"));
    EXPECT_EQ(mounted.Info().freeClusters, 5000U);
    EXPECT_TRUE(IsLibrarySound());
}

}  // namespace
}  // namespace fatvol::test
