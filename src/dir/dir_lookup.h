// Finding names in a directory's listing.
#pragma once

#include <cstdint>

namespace fatvol {

class CFatFile;
struct DirItem;

// The item of a zero-terminated path component in a loaded directory, or null. Letter case does not
// matter. An entry with a long name is found by that name only, never by its short alias; one
// without is found by its 8.3 name. Of several entries of one name the first added is found.
DirItem* FindDirItem(const CFatFile& directory, const char16_t* name);

// The item without long name whose 11-byte short name is this one, or null.
DirItem* FindShortItem(const CFatFile& directory, const std::uint8_t* shortName);

// Whether an entry of a loaded directory has this 11-byte short name, as its name or as the alias
// of a long one.
bool IsShortNameTaken(const CFatFile& directory, const std::uint8_t* shortName);

// Whether a loaded directory holds nothing but "." and "..".
bool IsDirEmpty(const CFatFile& directory);

}  // namespace fatvol
