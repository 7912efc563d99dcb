// Judges a volume by its raw bytes alone, and reads its whole tree.
#pragma once

#include "fat_image.h"

namespace fatvol::test {

struct ImageReport {
    std::vector<std::string> faults;
    // Apart from `faults`, so that a test can tolerate them.
    uint64_t lostClusters = 0;  // marked in use, in no chain
    // Entries whose short name was met before in their directory; shown names (long, or short
    // without long) that occur twice are faults.
    std::vector<std::u16string> duplicateShortNames;
    bool areFatsDifferent = false;  // the first two
    bool isFreeCountWrong = false;  // in FSInfo; unknown is right

    uint64_t freeClusters = 0;
    std::string volumeLabel;  // 11 bytes; empty when there is none

    bool IsSound() const { return Text().empty(); }
    std::string Text() const;  // a line for each fault, the tolerable ones included
};

ImageReport CheckImage(const MemoryDisk& disk);

// What can be read of a volume, sound or not. A file's content stops at `contentLimit` bytes.
Tree ReadTree(const MemoryDisk& disk, uint64_t contentLimit = 64U << 20);

}  // namespace fatvol::test
