// From a path to its object. A path here is one that NormalizePath made: components separated by
// single backslashes, at most MaxPathUnits units.
#pragma once

#include <cstdint>

#include "data/fat_file.h"
#include "ops/name_key.h"
#include "storage/fat_status.h"

struct FatVolume;

namespace fatvol {

struct DirItem;

inline constexpr std::uint32_t MaxPathUnits = 259;
inline constexpr std::uint32_t PathBufferUnits = 262;
inline constexpr std::uint32_t MaxPathPrefixes = 131;

// The key of the part of a path before one of its separators.
struct PrefixKey {
    NameKey key;
    const char16_t* rest;       // the path after the separator
    std::uint32_t lastCluster;  // of the directory, once the walk has reached it; otherwise 0
};

// A path prepared for lookups: the keys of the whole and of every directory on the way. It serves
// one walk, which leaves its marks there.
struct PathKeys {
    const char16_t* path = nullptr;  // the caller's, zero-terminated
    std::uint32_t prefixCount = 0;   // one prefix per separator
    PrefixKey prefixes[MaxPathPrefixes];
    NameKey fullKey;
    char16_t folded[PathBufferUnits];  // the whole path for comparing, zero-terminated
};

// Prepares a path, which must outlive the result.
void MakePathKeys(const char16_t* path, PathKeys* keys);

// The cached object of exactly this path, or null. No reference is added.
CFatFile* LookupOpenObject(const FatVolume& volume, const PathKeys& keys);

// Opens the object of a path, from the cache if it is there. Every directory on the way enters the
// cache. STATUS_NOT_FOUND when a component is missing or, but for the last, no directory;
// STATUS_FILE_CORRUPT_ERROR when an object cannot be initialised or loaded; STATUS_NO_MEMORY.
FatStatus OpenByPath(FatVolume& volume, const char16_t* path, FileReference* object);

// Finds the entry of a path that is not cached itself: its parent directory, held, and its item.
// Failures as for OpenByPath; directories opened before a failure stay cached.
FatStatus FindPathEntry(FatVolume& volume, PathKeys& keys, FileReference* parent, DirItem** item);

// A new object for an item at the end of the walk along a path; a directory comes with its listing.
// STATUS_FILE_CORRUPT_ERROR when it cannot be initialised or loaded, or is a directory that shares
// clusters with another open one or one on the way; STATUS_NO_MEMORY.
FatStatus OpenItem(FatVolume& volume, const PathKeys& keys, const DirItem& item,
                   FileReference* object);

// A walk along a path: the directory that it has reached, held, the rest of the path below that
// and the number of prefixes up to it.
struct PathWalk {
    FileReference directory;
    const char16_t* rest = nullptr;
    std::uint32_t prefix = 0;
};

// Starts at the deepest directory on the way that is open, or at the root. It may turn out to be a
// file.
PathWalk StartWalk(FatVolume& volume, PathKeys& keys);

// Copies the walk's next component to a buffer of PathBufferUnits units and returns what follows
// it: a separator, or the end.
const char16_t* NextComponent(const PathWalk& walk, char16_t* component);

// Moves a walk past its next component, into an object opened or made for it, which enters the
// cache under its prefix. STATUS_NO_MEMORY leaves the walk where it was.
FatStatus StepInto(FatVolume& volume, PathKeys& keys, FileReference object, PathWalk& walk);

}  // namespace fatvol
