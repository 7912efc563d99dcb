// The model of two volumes: trees of names and bytes, and what is open of them.
#pragma once

#include "dir/upcase.h"
#include "fixture.h"

namespace fatvol::test {

inline constexpr size_t fileHandles = 160, findHandles = 32, maxPathUnits = 259;

inline constexpr VolumeLayout modelLayouts[] = {
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
inline bool IsBelow(const std::u16string& key, const std::u16string& directory) {
    return key.starts_with(Fold(directory) + u"\\");
}
// The bytes of an entry that hold times.
inline std::string TimesOf(const Slot& entry) {
    const std::string bytes(entry.begin(), entry.end());
    return bytes.substr(13, 7) + bytes.substr(22, 4);
}
// What the volumes should hold, and the random choices made from it.
struct ModelTree {
    // `said` receives a line for each call, unless it is null.
    ModelTree(size_t geometry, uint64_t sequence, std::string* said)
        : rng(sequence),
          saying(said),
          sides{Side{ImageBuilder(modelLayouts[geometry])},
                Side{ImageBuilder(modelLayouts[(geometry + sequence) % std::size(modelLayouts)])}} {
    }

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
};

}  // namespace fatvol::test
