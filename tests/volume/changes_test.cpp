// What changes leave behind to the byte: clusters, slots, entries, names, refusals.
#include "dir/short_name.h"
#include "fixture.h"
#include "platform/clock.h"
#include "support/environment.h"

namespace fatvol::test {
namespace {

constexpr int64_t usualTime = 1710510330;  // 2024-03-15 13:45:30

class Changes : public VolumeTest {
protected:
    Changes() {
        UseTimeZone("UTC");
        FixClockForTests(usualTime);
        ResetShortNameTailsForTests();
    }
    ~Changes() override { FixClockForTests(std::nullopt); }
};

bool Create(const std::u16string& path, uint32_t size = 0, uint8_t attributes = 0x20) {
    return Fat_CloseFile(Fat_CreateFile(path.c_str(), size, attributes));
}

bool Resize(const std::u16string& path, uint32_t size) {
    return Fat_SetFileSize(File(path).handle, size);
}

using Clusters = std::vector<uint32_t>;

Clusters ChainOf(const MemoryDisk& disk, const std::u16string& path) {
    const Geometry geometry = ReadGeometry(disk);
    Clusters chain;
    for (uint32_t next = ReadTree(disk, 0).at(path).FirstCluster(); geometry.HasCluster(next);
         next = GetFatEntry(disk, geometry, next)) {
        chain.push_back(next);
    }
    return chain;
}

Bytes DirectoryBytes(const MemoryDisk& disk, const std::u16string& path) {
    const Geometry geometry = ReadGeometry(disk);
    Bytes bytes;
    for (const uint32_t cluster : ChainOf(disk, path)) {
        const Bytes part = disk.Read(geometry.ClusterPosition(cluster), geometry.clusterBytes);
        bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes;
}

Clusters Ranges(std::initializer_list<std::pair<uint32_t, uint32_t>> ranges) {
    Clusters clusters;
    for (const auto& [first, last] : ranges) {
        for (uint32_t cluster = first; cluster <= last; ++cluster) {
            clusters.push_back(cluster);
        }
    }
    return clusters;
}

// Free are clusters 10 to 12 and 20 to 30. Files of so many clusters are made in turn.
TEST_F(Changes, TakeTheFirstRunThatIsLongEnough) {
    const struct {
        std::vector<uint32_t> sizes;
        Clusters last;  // of the last file; none when it is refused
    } cases[] = {{{1}, Ranges({{10, 10}})},
                 {{3}, Ranges({{10, 12}})},
                 {{5}, Ranges({{20, 24}})},
                 {{5, 1}, Ranges({{10, 10}})},
                 {{5, 3, 1}, Ranges({{25, 25}})},
                 {{2, 2, 2}, Ranges({{22, 23}})},
                 {{2, 12}, Ranges({{12, 12}, {20, 30}})},
                 {{14}, Ranges({{10, 12}, {20, 30}})},
                 {{15}, {}},
                 {{5, 9}, Ranges({{10, 12}, {25, 30}})},
                 {{5, 10}, {}},
                 {{14, 1}, {}}};
    for (const uint32_t fatType : {12U, 16U, 32U}) {
        for (const auto& [sizes, last] : cases) {
            ImageBuilder builder(
                {.fatType = fatType, .clusterCount = fatType == 12 ? 100U : 5000U});
            for (uint32_t cluster = 3; cluster < builder.geometry.clusterCount + 2; ++cluster) {
                if (cluster < 10 || cluster > 30 || (cluster > 12 && cluster < 20)) {
                    builder.SetFatEntry(cluster, builder.geometry.badMark);
                }
            }
            if (fatType != 32) {
                builder.SetFatEntry(2, builder.geometry.badMark);
            }
            Mounted mounted(builder.disk);
            for (size_t i = 0; i < sizes.size(); ++i) {
                const std::u16string name(1, static_cast<char16_t>(u'A' + i));
                const bool isRefused = i + 1 == sizes.size() && last.empty();
                ASSERT_EQ(Create(name, sizes[i] * 512), !isRefused);
                ASSERT_TRUE(Fat_FlushVolume(mounted.volume));
                EXPECT_TRUE(isRefused || i + 1 < sizes.size() ||
                            ChainOf(builder.disk, name) == last)
                    << fatType << ", case " << &last - &cases[0].last;
            }
            EXPECT_EQ(CheckImage(builder.disk).Text(), "");
        }
    }
}

// What a cut left in the cache does not come back: neither the bytes behind the new end in the last
// block, which read as zero then, nor blocks whose clusters went to another file meanwhile.
TEST_F(Changes, GrowingShowsNothingOfACut) {
    for (const uint32_t size : {1000U, 400000U}) {
        ImageBuilder builder({.fatType = 16, .clusterCount = 5000, .fill = 0xA5});
        Bytes shown;
        {
            const Mounted mounted(builder.disk);
            EXPECT_TRUE(Create(u"F", size));
            const File file(u"F");
            EXPECT_TRUE(WriteAt(file.handle, size - 500, Bytes(500, 'x')));
            EXPECT_TRUE(Resize(u"F", 10) && Create(u"OTHER", size));
            EXPECT_TRUE(WriteAt(File(u"OTHER").handle, 0, Bytes(size, 'o')));
            EXPECT_TRUE(Resize(u"F", size));
            shown = ReadWhole(u"F").value();
        }
        const Tree tree = ReadTree(builder.disk);
        EXPECT_TRUE(tree.at(u"F").content == shown);
        EXPECT_TRUE(tree.at(u"OTHER").content == Bytes(size, 'o'));
        const auto kept = size < blockBytes ? shown.begin() + 10 : shown.end() - 500;
        const uint8_t fresh = size < blockBytes ? 0 : 0xA5;
        EXPECT_TRUE(std::all_of(kept, shown.end(), [&](uint8_t byte) { return byte == fresh; }));
    }
}

TEST_F(Changes, SizesGoUpToOneClusterBelow4GiB) {
    for (const auto& [sectors, count] : {std::pair(1U, 8388700U), std::pair(64U, 131100U)}) {
        ImageBuilder builder({.fatType = 32, .sectorsPerCluster = sectors, .clusterCount = count});
        const Mounted mounted(builder.disk);
        const uint32_t largest = 0U - sectors * 512;
        EXPECT_FALSE(Create(u"F", largest + 1));
        EXPECT_FALSE(CanOpen(u"F"));
        EXPECT_TRUE(Create(u"F", 1));
        const File file(u"F");
        EXPECT_FALSE(Fat_SetFileSize(file.handle, largest + 1));
        EXPECT_TRUE(Fat_SetFileSize(file.handle, largest));
        EXPECT_TRUE(WriteAt(file.handle, largest - 2, Bytes(2, 'x')));
        EXPECT_TRUE(Fat_SetFileSize(file.handle, 0));
        EXPECT_EQ(mounted.Info().freeClusters, count - 1);
    }
}

TEST_F(Changes, WriteTheseEntries) {
    const std::tuple<int64_t, EntryTimes> cases[] = {
        {usualTime, {}},
        {usualTime + 1, {}},
        {315532799, {0, 0, 0, 0, 0, 0}},  // the last second of 1979
        {315532800, {0, 0, 0x0021, 0x0021, 0, 0x0021}}};
    for (const auto& [seconds, times] : cases) {
        FixClockForTests(seconds);
        ResetShortNameTailsForTests();
        ImageBuilder builder({.fatType = 32, .clusterCount = 200, .fill = 0xA5});
        {
            Mounted mounted(builder.disk);
            EXPECT_TRUE(Fat_CreateDir(u"D", 0x42) && Fat_CreateDir(u"D\\E", 0));
            EXPECT_TRUE(Create(u"D\\A long name.txt", 5, 0x31));
        }
        const Clusters clusters = {ChainOf(builder.disk, u"D")[0],
                                   ChainOf(builder.disk, u"D\\E")[0],
                                   ChainOf(builder.disk, u"D\\A long name.txt")[0]};
        const auto name = [](const char* text) {
            ShortName bytes;
            std::copy_n(text, 11, bytes.begin());
            return bytes;
        };
        const ShortName alias = name("ALONGN~1TXT");
        std::vector<Slot> slots = {
            MakeShortEntry(name(".          "), 0x10, clusters[0], 0, times),
            MakeShortEntry(name("..         "), 0x10, 0, 0, times),
            MakeShortEntry(name("E          "), 0x10, clusters[1], 0, times)};
        for (const Slot& slot : MakeLongEntries(u"A long name.txt", NameChecksum(alias.data()))) {
            slots.push_back(slot);
        }
        slots.push_back(MakeShortEntry(alias, 0x21, clusters[2], 5, times));
        Bytes expected;
        for (const Slot& slot : slots) {
            expected.insert(expected.end(), slot.begin(), slot.end());
        }
        expected.resize(512);
        EXPECT_EQ(DirectoryBytes(builder.disk, u"D"), expected) << seconds;
        EXPECT_EQ(ReadTree(builder.disk).at(u"D").Attributes(), 0x52);
    }
}

TEST_F(Changes, GiveAliasesInThisOrder) {
    const struct {
        const char16_t *name, *alias;
        bool isLong = true;
    } cases[] = {{u"longfilename.txt", u"LONGFI~1.TXT"},
                 {u"a b c d e f g.html", u"ABCDEF~2.HTM"},
                 {u"x y", u"XY~3"},
                 {u".profile", u"PROFIL~4"},
                 {u"ab+c[d].j+p", u"AB_C_D~5.J_P"},
                 {u"PLAIN.TXT", u"PLAIN.TXT", false},
                 {u"LONGFI~7.TXT", u"LONGFI~7.TXT", false},
                 {u"LONGFI~1.TXT", u"LONGFI~6.TXT"},       // taken by the first alias
                 {u"longfilename2.txt", u"LONGFI~8.TXT"},  // 7 is taken
                 {u"nine nine nine", u"NINENI~9"},
                 {u"longfilename3.txt", u"LONGF~10.TXT"}};
    ImageBuilder builder({});
    {
        const Mounted mounted(builder.disk);
        for (const auto& [name, alias, isLong] : cases) {
            ASSERT_TRUE(Create(name)) << Printable(name);
            FatFileInfo info{};
            EXPECT_TRUE(Fat_GetFileAttribute(File(name).handle, &info));
            EXPECT_EQ(Printable(info.shortName), Printable(alias));
            EXPECT_EQ(info.longName[0] != 0, isLong) << Printable(name);
        }
    }
    EXPECT_EQ(CheckImage(builder.disk).Text(), "");
}

// A letter for each slot: long-name entry, deleted, end mark, or the name's first character.
std::string SlotLetters(const Bytes& directory) {
    std::string letters;
    for (size_t at = 0; at < directory.size(); at += 32) {
        const uint8_t first = directory[at];
        letters += first == 0                   ? '0'
                   : first == 0xE5              ? '-'
                   : directory[at + 11] == 0x0F ? 'l'
                                                : static_cast<char>(first);
    }
    return letters;
}

// Slots become free between used ones, and a name needs several together.
TEST_F(Changes, CompactGrowAndEndDirectories) {
    const struct {
        const char *before, *deleted;  // one letter for each file, slots in use and then deleted
        const char16_t* name;
        const char* after;
    } cases[] = {{"abcdefghijklmn", "bdfhjln", u"X fourteen uni", "..ACEllXG-I-K-M-"},
                 {"abcdefghijklmn", "bcfi", u"X fourteen uni", "..ADEllXGH-JKLMN"},
                 {"abcdefghijklmn", "mn", u"X twelve", "..ABCDEFGHIJKLlX"},
                 {"abcdefghijklmn", "n", u"X twelve", "..ABCDEFGHIJKLMlX000000000000000"},
                 {"abcdefghijklmn", "", u"X", "..ABCDEFGHIJKLMNX000000000000000"},
                 {"abc", "b", u"X", "..AXC00000000000"},
                 {"abc", "b", u"X twelve", "..A-ClX000000000"}};
    for (const auto& [before, deleted, name, after] : cases) {
        ImageBuilder builder({.fatType = 12, .clusterCount = 50, .fill = 0xA5});
        {
            const Mounted mounted(builder.disk);
            ASSERT_TRUE(Fat_CreateDir(u"D", 0));
            FatFileInfo info{};
            const auto path = [](char letter) {
                return u"D\\" + std::u16string(1, static_cast<char16_t>(letter));
            };
            for (const char* letter = before; *letter; ++letter) {
                ASSERT_TRUE(Create(path(*letter)));
            }
            const int find = Fat_FindFirstFile(u"D", &info);
            std::string seen;
            for (int i = 0; i < 4; ++i) {  // "..", A, B, C
                EXPECT_TRUE(Fat_FindNextFile(find, &info));
            }
            for (const char* letter = deleted; *letter; ++letter) {
                ASSERT_TRUE(Fat_DeleteFile(path(*letter).c_str()));
            }
            ASSERT_TRUE(Create(u"D\\" + std::u16string(name)));
            while (Fat_FindNextFile(find, &info)) {
                seen += static_cast<char>(NameOf(info)[0]);
            }
            for (const char* letter = before + 3; letter < before + std::strlen(before); ++letter) {
                const bool isThere = !std::strchr(deleted, *letter);
                const char shown = static_cast<char>(*letter - 32);
                EXPECT_EQ(std::count(seen.begin(), seen.end(), shown), isThere) << after << shown;
            }
            EXPECT_TRUE(Fat_CloseFindHandle(find));
        }
        EXPECT_EQ(SlotLetters(DirectoryBytes(builder.disk, u"D")), after);
        EXPECT_EQ(CheckImage(builder.disk).Text(), "");
    }
}

// Another system may leave anything behind the end mark.
TEST_F(Changes, KeepTheEndMarkBehindNewEntries) {
    for (const char16_t* name : {u"B", u"B with a long name"}) {
        ImageBuilder builder({});
        const auto ghost =
            MakeShortEntry({'G', 'H', 'O', 'S', 'T', ' ', ' ', ' ', ' ', ' ', ' '}, 0x20, 77, 9);
        builder.AddFile(builder.root, u"A");
        builder.AddRawSlots(builder.root, {Slot{}, ghost, ghost, ghost, ghost});
        {
            const Mounted mounted(builder.disk);
            ASSERT_TRUE(Create(name));
            EXPECT_FALSE(CanOpen(u"GHOST"));
        }
        EXPECT_EQ(CheckImage(builder.disk).Text(), "");
        EXPECT_EQ(ReadTree(builder.disk).size(), 2U);
    }
}

// Handles below a renamed directory go on; what they write arrives at the new path. Files that are
// open are neither deleted nor moved.
TEST_F(Changes, FollowHandlesAndLosePowerAfterAFlush) {
    ImageBuilder builder({.fatType = 12, .clusterCount = 500, .fill = 0xA5});
    Mounted mounted(builder.disk);
    EXPECT_TRUE(Create(u"A\\B\\F", 100));
    const File file(u"A\\B\\F");
    EXPECT_FALSE(Fat_DeleteFile(u"A\\B\\F") || Fat_MoveFile(u"A\\B\\F", nullptr));
    EXPECT_TRUE(WriteAt(file.handle, 0, Bytes(100, 'x')));
    EXPECT_TRUE(Fat_RenameFile(u"A", u"Z") && Fat_MoveFile(u"Z\\B", nullptr));
    EXPECT_FALSE(CanOpen(u"A") || CanOpen(u"Z\\B"));
    EXPECT_TRUE(Resize(u"B\\F", 2000) && WriteAt(file.handle, 100, Bytes(1900, 'y')));
    ASSERT_TRUE(Fat_FlushVolume(mounted.volume));
    MemoryDisk cut(builder.disk.sizeBytes, 0xA5);
    cut.Restore(builder.disk.Snapshot());
    EXPECT_EQ(CheckImage(cut).Text(), "");
    Bytes expected(100, 'x');
    expected.resize(2000, 'y');
    EXPECT_EQ(ReadTree(cut).at(u"B\\F").content, expected);
    EXPECT_TRUE(WriteAt(file.handle, 0, Bytes(100, 'z')));
}

}  // namespace
}  // namespace fatvol::test
