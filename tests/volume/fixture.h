// What the tests of whole volumes share: the library's life, mounts, handles, and the tree of a
// volume as its host sees it.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "support/image_builder.h"
#include "support/image_checker.h"
#include "support/memory_storage.h"
#include "support/random_tree.h"

namespace fatvol::test {

using Bytes = std::vector<uint8_t>;

inline constexpr unsigned int blockBytes = 262144;  // of the caches of the FAT and of files

// The library runs for the time of a test, which leaves no handle open.
class VolumeTest : public testing::Test {
protected:
    VolumeTest() { Fat_LibInitialize(); }
    void TearDown() override { EXPECT_TRUE(Fat_LibTerminate()); }
};

// A mounted volume, the current one at first. Unmounted at the end at the latest, when the storage
// must have been used as agreed.
struct Mounted {
    explicit Mounted(MemoryDisk& storage)
        : disk(storage), volume(Fat_Mount(new MemoryStorage(storage), nullptr)) {
        EXPECT_NE(volume, nullptr);
    }
    ~Mounted() {
        EXPECT_TRUE(!volume || Unmount());
        EXPECT_EQ(disk.counters.Breaches(), 0U);
    }
    bool Unmount() { return Fat_Unmount(std::exchange(volume, nullptr)); }
    FatVolumeInfo Info() const {
        FatVolumeInfo info{};
        info.size = sizeof(info);
        EXPECT_TRUE(Fat_GetVolumeInfo(volume, &info));
        return info;
    }

    MemoryDisk& disk;
    FatVolume* volume;
};

// A file handle, closed at the end; -1 when the path cannot be opened.
struct File {
    explicit File(const std::u16string& path) : handle(Fat_OpenFile(path.c_str())) {}
    ~File() { EXPECT_EQ(Fat_CloseFile(handle), handle >= 0); }

    const int handle;
};

inline bool CanOpen(const std::u16string& path) {
    return File(path).handle >= 0;
}

// `count` bytes at an offset, fewer at the end; nothing when the read fails.
inline std::optional<Bytes> ReadAt(int handle, uint64_t offset, size_t count) {
    Bytes bytes(count);
    unsigned int done = 0;
    const bool isRead = Fat_ReadFileEx(handle, static_cast<long long>(offset),
                                       static_cast<unsigned int>(count), bytes.data(), &done);
    bytes.resize(done);
    return isRead ? std::optional(bytes) : std::nullopt;
}

inline std::optional<Bytes> ReadWhole(const std::u16string& path) {
    const File file(path);
    unsigned int size = 0;
    if (!Fat_GetFileSize(file.handle, &size)) {
        return std::nullopt;
    }
    return size == 0 ? Bytes() : ReadAt(file.handle, 0, size);
}

inline bool WriteAt(int handle, uint64_t offset, const Bytes& bytes) {
    const auto count = static_cast<unsigned int>(bytes.size());
    unsigned int done = 0;
    return Fat_WriteFileEx(handle, static_cast<long long>(offset), count, bytes.data(), &done) &&
           done == count;
}

// The shown name of an entry: the long one if there is one.
inline std::u16string NameOf(const FatFileInfo& info) {
    const std::u16string name(info.longName, std::size(info.longName));
    return info.longName[0] == 0 ? info.shortName : name.substr(0, name.find(u'\0'));
}

// The entries of a directory in their order, without dot entries; of the root for an empty path.
inline std::vector<FatFileInfo> List(const std::u16string& path) {
    std::vector<FatFileInfo> entries;
    FatFileInfo info{};
    const int handle =
        path.empty() ? Fat_FindFirstRootFile(&info) : Fat_FindFirstFile(path.c_str(), &info);
    for (bool isFound = handle >= 0; isFound; isFound = Fat_FindNextFile(handle, &info)) {
        if (NameOf(info) != u"." && NameOf(info) != u"..") {
            entries.push_back(info);
        }
    }
    EXPECT_EQ(Fat_CloseFindHandle(handle), handle >= 0);
    return entries;
}

// The tree below a directory, as far as `limit` entries, without what no function tells. What
// cannot be read is empty, and so are files of absurd sizes.
inline void ListTree(Tree& tree, size_t limit = SIZE_MAX, const std::u16string& directory = u"") {
    for (const FatFileInfo& info : List(directory)) {
        const std::u16string path = JoinPath(directory, NameOf(info));
        if (tree.size() >= limit || tree.contains(path)) {
            continue;
        }
        TreeNode& node = tree[path];
        node.entry = MakeShortEntry({}, static_cast<uint8_t>(info.attributes), 0, info.sizeLow);
        if (node.IsDirectory()) {
            ListTree(tree, limit, path);
        } else if (info.sizeLow < 1U << 24) {
            node.content = ReadWhole(path).value_or(Bytes());
        }
    }
}

// The calls logged since the last time.
inline std::vector<Call> TakeCalls(MemoryDisk& disk) {
    return std::exchange(disk.calls, {});
}

inline Call CallAt(CallKind kind, uint64_t position, uint64_t count) {
    return {kind, static_cast<long long>(position), static_cast<unsigned int>(count)};
}

}  // namespace fatvol::test
