// Giving objects their keys in the open-object cache, and new ones after a rename or move. All that
// can fail is done beforehand, so that a change on the volume is never left with objects that are
// known under the wrong path.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "data/fat_file.h"
#include "ops/name_key.h"
#include "storage/fat_status.h"

struct FatVolume;

namespace fatvol {

// Whether a folded path is that of a directory, or leads below it.
bool IsAtOrBelow(std::u16string_view path, std::u16string_view directory);

// A key string with its key, for which the cache has its place ready.
struct PreparedKey {
    NameKey key;
    std::unique_ptr<char16_t[]> keyString;
};

// Prepares the key of a folded path, of which `key` is the key (the path may go on behind it).
// STATUS_NO_MEMORY prepares nothing.
FatStatus PrepareKey(FatVolume& volume, const NameKey& key, const char16_t* foldedPath,
                     PreparedKey* prepared);

// Adds an object to the cache of its volume under a prepared key. Cannot fail.
void CacheObject(CFatFile& object, PreparedKey prepared);

// The new keys of all open objects at and below a path that is about to change.
class Rekeying {
public:
    // Prepares the keys. Both paths are normalised; their case does not matter.
    // STATUS_INVALID_PARAMETER when the new path, or with it that of an object below it that is
    // held, or cannot be written, would be longer than MaxPathUnits; STATUS_NO_MEMORY. Objects with
    // such a path that only the cache holds leave it.
    FatStatus Prepare(FatVolume& volume, std::u16string_view oldPath, std::u16string_view newPath);

    // Gives the objects their new keys. Cannot fail.
    void Apply(FatVolume& volume);

private:
    struct Change {
        FileReference object;  // held, so that the operation itself cannot evict it
        PreparedKey prepared;
    };

    std::unique_ptr<Change[]> changes;
    std::uint32_t count = 0;
};

}  // namespace fatvol
