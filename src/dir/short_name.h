// The generated 8.3 alias of a name that has no 8.3 form of its own: a basis made of the name's
// characters and a numeric tail. The tails come from one counter of the library, so successive
// aliases carry successive tails, whatever their directories.
#pragma once

#include <cstdint>

#include "dir/entry_name.h"

namespace fatvol {

class CFatFile;

// Converts units to at most `maximum` bytes of a basis: upper case, spaces and dots dropped, what
// no short name may hold replaced by '_'. The number of bytes produced.
std::uint32_t ConvertBasisPart(std::uint8_t* bytes, std::uint32_t maximum, const char16_t* units,
                               std::uint32_t count);

// Fills the short form of a parsed name with an alias that no entry of the loaded directory has, be
// it as its name or as its alias.
void GenerateShortName(const CFatFile& directory, ParsedName& parsed);

// Sets the counter of tails back to its start, as when the library is loaded.
void ResetShortNameTailsForTests();

}  // namespace fatvol
