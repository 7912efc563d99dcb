// The model of two volumes: trees of names and bytes, and what is open of them.
#pragma once

#include "api/library_state.h"
#include "dir/upcase.h"
#include "fixture.h"
#include "volume/fat_volume.h"

namespace fatvol::test {

inline constexpr size_t fileHandles = 160, findHandles = 32;

// A file larger than the block cache, with bytes of no interest. The models leave it alone.
inline const std::u16string hugeName = u"HUGE";
inline constexpr uint32_t hugeBytes = 68U << 20, usualBytes = 4U << 20;

struct Node {
    std::u16string path;
    uint8_t attributes = 0x10;
    EntryTimes times = {};
    Bytes content = {};
    uint32_t position = 0;
    int holders = 0;                         // file and find handles on it
    size_t unknownFrom = 0, unknownEnd = 0;  // of the content

    bool IsDirectory() const { return (attributes & 0x10) != 0; }
};
using NodeRef = std::shared_ptr<Node>;

struct Side {
    MemoryDisk disk;
    FatVolume* volume = nullptr;
    NodeRef root = std::make_shared<Node>();
    std::map<std::u16string, NodeRef> nodes = {};  // the others, by folded path
    uint64_t failedAtFlush = 0;                    // how much had failed at the last one

    FatVolumeInfo Info() const {
        FatVolumeInfo info{};
        info.size = sizeof(info);
        EXPECT_TRUE(Fat_GetVolumeInfo(volume, &info));
        return info;
    }
};

// A file or find handle. Enumerations have how often each name was shown that was there at their
// start and has neither come nor gone since.
struct Held {
    Side* side;
    NodeRef node;
    int handle;
    std::map<std::u16string, int> shown = {};  // by folded name
};

inline std::u16string Fold(std::u16string text) {
    std::transform(text.begin(), text.end(), text.begin(), UpcaseUnit);
    return text;
}
inline std::u16string Parent(const std::u16string& path) {
    const size_t separator = path.rfind(u'\\');
    return separator == path.npos ? u"" : path.substr(0, separator);
}
inline std::u16string Name(const std::u16string& path) {
    return path.substr(path.rfind(u'\\') + 1);
}
// A volume's tree by folded paths.
inline Tree FoldedTree(const MemoryDisk& disk) {
    Tree folded;
    for (auto& [path, node] : ReadTree(disk, usualBytes)) {
        folded[Fold(path)] = std::move(node);
    }
    return folded;
}
// In all of an entry that functions tell of, and in content.
inline bool AreAlike(const TreeNode& found, const TreeNode& expected) {
    Slot entry = found.entry;
    std::fill_n(entry.begin(), 11, uint8_t{0});
    Put16(&entry[20], 0);
    Put16(&entry[26], 0);
    return entry == expected.entry && found.content == expected.content;
}

// What the volumes should hold, and the random choices made from it.
struct ModelTree {
    ModelTree(const ImageBuilder& first, const ImageBuilder& second)
        : sides{Side{first.disk}, Side{second.disk}} {
        Take(sides[0], first.tree);
        Take(sides[1], second.tree);
    }

    Rng rng;
    std::array<Side, 2> sides;
    Side* side = &sides[0];  // the current one
    std::vector<Held> files, finds;

    static void Take(Side& side, const Tree& tree) {
        for (const auto& [path, node] : tree) {
            if (path != hugeName) {
                side.nodes[Fold(path)] =
                    std::make_shared<Node>(Node{path, node.Attributes(), {}, node.content});
            }
        }
    }
    bool Chance(uint64_t in) { return Below(rng, in) == 0; }
    NodeRef Find(const std::u16string& path) const {
        const auto found = side->nodes.find(Fold(path));
        return path.empty() ? side->root : found == side->nodes.end() ? nullptr : found->second;
    }
    // A node with all below it, parents first.
    std::vector<NodeRef> Subtree(const NodeRef& top) const {
        std::vector<NodeRef> nodes;
        const std::u16string key = Fold(top->path), below = key + u"\\";
        for (const auto& [path, node] : side->nodes) {
            if (path == key || path.starts_with(below)) {
                nodes.push_back(node);
            }
        }
        return nodes;
    }
    static std::map<std::u16string, int> ChildNames(const Side& of, const NodeRef& directory) {
        std::map<std::u16string, int> names;
        const std::u16string key = Fold(directory->path);
        for (const auto& entry : of.nodes) {
            if (Parent(entry.first) == key) {
                names[Name(entry.first)] = 0;
            }
        }
        return names;
    }
    // A name came to or went from a directory: enumerations may show it or not.
    void ForgetShown(const std::u16string& path) {
        for (Held& find : finds) {
            if (find.side == side && find.node == Find(Parent(path))) {
                find.shown.erase(Fold(Name(path)));
            }
        }
    }
    void Add(const std::u16string& path, uint8_t attributes) {
        side->nodes[Fold(path)] = std::make_shared<Node>(Node{path, attributes});
        ForgetShown(path);
    }
    // Gives a node and all below it another path.
    void Rebase(const NodeRef& node, const std::u16string& to) {
        const std::u16string from = node->path;
        const std::vector<NodeRef> moved = Subtree(node);
        ForgetShown(from);
        for (const NodeRef& each : moved) {
            side->nodes.erase(Fold(each->path));
            each->path = to + each->path.substr(from.size());
        }
        for (const NodeRef& each : moved) {
            side->nodes[Fold(each->path)] = each;
        }
        ForgetShown(to);
    }

    // A directory, or a file too; null when there is none.
    NodeRef Pick(bool mayBeFile) {
        std::vector<NodeRef> choice;
        for (const auto& [key, node] : side->nodes) {
            if (mayBeFile || node->IsDirectory()) {
                choice.push_back(node);
            }
        }
        return choice.empty() ? nullptr : choice[Below(rng, choice.size())];
    }
    NodeRef PickParent(bool mayBeFile) {
        const NodeRef node = Chance(4) ? nullptr : Pick(mayBeFile);
        return node ? node : side->root;
    }
    // Either as it was created or folded.
    std::u16string Spelled(const std::u16string& path) { return Chance(2) ? path : Fold(path); }
    // A name for a directory, now and then one that is there or elsewhere, apart from case.
    std::u16string NewName(const std::u16string& directory) {
        const NodeRef node = Pick(true);
        if (node && Chance(5)) {
            return Fold(Name(node->path));
        }
        const size_t room = maxPathUnits - std::min(maxPathUnits - 1, directory.size() + 1);
        return RandomName(rng, Chance(8) ? room : std::min<size_t>(room, 24));
    }
    // Directories may be missing on the way, and the path may be too long.
    std::u16string NewPath() {
        std::u16string path = Spelled(PickParent(Chance(20))->path);
        const uint64_t names = Chance(30) ? 130 : Chance(6) ? Below(rng, 4) : 0;
        for (uint64_t left = names; left > 0; --left) {
            path = JoinPath(path, RandomName(rng, names < 4 ? 12 : Chance(99) ? 2 : 1));
        }
        return JoinPath(path, NewName(path));
    }
    // Whether a path can be created, room apart.
    bool IsCreatable(const std::u16string& path) const {
        bool isCreatable = path.size() <= maxPathUnits && !Find(path);
        for (std::u16string above = Parent(path); !above.empty(); above = Parent(above)) {
            const NodeRef node = Find(above);
            isCreatable = isCreatable && (!node || node->IsDirectory());
        }
        return isCreatable;
    }
    // Whether room may be short for a new entry, with its missing parents and `bytes` of data.
    bool IsRoomShort(const std::u16string& path, uint64_t bytes) const {
        const FatVolumeInfo info = side->Info();
        const uint64_t c = info.bytesPerCluster, entryClusters = 2 + 21 * 32 / c;
        uint64_t needed = bytes / c + 1;
        for (std::u16string at = path; !at.empty() && !Find(at); at = Parent(at)) {
            needed += entryClusters;
        }
        Bitmap& rootSlots = side->volume->rootDirectory->listing->slots;
        return info.freeClusters < needed ||
               (info.fatType != 32 && !Find(path.substr(0, path.find(u'\\'))) &&
                CountClearBits(rootSlots) < 21);
    }
    static Tree Expected(const Side& of) {
        Tree tree;
        for (const auto& [key, node] : of.nodes) {
            const auto size = static_cast<uint32_t>(node->content.size());
            tree[key] = {MakeShortEntry({}, node->attributes, 0, size, node->times), node->content};
        }
        return tree;
    }
};

}  // namespace fatvol::test
