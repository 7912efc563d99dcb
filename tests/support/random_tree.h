// Random, sound contents of volumes. The same generator state gives the same result everywhere.
#pragma once

#include <random>

#include "image_builder.h"

namespace fatvol::test {

using Rng = std::mt19937_64;

inline uint64_t Below(Rng& rng, uint64_t limit) {
    return rng() % limit;
}
std::vector<uint8_t> RandomBytes(Rng& rng, size_t count);

inline constexpr size_t maxPathUnits = 259;

enum class Names { Any, Ascii };

// A legal name of at most `maxUnits` units: plain 8.3, lower case, spaces and punctuation,
// characters beyond ASCII, surrogate pairs; up to 255 units.
std::u16string RandomName(Rng& rng, size_t maxUnits, Names names = Names::Any);

// 0, 1, or a size at or next to a multiple of the cluster size or of 256 KiB.
uint32_t RandomSize(Rng& rng, uint32_t clusterBytes, uint64_t maximum);

// Adds `entryCount` files and directories, fewer when room runs out, with attributes,
// deleted slots and fragmented chains; some space always stays free. Paths have at most 259 units.
// Returns builder.tree.
const Tree& FillRandomTree(ImageBuilder& builder, Rng& rng, uint32_t entryCount,
                           uint64_t maxFileBytes = 600000, Names names = Names::Any);

}  // namespace fatvol::test
