// Volumes made by somebody who means harm.
#pragma once

#include <memory>

#include "hostile_storage.h"
#include "input.h"

namespace fatvol::test {

// The kinds of volumes that can be asked for. The last ones are huge, and so slow that only their
// own test takes them.
inline constexpr size_t smallVolumeKinds = 8, volumeKinds = 10;

struct HostileVolume {
    std::unique_ptr<HostileDisk> disk;
    bool isSound;
};

// A volume of a kind, mutated as the input says: a count, and that many mutations. The last of the
// small kinds is an image that stands in the input byte by byte.
HostileVolume MakeHostileVolume(size_t kind, Input& input);

// The names of entries that these volumes hold, and of some that they don't.
inline constexpr const char16_t* entryNames[] = {
    u"F", u"D", u"E", u"BIG", u"A long name of a file.txt", u"EMPTY", u"NEW", u"New long name"};

}  // namespace fatvol::test
