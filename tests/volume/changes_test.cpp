// What changes leave behind to the byte: clusters, slots, entries, names.
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

// Free are clusters 10 to 12 and 20 to 23. Files of so many clusters are made in turn.
TEST_F(Changes, TakeTheFirstRunThatIsLongEnough) {
    const struct {
        std::vector<uint32_t> sizes;
        Clusters last;  // of the last file; none when it is refused
    } cases[] = {{{3}, {10, 11, 12}},
                 {{4}, {20, 21, 22, 23}},
                 {{4, 1}, {10}},
                 {{3, 1}, {20}},
                 {{2, 2, 2}, {22, 23}},
                 {{2, 5}, {12, 20, 21, 22, 23}},
                 {{7}, {10, 11, 12, 20, 21, 22, 23}},
                 {{8}, {}},
                 {{2, 5, 1}, {}}};
    for (const uint32_t fatType : {12U, 16U, 32U}) {
        for (const auto& [sizes, last] : cases) {
            ImageBuilder builder(
                {.fatType = fatType, .clusterCount = fatType == 16 ? 5000U : 100U});
            const uint32_t end = builder.geometry.clusterCount + 2;
            for (uint32_t cluster = fatType == 32 ? 3 : 2; cluster < end; ++cluster) {
                if (cluster < 10 || cluster > 23 || (cluster > 12 && cluster < 20)) {
                    builder.SetFatEntry(cluster, builder.geometry.badMark);
                }
            }
            Mounted mounted(builder.disk);
            std::u16string name;
            for (const uint32_t& size : sizes) {
                name += u'F';
                EXPECT_EQ(Create(name, size * 512), &size != &sizes.back() || !last.empty())
                    << fatType << testing::PrintToString(sizes);
            }
            EXPECT_TRUE(mounted.Unmount());
            EXPECT_EQ(CheckImage(builder.disk).Text(), "");
            EXPECT_TRUE(last.empty() || ChainOf(builder.disk, name) == last)
                << fatType << testing::PrintToString(sizes);
        }
    }
}

TEST_F(Changes, SizesGoUpToOneClusterBelow4GiB) {
    for (const auto& [sectors, count] : {std::pair(1U, 8388700U), std::pair(64U, 131100U)}) {
        ImageBuilder builder({.fatType = 32, .sectorsPerCluster = sectors, .clusterCount = count});
        const Mounted mounted(builder.disk);
        const uint32_t largest = 0U - sectors * 512;
        EXPECT_FALSE(Create(u"F", largest + 1) || CanOpen(u"F"));
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
        const VolumeLayout layout{.fatType = 32, .clusterCount = 200, .fill = 0xA5};
        ImageBuilder builder(layout), expected(layout);
        Mounted mounted(builder.disk);
        EXPECT_TRUE(Fat_CreateDir(u"D", 0x42) && Fat_CreateDir(u"D\\E", 0) &&
                    Create(u"D\\A long name.txt", 5, 0x31));
        EXPECT_TRUE(mounted.Unmount());
        EntryOptions options;
        options.times = times;
        options.attributes = 0x42;
        const size_t d = expected.AddDirectory(expected.root, u"D", options);
        options.attributes = 0;
        expected.AddDirectory(d, u"E", options);
        options.attributes = 0x21;
        options.alias = {'A', 'L', 'O', 'N', 'G', 'N', '~', '1', 'T', 'X', 'T'};
        expected.AddFile(d, u"A long name.txt", Bytes(5), options);
        const uint64_t position = builder.geometry.ClusterPosition(3);
        EXPECT_EQ(builder.disk.Read(position, 512), expected.disk.Read(position, 512));
        EXPECT_EQ(ReadTree(builder.disk).at(u"D").entry, expected.tree.at(u"D").entry) << seconds;
    }
}

TEST_F(Changes, GiveAliasesInThisOrder) {
    const std::pair<std::u16string, std::u16string> cases[] = {
        {u"longfilename.txt", u"LONGFI~1.TXT"},
        {u"a b c d e f g.html", u"ABCDEF~2.HTM"},
        {u"x y", u"XY~3"},
        {u".profile", u"PROFIL~4"},
        {u"ab+c[d].j+p", u"AB_C_D~5.J_P"},
        {u"PLAIN.TXT", u"PLAIN.TXT"},
        {u"LONGFI~7.TXT", u"LONGFI~7.TXT"},
        {u"LONGFI~1.TXT", u"LONGFI~6.TXT"},       // taken by the first alias
        {u"longfilename2.txt", u"LONGFI~8.TXT"},  // 7 is taken
        {u"nine nine nine", u"NINENI~9"},
        {u"longfilename3.txt", u"LONGF~10.TXT"},
        {u"", u""},  // the tails start over
        {u"longfilename4.txt", u"LONGFI~2.TXT"}};
    ImageBuilder builder({});
    const Mounted mounted(builder.disk);
    for (const auto& [name, alias] : cases) {
        if (name.empty()) {
            ResetShortNameTailsForTests();
            continue;
        }
        ASSERT_TRUE(Create(name)) << Printable(name);
        FatFileInfo info{};
        EXPECT_TRUE(Fat_GetFileAttribute(File(name).handle, &info));
        EXPECT_EQ(Printable(info.shortName), Printable(alias));
        EXPECT_EQ(info.longName[0] != 0, name != alias) << Printable(name);
    }
}

// A letter for each slot: long-name entry, deleted, end mark, or the name's first character.
std::string SlotLetters(const Bytes& directory) {
    std::string letters;
    for (size_t at = 0; at < directory.size(); at += 32) {
        const auto first = static_cast<char>(directory[at]);
        letters += first == '\0'                ? '0'
                   : first == '\xE5'            ? '-'
                   : directory[at + 11] == 0x0F ? 'l'
                                                : first;
    }
    return letters;
}

// The first free slots that are enough; else those of the directory moved together; else new ones.
// Another system may leave anything behind the end mark.
TEST_F(Changes, TakeTheseSlots) {
    const struct {
        std::string before;
        const char16_t* name;
        std::string after;
    } cases[] = {{"A-C-E-G-I-K-M-", u"X fourteen uni", "..ACEllXG-I-K-M-"},
                 {"A-ZDE-GH-JKLMN", u"X fourteen uni", "..ADEllXGH-JKLMN"},
                 {"ABCDEFGHIJKL--", u"X twelve", "..ABCDEFGHIJKLlX"},
                 {"ABCDEFGHIJKLM-", u"X twelve", "..ABCDEFGHIJKLMlX000000000000000"},
                 {"ABCDEFGHIJKLMN", u"X", "..ABCDEFGHIJKLMNX000000000000000"},
                 {"A-C", u"X", "..AXC00000000000"},
                 {"A-C", u"X twelve", "..A-ClX000000000"},
                 {"AB0DEFGH", u"X twelve", "..ABlX0FGH000000"}};
    for (const auto& [before, name, after] : cases) {
        ImageBuilder builder({.fatType = 12, .clusterCount = 50, .fill = 0xA5});
        std::vector<Slot> slots;
        for (const char letter : before) {
            ShortName shortName;
            shortName.fill(' ');
            shortName[0] = letter == '-' ? 0xE5 : static_cast<uint8_t>(letter);
            slots.push_back(letter == '0' ? Slot{} : MakeShortEntry(shortName, 0x20, 0, 0));
        }
        builder.AddRawSlots(builder.AddDirectory(builder.root, u"D"), slots);
        Mounted mounted(builder.disk);
        const uint64_t position = builder.geometry.ClusterPosition(2);
        // An enumeration that has shown the second entry, which may be gone then, goes on behind
        // it.
        FatFileInfo info{};
        const int find = Fat_FindFirstFile(u"D", &info);
        while (NameOf(info)[0] < u'B') {
            EXPECT_TRUE(Fat_FindNextFile(find, &info));
        }
        Fat_DeleteFile(u"D\\Z");
        EXPECT_TRUE(Create(JoinPath(u"D", name)));
        std::string left = before.substr(0, before.find('0')), shown;
        while (Fat_FindNextFile(find, &info)) {
            shown += static_cast<char>(NameOf(info)[0]);
        }
        std::erase(left, '-');
        std::erase(shown, 'X');
        EXPECT_EQ(shown, left.substr(2));
        EXPECT_TRUE(Fat_CloseFindHandle(find));
        EXPECT_TRUE(mounted.Unmount());
        EXPECT_EQ(SlotLetters(builder.disk.Read(position, after.size() * 32)), after);
        EXPECT_EQ(CheckImage(builder.disk).Text(), "");
    }
}

// What no handle holds is let go by the cache, with its bytes and its new clusters.
TEST_F(Changes, MakePathsTooLongUnlessTheyAreHeld) {
    const ImageBuilder builder({.fatType = 12, .clusterCount = 200});
    MemoryDisk disk = builder.disk;
    Mounted mounted(disk);
    const std::u16string file = u"A\\" + std::u16string(250, u'x');
    const std::u16string directory = u"A\\" + std::u16string(244, u'd');
    for (char16_t name = u'a'; name < u'u'; ++name) {  // in several clusters
        EXPECT_TRUE(Create(JoinPath(directory, {name})));
    }
    const int held = Fat_CreateFile(file.c_str(), 9, 0x20);
    const Bytes bytes(9, 'b');
    unsigned int done = 0;
    EXPECT_TRUE(Fat_WriteFile(held, 9, bytes.data(), &done));
    EXPECT_FALSE(Fat_RenameFile(u"A", u"Longer than ten"));
    EXPECT_TRUE(Fat_CloseFile(held) && Fat_RenameFile(u"A", u"Longer than ten"));
    EXPECT_TRUE(!CanOpen(file) && Fat_RenameFile(u"Longer than ten", u"A"));
    EXPECT_TRUE(ReadWhole(file) == bytes && List(directory).size() == 20);
    EXPECT_TRUE(mounted.Unmount());
    EXPECT_EQ(CheckImage(disk).Text(), "");
}

}  // namespace
}  // namespace fatvol::test
