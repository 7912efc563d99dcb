// Random sequences of every exported call on two volumes against a plain model of their trees.
// Whatever happens, each volume must show its model, through the library and, after unmounting, to
// the checker and to fsck.fat. A failing sequence is cut down to the steps that it needs.
//
// FATVOL_MODEL_OPERATIONS is the number of steps for each geometry, FATVOL_TEST_SEQUENCE the number
// of the first sequence.
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <chrono>
#include <fstream>

#include "api/library_state.h"
#include "dir/fat_time.h"
#include "dir/short_name.h"
#include "dir/upcase.h"
#include "fixture.h"
#include "platform/clock.h"

namespace fatvol::test {
namespace {

constexpr uint64_t stepsPerSequence = 250;
constexpr size_t fileHandles = 160, findHandles = 32, maxPathUnits = 259, manyNodes = 250;

constexpr VolumeLayout layouts[] = {
    {.fatType = 12, .bytesPerSector = 128, .clusterCount = 3000, .fill = 0xA5},
    {.fatType = 12, .clusterCount = 500, .rootEntryCount = 64, .fill = 0xA5},
    {.fatType = 12, .sectorsPerCluster = 8, .clusterCount = 4084, .rootEntryCount = 32},
    {.fatType = 16, .sectorsPerCluster = 4, .clusterCount = 5000, .fill = 0x41},
    {.fatType = 16, .bytesPerSector = 1024, .sectorsPerCluster = 64, .clusterCount = 4087},
    {.fatType = 32, .clusterCount = 20000, .fill = 0xA5},
    {.fatType = 32, .bytesPerSector = 2048, .clusterCount = 65525},
    {.fatType = 32,
     .bytesPerSector = 4096,
     .sectorsPerCluster = 128,
     .clusterCount = 300,
     .fill = 0x0F}};

struct Node {
    std::u16string path;
    bool isDirectory = false;
    uint8_t attributes = 0;
    EntryTimes times = {};
    Bytes content = {};
    uint32_t position = 0;
    int holders = 0;  // file and find handles on it
};
using NodeRef = std::shared_ptr<Node>;

struct Side {
    ImageBuilder builder;
    std::unique_ptr<Mounted> mounted = nullptr;
    std::map<std::u16string, NodeRef> nodes = {};  // by folded path
};

struct HeldFile {
    Side* side;
    NodeRef node;
    int handle;
};

// An enumeration: what was there at its start and has neither come nor gone since, and what it has
// shown of that.
struct HeldFind {
    Side* side;
    NodeRef directory;  // null for the root
    int handle;
    std::set<std::u16string> stable = {}, seen = {};  // folded names
};

std::u16string Fold(std::u16string text) {
    std::transform(text.begin(), text.end(), text.begin(), UpcaseUnit);
    return text;
}
std::u16string Parent(const std::u16string& path) {
    const size_t separator = path.rfind(u'\\');
    return separator == path.npos ? u"" : path.substr(0, separator);
}
std::u16string Name(const std::u16string& path) {
    return path.substr(path.rfind(u'\\') + 1);
}
bool IsBelow(const std::u16string& key, const std::u16string& directory) {
    return key.starts_with(Fold(directory) + u"\\");
}
// The bytes of an entry that hold times.
std::string TimesOf(const Slot& entry) {
    const std::string bytes(entry.begin(), entry.end());
    return bytes.substr(13, 7) + bytes.substr(22, 4);
}

// Lets fsck.fat judge the image, where it knows the kind of volume. Accepted are an unknown free
// count and as many doubled short names as our own checker counts.
void ExpectFsckContent(const MemoryDisk& disk, uint64_t duplicates) {
    static constexpr const char* accepted[] = {"fsck.fat ",
                                               "Free cluster summary uninitialized",
                                               "/",
                                               "  Duplicate directory entry.",
                                               "  First ",
                                               "  Second ",
                                               "  Auto-renaming second.",
                                               "  Renamed to FSCK",
                                               "Leaving filesystem unchanged."};
    const Geometry geometry = ReadGeometry(disk);
    const bool isSmallFat32 = geometry.fatType == 32 && geometry.clusterCount < 65525;
    if (geometry.bytesPerSector < 512 || isSmallFat32) {
        return;
    }
    const std::string image = testing::TempDir() + "fatvol_model_" + std::to_string(getpid());
    disk.Save(image);
    const std::string command =
        "PATH=$PATH:/usr/sbin:/sbin; command -v fsck.fat >/dev/null || exit 0;"
        "fsck.fat -n " +
        image + " >" + image + ".txt 2>&1";
    EXPECT_EQ(std::system(command.c_str()), duplicates == 0 ? 0 : 256);
    std::ifstream findings(image + ".txt");
    for (std::string line; std::getline(findings, line);) {
        duplicates -= line == accepted[3];
        EXPECT_TRUE(line.empty() || line.starts_with(image) ||
                    std::any_of(std::begin(accepted), std::end(accepted),
                                [&](const char* text) { return line.starts_with(text); }))
            << line;
    }
    EXPECT_EQ(duplicates, 0U);
    std::remove(image.c_str());
    std::remove((image + ".txt").c_str());
}

class Model {
public:
    // `said` receives a line for each call, unless it is null.
    Model(size_t geometry, uint64_t sequence, std::string* said)
        : saying(said),
          sides{Side{ImageBuilder(layouts[geometry])},
                Side{ImageBuilder(layouts[(geometry + sequence) % std::size(layouts)])}} {
        rng.seed(sequence);
        for (Side& each : sides) {
            SpoilClusters(each.builder);
            side = &each;
            Mount();
        }
    }
    ~Model() { CloseAll(); }

    struct Action {
        const char* name;
        void (Model::*run)();
        uint64_t weight;
    };
    static const std::vector<Action> actions;

    void Do(size_t action, uint64_t state) {
        rng.seed(state);
        Say(actions[action].name);
        if (side->nodes.size() > manyNodes) {
            DeleteTree();
        }
        (this->*actions[action].run)();
        EXPECT_TRUE(IsLibrarySound());
    }
    void Finish() {
        Remount();
        Switch();
        Remount();
    }

private:
    Rng rng;
    std::string* const saying;
    std::array<Side, 2> sides;
    Side* side = nullptr;  // the current one
    std::vector<HeldFile> held;
    std::vector<HeldFind> finds;

    void Say(const std::string& text) {
        if (saying) {
            *saying += text + "\n";
        }
    }
    bool Chance(uint64_t in) { return Below(rng, in) == 0; }

    // ---- Volumes

    // Marks clusters bad, now and then most of them, for free space that is scarce and scattered.
    void SpoilClusters(ImageBuilder& builder) {
        const uint32_t count = builder.geometry.clusterCount;
        const bool isLarge = builder.geometry.clusterBytes > 65536;
        if (!isLarge && Chance(2)) {
            return;
        }
        const uint64_t kept = 10 + Below(rng, isLarge ? 50 : Chance(2) ? 60 : count);
        for (uint32_t cluster = 3; cluster < count + 2; ++cluster) {
            if (Below(rng, count) >= kept) {
                builder.SetFatEntry(cluster, builder.geometry.badMark);
            }
        }
    }
    // The tails of aliases start over, so that they meet those of earlier mounts.
    void Mount() {
        ResetShortNameTailsForTests();
        side->mounted = std::make_unique<Mounted>(side->builder.disk);
    }
    void Switch() {
        side = side == &sides[0] ? &sides[1] : &sides[0];
        SetCurrentFileSystem(side->mounted->volume);
    }
    void Flush() {
        ASSERT_TRUE(Fat_FlushVolume(side->mounted->volume));
        CheckDisk();
    }
    // The library's view, then the checker's, then the library's again after a new mount.
    void Remount() {
        CheckListing();
        Side& done = *side;
        ASSERT_TRUE(done.mounted->Unmount());
        Switch();
        CloseAll(&done);
        side = &done;
        const uint64_t freeClusters = CheckDisk();
        Mount();
        EXPECT_EQ(done.mounted->Info().freeClusters, freeClusters);
        CheckListing();
    }
    uint64_t CheckDisk() {
        const MemoryDisk& disk = side->builder.disk;
        const ImageReport report = CheckImage(disk);
        // A move carries its run with its alias unchanged, which may double one.
        EXPECT_TRUE(report.faults.empty() && report.lostClusters == 0 && !report.areFatsDifferent &&
                    !report.isFreeCountWrong)
            << report.Text();
        const Tree tree = Folded(ReadTree(disk)), expected = Expected();
        EXPECT_EQ(Difference(expected, tree), "");
        for (const auto& [path, node] : expected) {
            const auto found = tree.find(path);
            EXPECT_TRUE(found == tree.end() || TimesOf(found->second.entry) == TimesOf(node.entry))
                << "times of " << Printable(path);
        }
        if (Chance(8) || report.duplicateShortNames > 0) {
            ExpectFsckContent(disk, report.duplicateShortNames);
        }
        return report.freeClusters;
    }
    void CheckListing() {
        while (held.size() > fileHandles - 2) {
            Close(held.size() - 1);
        }
        while (finds.size() > findHandles - 2) {
            CloseFind(finds.size() - 1);
        }
        Tree tree;
        ListTree(tree);
        EXPECT_EQ(Difference(Expected(), Folded(tree)), "");
    }
    Tree Expected() const {
        Tree tree;
        for (const auto& [key, node] : side->nodes) {
            const auto size = static_cast<uint32_t>(node->isDirectory ? 0 : node->content.size());
            tree[key] = {MakeShortEntry({}, node->attributes, 0, size, node->times), node->content};
        }
        return tree;
    }
    static Tree Folded(const Tree& tree) {
        Tree folded;
        for (const auto& [path, node] : tree) {
            folded[Fold(path)] = node;
        }
        return folded;
    }

    // ---- The tree

    NodeRef Pick(bool directories, bool files) {
        std::vector<NodeRef> choice;
        for (const auto& [key, node] : side->nodes) {
            if (node->isDirectory ? directories : files) {
                choice.push_back(node);
            }
        }
        return choice.empty() ? nullptr : choice[Below(rng, choice.size())];
    }
    NodeRef Find(const std::u16string& path) const {
        const auto found = side->nodes.find(Fold(path));
        return found == side->nodes.end() ? nullptr : found->second;
    }
    std::vector<NodeRef> NodesBelow(const std::u16string& directory) const {
        std::vector<NodeRef> nodes;
        for (auto it = side->nodes.lower_bound(Fold(directory) + u"\\");
             it != side->nodes.end() && IsBelow(it->first, directory); ++it) {
            nodes.push_back(it->second);
        }
        return nodes;
    }
    static std::set<std::u16string> ChildNames(const Side& of, const NodeRef& directory) {
        std::set<std::u16string> names;
        for (const auto& [key, node] : of.nodes) {
            if (Parent(key) == (directory ? Fold(directory->path) : u"")) {
                names.insert(Name(key));
            }
        }
        return names;
    }
    // A name came to or went from a directory: enumerations may show it or not.
    void Unsettle(const std::u16string& path) {
        const NodeRef directory = Find(Parent(path));
        for (HeldFind& find : finds) {
            if (find.side == side && find.directory == directory) {
                find.stable.erase(Fold(Name(path)));
            }
        }
    }
    void Add(const std::u16string& path, bool isDirectory, uint8_t attributes, Bytes content = {}) {
        const auto stored =
            static_cast<uint8_t>(isDirectory ? attributes | 0x10 : attributes & ~0x10);
        side->nodes[Fold(path)] =
            std::make_shared<Node>(Node{path, isDirectory, stored, {}, std::move(content)});
        Unsettle(path);
    }
    // Gives a node and all below it another path.
    void Rebase(const NodeRef& node, const std::u16string& to) {
        const std::u16string from = node->path;
        std::vector<NodeRef> moved = NodesBelow(from);
        moved.push_back(node);
        Unsettle(from);
        for (const NodeRef& each : moved) {
            side->nodes.erase(Fold(each->path));
            each->path = to + each->path.substr(from.size());
        }
        for (const NodeRef& each : moved) {
            side->nodes[Fold(each->path)] = each;
        }
        Unsettle(to);
    }

    // Either as it was created or folded.
    std::u16string Spelled(const std::u16string& path) { return Chance(2) ? path : Fold(path); }
    // A name for a directory, now and then one that is there, apart from case.
    std::u16string NewName(const std::u16string& directory) {
        if (Chance(8)) {
            const std::set<std::u16string> names = ChildNames(*side, Find(directory));
            if (!names.empty()) {
                return *std::next(names.begin(), static_cast<long>(Below(rng, names.size())));
            }
        }
        const size_t room = maxPathUnits - std::min(maxPathUnits - 1, directory.size() + 1);
        return RandomName(rng, Chance(8) ? room : std::min<size_t>(room, 24));
    }
    std::u16string NewPath() {
        const NodeRef parent = Chance(4) ? nullptr : Pick(true, Chance(20));
        std::u16string path = parent ? Spelled(parent->path) : u"";
        for (uint64_t missing = Chance(6) ? Below(rng, 4) : 0; missing > 0; --missing) {
            path = JoinPath(path, RandomName(rng, 12));
        }
        return JoinPath(path, NewName(path));
    }
    // A path to the limit made of names of one or two units.
    std::u16string DeepPath() {
        const NodeRef parent = Pick(true, false);
        std::u16string path = parent && Chance(2) ? parent->path : u"";
        const size_t limit = Chance(3) ? maxPathUnits : Below(rng, maxPathUnits);
        while (path.size() + 2 <= limit) {
            const auto unit = static_cast<char16_t>(u'a' + Below(rng, 3));
            const size_t units = path.size() + 3 <= limit && Chance(4) ? 2 : 1;
            path = JoinPath(path, std::u16string(units, unit));
        }
        return path.empty() ? u"a" : path;
    }
    // Whether a path can be created, room apart.
    bool IsCreatable(const std::u16string& path) const {
        if (path.size() > maxPathUnits || Find(path)) {
            return false;
        }
        for (std::u16string above = Parent(path); !above.empty(); above = Parent(above)) {
            const NodeRef node = Find(above);
            if (node && !node->isDirectory) {
                return false;
            }
        }
        return true;
    }
    // Whether room may be short for a new entry, with its missing parents and `bytes` of data.
    bool IsRoomShort(std::u16string path, uint64_t bytes) const {
        const FatVolumeInfo info = side->mounted->Info();
        const uint64_t c = info.bytesPerCluster, entryClusters = 2 + 21 * 32 / c;
        uint64_t needed = bytes / c + 1 + entryClusters;
        while (!Parent(path).empty() && !Find(Parent(path))) {
            needed += entryClusters;
            path = Parent(path);
        }
        if (info.freeClusters < needed || info.fatType == 32 || !Parent(path).empty()) {
            return info.freeClusters < needed;
        }
        uint64_t slots = 21;  // at the most, as the rest is
        for (const std::u16string& name : ChildNames(*side, nullptr)) {
            slots += 1 + (name.size() + 12) / 13;
        }
        return slots > side->builder.geometry.rootBytes / 32;
    }
    // What a creation made on its way, all of it unless it failed.
    void AddMissingParents(const std::u16string& path, bool isCertain) {
        if (held.size() == fileHandles) {
            Close(0);
        }
        for (size_t at = path.find(u'\\'); at != path.npos; at = path.find(u'\\', at + 1)) {
            const std::u16string above = path.substr(0, at);
            if (!Find(above)) {
                if (!isCertain && !CanOpen(above)) {
                    return;
                }
                Add(above, true, 0);
            }
        }
    }

    // ---- Handles

    void Open(const NodeRef& node) {
        const int handle = Fat_OpenFile(Spelled(node->path).c_str());
        EXPECT_EQ(handle >= 0, held.size() < fileHandles) << Printable(node->path);
        if (handle >= 0) {
            held.push_back({side, node, handle});
            ++node->holders;
        }
    }
    void Close(size_t index) {
        EXPECT_TRUE(Fat_CloseFile(held[index].handle));
        held[index].node->position = 0;
        --held[index].node->holders;
        held.erase(held.begin() + static_cast<long>(index));
    }
    void CloseFind(size_t index) {
        EXPECT_TRUE(Fat_CloseFindHandle(finds[index].handle));
        if (finds[index].directory) {
            --finds[index].directory->holders;
        }
        finds.erase(finds.begin() + static_cast<long>(index));
    }
    // Of a volume that is gone, whose handles do nothing any more, or of both.
    void CloseAll(const Side* gone = nullptr) {
        unsigned int size = 0;
        FatFileInfo info{};
        for (size_t i = held.size(); i-- > 0;) {
            if (!gone || held[i].side == gone) {
                EXPECT_TRUE(!gone || !Fat_GetFileSize(held[i].handle, &size));
                Close(i);
            }
        }
        for (size_t i = finds.size(); i-- > 0;) {
            if (!gone || finds[i].side == gone) {
                EXPECT_TRUE(!gone || !Fat_FindNextFile(finds[i].handle, &info));
                CloseFind(i);
            }
        }
    }
    // Runs `use` with a handle that is held already, on either volume, or with a new one.
    template <class Use>
    void WithHandle(bool directories, Use use) {
        size_t index = held.empty() ? 0 : Below(rng, held.size());
        if (held.empty() || (held.size() < fileHandles && Chance(2))) {
            const NodeRef node = Pick(directories, true);
            index = held.size();
            if (node) {
                Open(node);
            }
        }
        if (index >= held.size()) {
            return;
        }
        Say("  on " + Printable(held[index].node->path));
        use(held[index]);
        if (!Chance(6)) {
            Close(index);
        }
    }

    // ---- Actions: creating and deleting

    bool Create(const std::u16string& path, bool isDirectory, uint32_t size, uint8_t attributes) {
        Say("  " + Printable(path) + ", " + std::to_string(size) + " bytes");
        const bool expected = IsCreatable(path) && (attributes & 0x08) == 0 &&
                              (isDirectory || held.size() < fileHandles);
        const bool isTight = IsRoomShort(path, size);
        const int handle = isDirectory ? -1 : Fat_CreateFile(path.c_str(), size, attributes);
        const bool done = isDirectory ? Fat_CreateDir(path.c_str(), attributes) : handle >= 0;
        EXPECT_TRUE(done == expected || (expected && isTight)) << Printable(path);
        if (expected) {
            AddMissingParents(path, done);
        }
        if (done) {
            Add(path, isDirectory, attributes);
        }
        if (handle >= 0) {
            held.push_back({side, Find(path), handle});
            ++held.back().node->holders;
            ReadGrown(held.back(), size);
            if (!Chance(8)) {
                Close(held.size() - 1);
            }
        }
        return done;
    }
    // What a grown range holds is free, but it must not change by itself.
    static void ReadGrown(const HeldFile& file, uint64_t size) {
        Bytes& content = file.node->content;
        const size_t old = content.size();
        const Bytes grown =
            size > old ? ReadAt(file.handle, old, size - old).value_or(Bytes()) : Bytes();
        content.insert(content.end(), grown.begin(), grown.end());
        content.resize(std::min<uint64_t>(size, content.size()));
        EXPECT_EQ(content.size(), size);
    }
    uint8_t NewAttributes() { return static_cast<uint8_t>(Chance(8) ? Below(rng, 256) : 0x21); }
    void CreateFile() {
        const uint32_t clusterBytes = side->mounted->Info().bytesPerCluster;
        Create(NewPath(), false, Chance(3) ? RandomSize(rng, clusterBytes, 300000) : 0,
               NewAttributes());
    }
    void CreateDir() { Create(Chance(4) ? DeepPath() : NewPath(), true, 0, NewAttributes()); }
    // With long names, until there is no room; the fixed root directory above all.
    void FillDirectory() {
        const NodeRef directory = Chance(3) ? Pick(true, false) : nullptr;
        const std::u16string path = directory ? directory->path : u"";
        for (uint64_t left = path.size() > 50 ? 0 : 40; left > 0; --left) {
            const std::u16string name = std::u16string(100 + Below(rng, 100), u'l');
            if (!Create(JoinPath(path, name + char16_t(u'\u4E00' + left)), false, 0, 0x20)) {
                return;
            }
        }
    }
    void DeleteNode(const NodeRef& node) {
        Say("  " + Printable(node->path));
        const bool expected = node->holders == 0 && NodesBelow(node->path).empty();
        EXPECT_EQ(Fat_DeleteFile(Spelled(node->path).c_str()), expected) << Printable(node->path);
        if (expected) {
            side->nodes.erase(Fold(node->path));
            Unsettle(node->path);
        }
    }
    void Delete() {
        if (const NodeRef node = Pick(true, true)) {
            DeleteNode(node);
        }
        EXPECT_FALSE(Fat_DeleteFile(u"No such thing"));
    }
    void DeleteTree() {
        const NodeRef node = Pick(true, false);
        if (node) {
            const std::u16string top = node->path.substr(0, node->path.find(u'\\'));
            std::vector<NodeRef> nodes = NodesBelow(top);
            nodes.insert(nodes.begin(), Find(top));
            std::for_each(nodes.rbegin(), nodes.rend(), [&](const NodeRef& n) { DeleteNode(n); });
        }
    }
    void DeleteWhileListing() {
        const NodeRef directory = Pick(true, false);
        if (!directory || finds.size() == findHandles) {
            return;
        }
        Say("  in " + Printable(directory->path));
        FatFileInfo info{};
        const int handle = FindFirst(directory, &info);
        for (bool isFound = handle >= 0; isFound; isFound = Fat_FindNextFile(handle, &info)) {
            const NodeRef node = Find(JoinPath(directory->path, NameOf(info)));
            if (node) {
                DeleteNode(node);
            }
            EXPECT_TRUE(node || NameOf(info) == u"." || NameOf(info) == u"..");
        }
        EXPECT_TRUE(Fat_CloseFindHandle(handle));
        for (const std::u16string& name : ChildNames(*side, directory)) {
            const NodeRef node = Find(JoinPath(directory->path, name));
            EXPECT_TRUE(node->holders > 0 || !NodesBelow(node->path).empty()) << Printable(name);
        }
    }

    // ---- Actions: renaming and moving

    // Whether all open paths at or below a new path keep to the limit; nothing when that hangs on
    // what the cache holds.
    std::optional<bool> Fits(const Node& node, const std::u16string& to) const {
        bool fits = to.size() <= maxPathUnits, allFit = fits;
        for (const NodeRef& below : NodesBelow(node.path)) {
            if (to.size() + below->path.size() - node.path.size() > maxPathUnits) {
                allFit = false;
                fits = fits && below->holders == 0;
            }
        }
        return fits == allFit ? std::optional(fits) : std::nullopt;
    }
    void Rename() {
        const NodeRef node = Pick(true, true);
        if (!node) {
            return;
        }
        const std::u16string directory = Parent(node->path);
        const std::u16string name = Chance(8) ? Fold(Name(node->path)) : NewName(directory);
        const std::u16string to = JoinPath(directory, name);
        const std::optional<bool> fits = Fits(*node, to);
        if (!fits) {
            return;
        }
        Say("  " + Printable(node->path) + " to " + Printable(name));
        const bool expected = *fits && !Find(to), isTight = IsRoomShort(to, 0);
        const bool done =
            Fat_RenameFile(Spelled(node->path).c_str(),
                           JoinPath(name.size() < 250 ? u"Other" : u"", name).c_str());
        EXPECT_TRUE(done == expected || (expected && isTight)) << Printable(to);
        if (done) {
            node->times = {};
            Rebase(node, to);
        }
    }
    void Move() {
        const NodeRef node = Pick(true, true);
        const NodeRef target = Chance(4) ? nullptr : Pick(true, Chance(10));
        if (!node) {
            return;
        }
        const std::u16string directory = target ? target->path : u"";
        const std::u16string to = JoinPath(directory, Name(node->path));
        const bool isInside = target == node || IsBelow(Fold(directory), node->path);
        const bool stays = Find(Parent(node->path)) == target;
        const std::optional<bool> fits = isInside || stays ? true : Fits(*node, to);
        if (!fits) {
            return;
        }
        Say("  " + Printable(node->path) + " to " + Printable(directory));
        const bool isFree = *fits && !Find(to) && node->holders == 0 &&
                            (!target || (target->isDirectory && target->holders == 0));
        const bool expected = !isInside && (stays || isFree), isTight = IsRoomShort(to, 0);
        const bool done = Fat_MoveFile(Spelled(node->path).c_str(),
                                       target ? Spelled(directory).c_str() : nullptr);
        EXPECT_TRUE(done == expected || (expected && isTight)) << Printable(to);
        if (done && !stays) {
            Rebase(node, to);
        }
    }

    // ---- Actions: handles

    void Transfer() {
        WithHandle(true, [&](const HeldFile& file) {
            const auto& [of, ref, handle] = file;
            Node& node = *ref;
            if (node.isDirectory) {
                const Bytes dots = ReadAt(handle, 0, 64).value_or(Bytes(64));
                EXPECT_TRUE(dots[0] == '.' && dots[1] == ' ' && dots[32] == '.' && dots[33] == '.');
                return;
            }
            const bool isEx = Chance(2), isWrite = Chance(2);
            const size_t size = node.content.size();
            const size_t offset = isEx ? Below(rng, size + 2) : node.position;
            const auto count = static_cast<unsigned int>(Below(rng, Chance(2) ? 100 : size + 9));
            const size_t expected = std::min<size_t>(count, size - std::min(offset, size));
            Bytes buffer = RandomBytes(rng, count + 1);
            const auto place = node.content.begin() + static_cast<long>(std::min(offset, size));
            const auto position = static_cast<long long>(offset);
            unsigned int done = 77;
            const bool result =
                isWrite ? isEx ? Fat_WriteFileEx(handle, position, count, buffer.data(), &done)
                               : Fat_WriteFile(handle, count, buffer.data(), &done)
                : isEx ? Fat_ReadFileEx(handle, position, count, buffer.data(), &done)
                        : Fat_ReadFile(handle, count, buffer.data(), &done);
            EXPECT_TRUE(result == (!isEx || offset < size) && done == expected);
            const auto length = static_cast<long>(expected);
            if (isWrite) {
                std::copy_n(buffer.begin(), length, place);
            }
            EXPECT_TRUE(std::equal(place, place + length, buffer.begin()));
            node.position += isEx ? 0 : static_cast<uint32_t>(expected);
        });
    }
    void Seek() {
        WithHandle(true, [&](const HeldFile& file) {
            Node& node = *file.node;
            const auto size = static_cast<uint32_t>(node.content.size());
            const auto offset = static_cast<uint32_t>(Below(rng, size + 9));
            const auto origin = static_cast<unsigned int>(Below(rng, 4));
            const uint32_t targets[] = {offset, node.position + offset,
                                        offset <= size ? size - offset : 0, node.position};
            EXPECT_TRUE(Fat_SetFileOffset(file.handle, offset, origin));
            node.position = std::min(targets[origin], size);
            FatFileInfo info{};
            unsigned int actualSize = 77, position = 77;
            EXPECT_TRUE(Fat_GetFileAttribute(file.handle, &info) &&
                        Fat_GetFileSize(file.handle, &actualSize) &&
                        Fat_GetFileOffset(file.handle, &position));
            EXPECT_TRUE(actualSize == size && position == node.position &&
                        info.attributes == node.attributes &&
                        Fat_IsDir(file.handle) == node.isDirectory);
            EXPECT_EQ(Printable(Fold(NameOf(info))), Printable(Fold(Name(node.path))));
        });
    }
    void SetAttributes() {
        WithHandle(true, [&](const HeldFile& file) {
            const auto& [of, ref, handle] = file;
            Node& node = *ref;
            EntryTimes& times = node.times;
            FatFileInfo info{};
            EXPECT_TRUE(Fat_GetFileAttribute(handle, &info));
            info.attributes = static_cast<unsigned int>(Below(rng, 256));
            int64_t written = 0;
            times.writeDate = static_cast<uint16_t>(Below(rng, 128) << 9 | 0x2F);
            times.writeTime = static_cast<uint16_t>(Below(rng, 24) << 11 | 0x6D);
            times.accessDate = times.writeDate;
            EXPECT_TRUE(FatTimeToSystemTime(times.writeDate, times.writeTime, &written));
            info.lastWriteTimeLow = info.lastAccessTimeLow = static_cast<unsigned int>(written);
            info.lastWriteTimeHigh = info.lastAccessTimeHigh =
                static_cast<unsigned int>(written >> 32);
            EXPECT_TRUE(Fat_SetFileAttribute(handle, &info));
            node.attributes =
                static_cast<uint8_t>((info.attributes & ~0x18U) | (node.isDirectory ? 0x10U : 0U));
        });
    }
    void ResizeTo(const HeldFile& file, uint64_t size) {
        const FatVolumeInfo info = file.side->mounted->Info();
        const uint64_t c = info.bytesPerCluster, old = file.node->content.size();
        const bool expected = (size + c - 1) / c <= (old + c - 1) / c + info.freeClusters;
        Say("  from " + std::to_string(old) + " to " + std::to_string(size));
        EXPECT_EQ(Fat_SetFileSize(file.handle, static_cast<unsigned int>(size)), expected);
        if (expected) {
            ReadGrown(file, size);
        }
    }
    void Resize() {
        WithHandle(false, [&](const HeldFile& file) {
            const auto& [of, ref, handle] = file;
            Node& node = *ref;
            const uint32_t c = of->mounted->Info().bytesPerCluster;
            if (!node.isDirectory) {
                ResizeTo(file, RandomSize(rng, c, 700000));
                return;
            }
            const uint64_t sizes[] = {0, (1ULL << 32) - c + 1, (2U << 20) + 1, Below(rng, 40000)};
            const size_t choice = Below(rng, 4);
            const bool done = Fat_SetFileSize(handle, static_cast<unsigned int>(sizes[choice]));
            EXPECT_TRUE(!done || choice == 3);
        });
    }
    // To the last free cluster, and not one further.
    void UseAllRoom() {
        WithHandle(false, [&](const HeldFile& file) {
            const auto& [of, ref, handle] = file;
            Node& node = *ref;
            const FatVolumeInfo info = of->mounted->Info();
            const uint64_t c = info.bytesPerCluster;
            const uint64_t size = ((node.content.size() + c - 1) / c + info.freeClusters) * c;
            if (!node.isDirectory && size < 3000000) {
                ResizeTo(file, size);
                ResizeTo(file, size + 1);
                ResizeTo(file, size - std::min(size, Below(rng, 30) * c));
            }
        });
    }
    void OpenMany() {
        for (uint64_t left = Below(rng, Chance(3) ? 170 : 20); left > 0; --left) {
            if (const NodeRef node = Pick(true, true)) {
                Open(node);
            }
        }
    }
    void CloseMany() {
        for (uint64_t left = Below(rng, held.size() + 1); left > 0; --left) {
            Close(Below(rng, held.size()));
        }
    }

    // ---- Actions: enumerating

    static int FindFirst(const NodeRef& directory, FatFileInfo* info) {
        return directory ? Fat_FindFirstFile(directory->path.c_str(), info)
                         : Fat_FindFirstRootFile(info);
    }
    static void See(HeldFind& find, const FatFileInfo& info) {
        const std::u16string name = Fold(NameOf(info));
        if (name == u"." || name == u"..") {
            return;
        }
        const std::u16string directory = find.directory ? Fold(find.directory->path) : u"";
        const auto found = find.side->nodes.find(JoinPath(directory, name));
        EXPECT_TRUE(found != find.side->nodes.end() && info.attributes == found->second->attributes)
            << Printable(name);
        EXPECT_TRUE(find.seen.insert(name).second || !find.stable.contains(name))
            << "twice: " << Printable(name);
    }
    void StartFinds() {
        for (uint64_t left = Chance(20) ? findHandles : 2; left > 0; --left) {
            StartFind();
        }
    }
    void StartFind() {
        const NodeRef directory = Chance(3) ? nullptr : Pick(true, false);
        const std::set<std::u16string> names = ChildNames(*side, directory);
        FatFileInfo info{};
        const int handle = FindFirst(directory, &info);
        EXPECT_EQ(handle >= 0, (directory || !names.empty()) && finds.size() < findHandles);
        if (handle >= 0) {
            finds.push_back({side, directory, handle, names});
            See(finds.back(), info);
            if (directory) {
                ++directory->holders;
            }
        }
    }
    void NextFind() {
        if (finds.empty()) {
            return;
        }
        const size_t index = Below(rng, finds.size());
        HeldFind& find = finds[index];
        FatFileInfo info{};
        bool isFound = true;
        for (uint64_t left = 1 + Below(rng, 12); left > 0 && isFound; --left) {
            isFound = Fat_FindNextFile(find.handle, &info);
            if (isFound) {
                See(find, info);
            }
        }
        if (isFound) {
            return;
        }
        EXPECT_TRUE(std::includes(find.seen.begin(), find.seen.end(), find.stable.begin(),
                                  find.stable.end()));
        if (Chance(2)) {
            CloseFind(index);
        } else {  // the next call starts over
            find.stable = ChildNames(*find.side, find.directory);
            find.seen.clear();
        }
    }
};

const std::vector<Model::Action> Model::actions = {{"create file", &Model::CreateFile, 4},
                                                   {"create dir", &Model::CreateDir, 3},
                                                   {"fill", &Model::FillDirectory, 1},
                                                   {"delete", &Model::Delete, 2},
                                                   {"delete tree", &Model::DeleteTree, 1},
                                                   {"delete listed", &Model::DeleteWhileListing, 1},
                                                   {"rename", &Model::Rename, 3},
                                                   {"move", &Model::Move, 3},
                                                   {"transfer", &Model::Transfer, 4},
                                                   {"seek", &Model::Seek, 2},
                                                   {"attributes", &Model::SetAttributes, 1},
                                                   {"resize", &Model::Resize, 3},
                                                   {"use all room", &Model::UseAllRoom, 1},
                                                   {"open many", &Model::OpenMany, 2},
                                                   {"close many", &Model::CloseMany, 1},
                                                   {"start finds", &Model::StartFinds, 2},
                                                   {"next find", &Model::NextFind, 3},
                                                   {"flush", &Model::Flush, 1},
                                                   {"switch", &Model::Switch, 1},
                                                   {"remount", &Model::Remount, 1}};

size_t PickAction(Rng& rng) {
    uint64_t total = 0;
    for (const Model::Action& action : Model::actions) {
        total += action.weight;
    }
    size_t picked = 0;
    for (uint64_t at = Below(rng, total); at >= Model::actions[picked].weight; ++picked) {
        at -= Model::actions[picked].weight;
    }
    return picked;
}

// What is done, and what all choices in it follow from: steps can be left out.
struct Step {
    size_t action;
    uint64_t state;
};
using Steps = std::vector<Step>;

// The first failure, or nothing.
std::string RunSteps(size_t geometry, uint64_t sequence, const Steps& steps, std::string* said) {
    testing::TestPartResultArray failures;
    const testing::ScopedFakeTestPartResultReporter reporter(&failures);
    ResetShortNameTailsForTests();
    Fat_LibInitialize();
    {
        Model model(geometry, sequence, said);
        for (size_t i = 0; i < steps.size() && failures.size() == 0; ++i) {
            model.Do(steps[i].action, steps[i].state);
        }
        if (failures.size() == 0) {
            model.Finish();
        }
    }
    EXPECT_TRUE(Fat_LibTerminate());
    if (failures.size() == 0) {
        return "";
    }
    const testing::TestPartResult& first = failures.GetTestPartResult(0);
    return "line " + std::to_string(first.line_number()) + ": " + first.message();
}

// Leaves out what the failure does not need: halves, quarters, ... single steps.
Steps Shrink(size_t geometry, uint64_t sequence, Steps steps) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (size_t part = steps.size() / 2; part > 0; part /= 2) {
        for (size_t at = 0; at < steps.size();) {
            Steps fewer = steps;
            const auto begin = fewer.begin() + static_cast<long>(at);
            fewer.erase(begin, begin + static_cast<long>(std::min(part, steps.size() - at)));
            if (std::chrono::steady_clock::now() > deadline) {
                return steps;
            }
            if (RunSteps(geometry, sequence, fewer, nullptr).empty()) {
                at += part;
            } else {
                steps = fewer;
            }
        }
    }
    return steps;
}

uint64_t NumberFromEnvironment(const char* name, uint64_t otherwise) {
    const char* text = std::getenv(name);
    return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

class ChangeModel : public testing::TestWithParam<size_t> {};

TEST_P(ChangeModel, ShowsWhatWasDone) {
    setenv("TZ", "UTC", 1);
    tzset();
    FixClockForTests(1710510330);  // 2024-03-15 13:45:30
    uint64_t left = NumberFromEnvironment("FATVOL_MODEL_OPERATIONS", 3000);
    for (uint64_t sequence = NumberFromEnvironment("FATVOL_TEST_SEQUENCE", 1);
         left > 0 && !HasFailure(); ++sequence) {
        Rng rng(sequence);
        Steps steps;
        for (; left > 0 && steps.size() < stepsPerSequence; --left) {
            const size_t action = PickAction(rng);
            steps.push_back({action, rng()});
        }
        if (RunSteps(GetParam(), sequence, steps, nullptr).empty()) {
            continue;
        }
        steps = Shrink(GetParam(), sequence, steps);
        std::string said;
        const std::string failure = RunSteps(GetParam(), sequence, steps, &said);
        ADD_FAILURE() << "FATVOL_TEST_SEQUENCE=" << sequence << "\n"
                      << failure << "\nafter these steps:\n"
                      << said;
    }
    FixClockForTests(std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Geometries, ChangeModel, testing::Range(size_t{0}, std::size(layouts)));

}  // namespace
}  // namespace fatvol::test
