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
    const char16_t* rest;  // the path after the separator
};

// A path prepared for lookups: the keys of the whole and of every directory on the way.
struct PathKeys {
    const char16_t* path = nullptr;  // the caller's, zero-terminated
    std::uint32_t prefixCount = 0;   // one prefix per separator
    PrefixKey prefixes[MaxPathPrefixes];
    NameKey fullKey;
    char16_t upcased[PathBufferUnits];  // the whole path, zero-terminated
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
FatStatus FindPathEntry(FatVolume& volume, const PathKeys& keys, FileReference* parent,
                        DirItem** item);

// A new object for an item; a directory comes with its listing. STATUS_FILE_CORRUPT_ERROR when it
// cannot be initialised or loaded, STATUS_NO_MEMORY.
FatStatus OpenItem(FatVolume& volume, const DirItem& item, FileReference* object);

// Gives an object the key and key string of an upper-cased path, of which `key` is the key, and
// adds it to the cache of its volume. STATUS_NO_MEMORY leaves it uncached.
FatStatus CacheObject(CFatFile& object, const NameKey& key, const char16_t* upcasedPath);

}  // namespace fatvol
