// The open files and directories of a volume, found by path. The cache holds one reference on each
// object and keeps up to 160 of them, the least recently used leaving first. An object that
// something else holds too is passed over, so that a path never has two live objects; the cache
// may hold more than 160 objects for as long as that many are held.
//
// Invariants:
//  1. An object in the cache is in the recency list and in the key table, each once; count says
//     how many there are.
//  2. No two objects in the cache have the same key string.
#pragma once

#include <cstdint>

#include "ops/key_table.h"
#include "platform/cache_sizes.h"
#include "platform/intrusive_list.h"
#include "storage/fat_status.h"

namespace fatvol {

class CFatFile;

inline constexpr std::uint32_t OpenObjectModulus = 7;

struct OpenObjectTag;

struct OpenObjectCache {
    KeyTable keys{OpenObjectModulus};
    std::uint32_t count = 0;
    ListNode<OpenObjectTag> recency;  // next: least recently used
};

// The cached object of the folded path with this key (the path may go on behind it), or null. No
// reference is added.
CFatFile* FindOpenObject(const OpenObjectCache& cache, const NameKey& key,
                         const char16_t* foldedPath);

// Adds an object that has its key and key string, with a reference of the cache's own, and evicts
// others as long as there are too many. STATUS_NO_MEMORY changes nothing.
FatStatus AddOpenObject(OpenObjectCache& cache, CFatFile& object);

// Evicts objects that only the cache holds as long as there are too many: for when handles are
// closed. A grown directory goes only when it is linked. What cannot be written stays, and the next
// flush tells.
void TrimOpenObjectCache(OpenObjectCache& cache);

// Takes an object out and drops the cache's reference without touching the position.
void RemoveOpenObject(OpenObjectCache& cache, CFatFile& object);

// Writes an object and takes it out, unless others hold it or writing fails: false then, and it
// stays.
bool LetGoOpenObject(OpenObjectCache& cache, CFatFile& object);

// Makes an object the most recently used one.
void TouchOpenObject(OpenObjectCache& cache, CFatFile& object);

// Removes every object, least recently used first.
void EmptyOpenObjectCache(OpenObjectCache& cache);

// Whether the invariants above hold.
bool IsSound(const OpenObjectCache& cache);

}  // namespace fatvol
