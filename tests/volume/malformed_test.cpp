// Directories and chains that no sound volume has: what can be read of them is, the rest is
// refused.
#include <deque>

#include "fixture.h"
#include "ops/name_key.h"
#include "platform/cache_sizes.h"

namespace fatvol::test {
namespace {

constexpr ShortName alias = {'A', 'L', 'O', 'N', 'G', '~', '1', ' ', 'T', 'X', 'T'};

Slot With(Slot slot, size_t at, uint8_t value) {
    slot[at] = value;
    return slot;
}

TEST_F(VolumeTest, ListsWhatIsSoundOfADirectory) {
    const std::u16string name = u"A long name of 2 runs.txt", shown = u"ALONG~1.TXT";
    const Slot entry = MakeShortEntry(alias, 0x20, 0, 0), label = With(entry, 11, 0x08);
    const std::vector<Slot> runs = MakeLongEntries(name, NameChecksum(alias.data()));
    const Slot two = runs[0], one = runs[1], deleted = With(entry, 0, 0xE5);
    std::vector<Slot> longest = MakeLongEntries(std::u16string(260, u'x'), one[13]);
    longest.push_back(entry);
    const std::pair<std::vector<Slot>, std::vector<std::u16string>> cases[] = {
        {{two, one, entry}, {name}},
        {{deleted, two, deleted, one, entry}, {name}},
        {{two, one, deleted, entry}, {shown}},
        {{With(two, 0, 2), one, entry}, {shown}},  // not marked as the name's end
        {{one, two, entry}, {shown}},
        {{two, entry}, {shown}},
        {{two, two, one, entry}, {name}},
        {{two, one, one, entry}, {shown}},
        {{two, With(one, 13, 0), entry}, {shown}},  // checksums
        {{two, one, With(entry, 0, 'B'), entry}, {u"BLONG~1.TXT", shown}},
        {{With(one, 0, 0x40), entry}, {shown}},  // sequence numbers 0, 21 and 63
        {{With(one, 0, 0x55), one, entry}, {shown}},
        {{With(two, 0, 0x7F), one, entry}, {shown}},
        {{two, With(one, 9, 0), entry}, {u"A lo"}},  // names that end early
        {{two, With(one, 1, 0), entry}, {shown}},
        {{label, entry, label}, {shown}},
        {{two, one, label, entry}, {name, shown}},
        {{entry, two, one, Slot{}, entry}, {shown}},
        {{With(entry, 0, 0x05)}, {u"\u0005LONG~1.TXT"}},
        {longest, {std::u16string(260, u'x')}},
        {std::vector(14, entry), std::vector(14, shown)},  // no end mark
    };
    ImageBuilder builder({32, 512, 1, 5000});
    const auto directoryOf = [&](const auto& row) {
        return std::u16string(1, static_cast<char16_t>(u'A' + (&row - cases)));
    };
    for (const auto& row : cases) {
        builder.AddRawSlots(builder.AddDirectory(builder.root, directoryOf(row)), row.first);
    }
    const Mounted mounted(builder.disk);
    for (const auto& row : cases) {
        std::vector<std::u16string> names;
        for (const FatFileInfo& info : List(directoryOf(row))) {
            names.push_back(NameOf(info));
            EXPECT_EQ(CanOpen(JoinPath(directoryOf(row), names.back())),
                      names.back().size() < 258 && names.back()[0] >= 0x20);
        }
        EXPECT_EQ(names, row.second) << &row - cases;
    }
}

// Files and directories whose chains are broken.
TEST_F(VolumeTest, RefusesBrokenChains) {
    for (const VolumeLayout& layout :
         {VolumeLayout{12, 512, 1, 2000}, {16, 512, 1, 70000}, {32, 512, 1, 5000}}) {
        ImageBuilder builder(layout);
        const uint32_t end = layout.clusterCount + 2, bad = builder.geometry.badMark;
        builder.SetFatEntry(100, 101);
        if (builder.geometry.HasCluster(bad)) {
            builder.SetFatEntry(bad, bad + 1);  // a mark in a link all the same
        }
        for (const uint32_t first : {1U, end, ~0U, 100U}) {
            for (const uint32_t linkOf101 : {0U, 1U, 100U, 101U, end, bad}) {
                ImageBuilder broken = builder;
                broken.SetFatEntry(101, linkOf101);
                broken.AddRawSlots(broken.root,
                                   {MakeShortEntry(alias, 0x20, first, 9),
                                    MakeShortEntry(*PlainShortName(u"D"), 0x10, first, 0)});
                const Mounted mounted(broken.disk);
                EXPECT_EQ(List(u"").size(), 2U);
                EXPECT_FALSE(CanOpen(u"ALONG~1.TXT") || CanOpen(u"D") || CanOpen(u"D\\F"))
                    << first << " " << linkOf101;
            }
        }
    }
}

// Files with chains that are shorter than their sizes.
TEST_F(VolumeTest, TransfersNothingBehindAChain) {
    ImageBuilder builder({});
    EntryOptions options;
    options.size = 2 * blockBytes;
    builder.AddFile(builder.root, u"SHORT", Bytes(blockBytes + 512), options);
    builder.AddFile(builder.root, u"NONE", {}, options);
    const Mounted mounted(builder.disk);
    for (const std::u16string path : {u"SHORT", u"NONE"}) {
        const File file(path);
        for (int i = 0; i < 300; ++i) {  // more often than there are blocks in the cache
            EXPECT_EQ(ReadAt(file.handle, blockBytes, 1), std::nullopt);
        }
        EXPECT_FALSE(WriteAt(file.handle, blockBytes, Bytes(blockBytes)));
        EXPECT_FALSE(CanOpen(path + u"\\F"));  // no directory
    }
}

// Not even while the open files leave no room to keep the directories behind.
TEST_F(VolumeTest, GoesRoundNoCircleOfDirectories) {
    ImageBuilder builder({});
    const auto name = [](uint32_t i) { return u"F" + std::u16string(1, char16_t(0x4E00 + i)); };
    for (uint32_t i = 0; i < OpenObjectLimit; ++i) {
        builder.AddFile(builder.root, name(i));
    }
    const size_t a = builder.AddDirectory(builder.root, u"A");
    const size_t c = builder.AddDirectory(builder.AddDirectory(a, u"B"), u"C");
    builder.AddRawSlots(c,
                        {MakeShortEntry(*PlainShortName(u"A"), 0x10, builder.FirstCluster(a), 0)});
    const Mounted mounted(builder.disk);
    std::deque<File> files;
    for (uint32_t i = 0; i < OpenObjectLimit; ++i) {
        EXPECT_GE(files.emplace_back(name(i)).handle, 0);
    }
    std::u16string path = u"A";
    for (int i = 0; i < 40; ++i) {
        path += u"\\B\\C\\A";
    }
    builder.disk.keepCalls = true;
    FatFileInfo info{};
    EXPECT_EQ(Fat_FindFirstFile(path.c_str(), &info), -1);
    EXPECT_FALSE(Fat_CreateDir(path.c_str(), 0) || Fat_DeleteFile(path.c_str()));
    EXPECT_LE(TakeCalls(builder.disk).size(), 9U);
}

// A file that shares the last cluster of a directory which has grown, and waits for its link, and
// an entry that leads to the free cluster into which it grows.
TEST_F(VolumeTest, LinksNoDirectoryIntoOthers) {
    ImageBuilder builder({.fatType = 16, .clusterCount = 5000});
    const size_t directory = builder.AddDirectory(builder.root, u"D");
    builder.AddRawSlots(directory,
                        std::vector<Slot>(14, MakeShortEntry(*PlainShortName(u"A"), 0x20, 0, 0)));
    const uint32_t last = builder.FirstCluster(directory);
    EntryOptions options;
    options.clusters = {100};
    options.size = 1024;
    builder.AddFile(builder.root, u"F", {}, options);
    builder.SetFatEntry(100, last);
    options.clusters = {last + 2};
    builder.AddDirectory(builder.root, u"X", options);
    builder.SetFatEntry(last + 2, 0);
    MemoryDisk other = builder.disk;
    {
        const Mounted mounted(builder.disk);
        const File sharer(u"F");
        EXPECT_TRUE(Fat_CreateDir(u"D\\NEW", 0) && !Fat_SetFileSize(sharer.handle, 3000));
        EXPECT_FALSE(CanOpen(u"X"));
    }
    {
        const Mounted mounted(builder.disk);
        EXPECT_TRUE(CanOpen(u"D\\NEW"));
    }
    const Mounted mounted(other);
    EXPECT_TRUE(CanOpen(u"F") && Fat_CreateDir(u"D\\NEW", 0) && Fat_DeleteFile(u"F"));
    EXPECT_TRUE(Fat_CreateDir(u"G", 0));  // takes that cluster
    for (char16_t name = u'a'; name < u'p'; ++name) {
        const int file = Fat_CreateFile(JoinPath(u"G", {name}).c_str(), 0, 0x20);
        EXPECT_EQ(Fat_CloseFile(file), name < u'o') << "G cannot grow there";
    }
    EXPECT_FALSE(Fat_FlushVolume(mounted.volume));
    EXPECT_EQ(GetFatEntry(other, builder.geometry, last), 0xFFFFU);
}

// Names that only their text tells apart: of 8.3 names the packed bytes are what the key is made
// of; the other pair is the fruit of a search.
TEST_F(VolumeTest, TellsNamesWithEqualKeysApart) {
    const std::u16string packed = u"\u4552\u4441\u454D\u2020\u5854\u0054", plain = u"README.TXT";
    const std::u16string names[] = {packed, plain,
                                    u"\u6AF4\u67D7\u59E0\u9621\u5756\u4FF2\u6894\u52A7",
                                    u"\u6B67\u5E2F\u82D6\u7D76\u6C0F\u5061\u58A4\u52A7"};
    ASSERT_TRUE(MakeNameKey(names[2].c_str()) == MakeNameKey(names[3].c_str()));
    for (const bool isBackwards : {false, true}) {
        ImageBuilder builder({});
        for (size_t i = 0; i < 4; ++i) {
            const size_t at = isBackwards ? 3 - i : i;
            const size_t directory = builder.AddDirectory(builder.root, names[at]);
            builder.AddFile(directory, u"F", Bytes(8, static_cast<uint8_t>(at)));
        }
        const Mounted mounted(builder.disk);
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(ReadWhole(names[i] + u"\\f"), Bytes(8, static_cast<uint8_t>(i)));
        }
    }
}

TEST_F(VolumeTest, ListsNoMoreThan65536Slots) {
    ImageBuilder builder({32, 4096, 128, 40});
    EntryOptions options;
    options.clusters = {10, 11, 12, 13, 14, 15};  // 98304 slots
    builder.AddDirectory(builder.root, u"DIR", options);
    for (uint32_t slot = 2; slot < 98304; ++slot) {
        Slot entry = MakeShortEntry(alias, 0x20, 0, 0);
        std::snprintf(reinterpret_cast<char*>(&entry[0]), 9, "F%07u", slot);
        entry[8] = 'X';
        builder.disk.Write(builder.geometry.ClusterPosition(10) + slot * 32, entry.data(), 32);
    }
    const Mounted mounted(builder.disk);
    EXPECT_EQ(List(u"DIR").size(), 65534U);
}

// Entries of a FAT can only lead to 2^28 clusters, but those of directories lead further.
TEST_F(VolumeTest, FreesWhatNoLinkLeadsTo) {
    ImageBuilder builder({.fatType = 32, .clusterCount = 0x10020000, .fatCount = 1});
    EntryOptions far;
    far.clusters = {0x10010005};
    builder.AddFile(builder.root, u"FAR", Bytes(9), far);
    const Mounted mounted(builder.disk);
    EXPECT_TRUE(Fat_DeleteFile(u"FAR") && Fat_FlushVolume(mounted.volume));
    EXPECT_EQ(GetFatEntry(builder.disk, builder.geometry, 0x10010005), 0U);
}

}  // namespace
}  // namespace fatvol::test
