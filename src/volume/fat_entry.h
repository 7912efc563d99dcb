// The entry functions of the three FAT types; GetFatEntry and SetFatEntry go to those of the
// volume.
#pragma once

#include "volume/fat_table.h"

namespace fatvol {

using ForceFatEntryFunction = bool (*)(FatVolume&, std::uint32_t cluster, std::uint32_t value);

struct FatEntryFunctions {
    GetFatEntryFunction get;
    SetFatEntryFunction set;
    ForceFatEntryFunction force;
    // The entry of a cluster in the block that holds it.
    std::uint32_t (*load)(const FatBlock&, std::uint32_t cluster);
};

// The functions of a FAT type (12, 16 or 32).
FatEntryFunctions EntryFunctionsOf(std::uint32_t fatType);

}  // namespace fatvol
