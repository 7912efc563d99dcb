// What other programs, which must be there, find in a volume of a kind that they know.
#pragma once

#include "image_checker.h"

namespace fatvol::test {

// Expects that fsck.fat finds nothing, apart from an unknown free count, and that mcopy reads the
// content of some files as ReadTree does. Short names that occur twice are replaced on a copy
// first: what follows for fsck.fat from renaming them itself is no fault of the volume.
void ExpectJudgedSound(const MemoryDisk& disk);

}  // namespace fatvol::test
