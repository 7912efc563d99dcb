#include "directory_tree.h"

#include <algorithm>
#include <cstdint>
#include <unordered_set>
#include <utility>

#include "listing.h"
#include "open_file.h"
#include "platform.h"
#include "volume_path.h"

namespace tool {

namespace {

constexpr unsigned int kEntryBytes = 32;

// The FNV-1a hash of the raw entries of a directory, up to the size that a directory may have.
std::uint64_t HashContents(OpenFile& directory) {
    constexpr unsigned int kMaxDirectoryBytes = 65536 * kEntryBytes;
    constexpr unsigned int kPieceBytes = 65536;
    std::vector<unsigned char> piece(kPieceBytes);
    std::uint64_t hash = 0xCBF29CE484222325;
    std::size_t count = 0;
    for (unsigned int read = 0; read < kMaxDirectoryBytes; read += kPieceBytes) {
        count = directory.Read(piece.data(), kPieceBytes);
        for (std::size_t i = 0; i < count; ++i) {
            hash = (hash ^ piece[i]) * 0x100000001B3;
        }
        if (count < kPieceBytes) {
            break;
        }
    }
    return hash;
}

// The root directory, which may have room of its own, is not counted.
std::uint64_t EntriesWithRoomOn(MountedImage& image) {
    const FatVolumeInfo info = image.Info();
    return std::uint64_t{info.clusterCount} * info.bytesPerCluster / kEntryBytes;
}

// On a damaged or hostile volume a directory can be reached on many ways, even through itself: the
// number of paths then has no sensible bound. Two directories of equal raw contents that hold a
// subdirectory share it, which no sound volume does. So a directory with subdirectories is entered
// only when its contents were not met before. Directories that overlap in part can still repeat
// many entries; all of them together end at what the volume has room for.
class TreeLoader {
public:
    TreeLoader(MountedImage& image, Report& report)
        : image_(image), report_(report), entriesLeft_(EntriesWithRoomOn(image)) {}

    void LoadChildren(TreeNode& node, const std::u16string& path) {
        if (platform::Interrupted()) {
            return;
        }
        try {
            for (Entry& entry : EntriesOf(node, path)) {
                node.children.push_back({std::move(entry), {}, false});
            }
        } catch (const Failure& failure) {
            node.isUnreadable = true;
            report_.Fail(failure);
        }
        for (TreeNode& child : node.children) {
            if (child.entry.IsDirectory()) {
                LoadChildren(child, JoinPath(path, child.entry.Name()));
            }
        }
    }

private:
    std::vector<Entry> EntriesOf(const TreeNode& node, const std::u16string& path) {
        if (path.empty()) {
            return CollectEntries(path);
        }
        OpenFile directory(image_, path, node.entry);
        std::vector<Entry> entries = CollectEntries(path);
        if (entries.size() > entriesLeft_) {
            throw Failure{DisplayPath(path), "not entered: more entries than the volume can hold"};
        }
        entriesLeft_ -= entries.size();
        if (std::any_of(entries.begin(), entries.end(),
                        [](const Entry& entry) { return entry.IsDirectory(); }) &&
            !entered_.insert(HashContents(directory)).second) {
            throw Failure{DisplayPath(path), "not entered: reached on another way already"};
        }
        return entries;
    }

    MountedImage& image_;
    Report& report_;
    std::unordered_set<std::uint64_t> entered_;
    std::uint64_t entriesLeft_;
};

}  // namespace

TreeNode LoadTree(MountedImage& image, Report& report, const std::u16string& path) {
    TreeNode node;
    node.entry.attributes = kDirectory;
    if (!path.empty()) {
        node.entry = OpenFile(image, path).Info();
    }
    if (node.entry.IsDirectory()) {
        TreeLoader(image, report).LoadChildren(node, path);
    }
    return node;
}

}  // namespace tool
