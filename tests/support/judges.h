// What other programs, which must be there, find in a volume of a kind that they know.
#pragma once

#include "image_checker.h"

namespace fatvol::test {

// Expects that fsck.fat finds nothing, apart from an unknown free count, and that mcopy reads the
// content of some files as ReadTree does. Volumes with a short name that occurs twice are passed
// over: fsck.fat would have it renamed.
void ExpectJudgedSound(const MemoryDisk& disk);

}  // namespace fatvol::test
