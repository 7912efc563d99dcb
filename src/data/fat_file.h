// The object of an open file or directory of a mounted volume, the root directory included. It is
// shared and counted: handle slots, find records and the open-object cache hold one reference
// each, and operations hold one on every object that they use. When the last one goes, the object
// writes its dirty blocks and is destroyed.
//
// An object whose volume is unmounted while a handle still holds it is detached: it keeps nothing
// but its handle, and every operation on it fails.
//
// Invariants, while `volume` is set:
//  1. allocatedSize is that of the clusters in `runs`, or the size of the fixed root region.
//  2. firstCluster is that of `entry`: FixedRootCluster for the fixed root alone, and 0 exactly
//     when there are no clusters.
//  3. Between calls, listing is set exactly for a directory.
//  4. The object is in liveObjects of its volume.
//  5. Every cluster in `runs` is one of the volume's.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "data/block_cache.h"
#include "data/cluster_run_list.h"
#include "dir/dir_entry.h"
#include "ops/key_table.h"
#include "ops/open_object_cache.h"
#include "platform/intrusive_list.h"
#include "storage/fat_status.h"

struct FatVolume;

namespace fatvol {

struct DirItem;
struct DirListing;
struct LiveObjectTag;

// The key of an object in the open-object cache, and the way back from it.
struct OpenKey : KeyNode {
    CFatFile* object = nullptr;
};

class CFileBase {
public:
    CFileBase() = default;
    CFileBase(const CFileBase&) = delete;
    CFileBase& operator=(const CFileBase&) = delete;
    virtual ~CFileBase() = default;
};

class CFatFile final : public CFileBase,
                       public ListNode<OpenObjectTag>,
                       public ListNode<LiveObjectTag> {
public:
    CFatFile();
    ~CFatFile() override;  // only Release may destroy an object

    OpenKey openKey;
    // The path from the root, upper-cased (folded for comparing), zero-terminated; null for the
    // root directory.
    std::unique_ptr<char16_t[]> keyString;
    std::uint32_t refCount = 1;
    FatVolume* volume = nullptr;
    ShortEntry entry{};  // working copy of the object's short entry
    std::uint32_t longNameLength = 0;
    char16_t longName[MaxLongNameUnits];  // without terminator
    std::uint32_t position = 0;           // bytes; of the handles
    std::uint32_t firstCluster = 0;
    std::uint64_t allocatedSize = 0;  // bytes
    // Where the chain of a directory ends in the FAT, with the mark WaitingEnd, while the clusters
    // by which it has grown wait for their link; otherwise 0.
    std::uint64_t linkedSize = 0;  // bytes
    ClusterRunList runs;
    BlockIndex blocks;
    std::unique_ptr<DirListing> listing;
};

enum class ObjectOrigin {
    Entry,       // an entry on the medium
    MountedRoot  // the item that mounting makes for the root directory
};

// Initialises a new object from an item: copies entry and long name and follows the cluster chain.
// STATUS_DISK_CORRUPT_ERROR for a chain that leaves the clusters or does not end; other failures
// are those of the FAT read or STATUS_NO_MEMORY. After a failure the object is only fit to be
// released.
FatStatus InitFromItem(CFatFile& file, FatVolume& volume, const DirItem& item,
                       ObjectOrigin origin = ObjectOrigin::Entry);

// Copies an item's entry and long name, which describe the object anew after a rename.
void CopyEntryAndName(CFatFile& file, const DirItem& item);

// The size that bounds every transfer: of a directory its clusters, of a file its entry's size.
std::uint64_t DataSize(const CFatFile& file);

// The cluster at which the chain of an object that has clusters ends in the FAT.
std::uint32_t LastLinkedCluster(const CFatFile& file);

inline bool IsDirectory(const CFatFile& file) {
    return IsDirectory(file.entry);
}

inline void AddReference(CFatFile& file) {
    ++file.refCount;
}

// Drops a reference and destroys the object when it was the last one. Dirty blocks that cannot be
// written then are lost, which the volume remembers.
void Release(CFatFile& file);

// Release, with the position set to 0 first: for handles, and for operations that opened the
// object by path.
void CloseRelease(CFatFile& file);

// Frees all that the object holds of its volume, dirty blocks written or not, and leaves an empty
// object without a volume. Blocks that cannot be written are lost, which the volume remembers.
void Detach(CFatFile& file, DirtyBlocks dirtyBlocks);

// One reference, dropped with Release at the end of its scope.
class FileReference {
public:
    FileReference() = default;
    // Takes over a reference that the caller has.
    explicit FileReference(CFatFile* held) : file(held) {}
    FileReference(FileReference&& other) noexcept : file(std::exchange(other.file, nullptr)) {}
    FileReference& operator=(FileReference&& other) noexcept {
        std::swap(file, other.file);
        return *this;
    }
    ~FileReference() {
        if (file) {
            Release(*file);
        }
    }

    // Adds a reference to an object that something else keeps alive until then.
    static FileReference To(CFatFile& object) {
        AddReference(object);
        return FileReference(&object);
    }

    CFatFile* Detached() { return std::exchange(file, nullptr); }  // the caller drops it
    CFatFile* get() const { return file; }
    CFatFile& operator*() const { return *file; }
    CFatFile* operator->() const { return file; }
    explicit operator bool() const { return file != nullptr; }

private:
    CFatFile* file = nullptr;
};

// A new object with one reference; empty when there is no memory.
FileReference NewFatFile();

// Whether the invariants above hold.
bool IsSound(const CFatFile& file);

}  // namespace fatvol
