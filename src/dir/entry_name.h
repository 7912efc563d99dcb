// How a name is stored: as a short entry alone, or with long-name entries in front of it.
#pragma once

#include <cstdint>

#include "dir/dir_entry.h"

namespace fatvol {

inline constexpr std::uint32_t NoDot = 0xFFFFFFFF;

struct ParsedName {
    std::uint32_t nameLength = 0;  // units
    // nameLength, or 0 for a plain 8.3 name of 7-bit characters, which needs no long entries.
    std::uint32_t longLength = 0;
    std::uint32_t lastDot = NoDot;  // index of the last '.'
    // 8 bytes base and 3 bytes extension, padded with spaces; first byte 0 when the name has no
    // 8.3 form.
    std::uint8_t shortForm[ShortNameSize] = {};
    char16_t name[MaxLongNameUnits + 1] = {};  // zero-terminated

    bool HasShortForm() const { return shortForm[0] != 0; }
};

// Parses a zero-terminated path component of at most MaxLongNameUnits units; of a longer name only
// so many are looked at. A name that cannot be converted strictly has no short form.
ParsedName ParseEntryName(const char16_t* name);

// Converts `count` units (the first one is looked at in any case) to at most `maximum` bytes of a
// short name, in upper case. False when a unit has no place in a short name or the room does not
// suffice; the bytes are then unspecified. `*wide` is set when a unit above 0x7F was met.
bool ConvertShortPart(const char16_t* units, std::uint32_t count, std::uint8_t* bytes,
                      std::uint32_t maximum, bool* wide);

}  // namespace fatvol
