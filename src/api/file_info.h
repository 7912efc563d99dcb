// Filling the records that hosts receive.
#pragma once

#include <cstdint>

#include "api/fatvol.h"

namespace fatvol {

class CFatFile;
struct DirItem;
struct ShortEntry;

// Attributes, size, times and names of a directory entry. A time that is none leaves its field as
// it was.
void FillFromItem(const DirItem& item, FatFileInfo* info);
void FillFromFile(const CFatFile& file, FatFileInfo* info);

// Attributes and times of a record in the form of an entry: `entry` with these fields replaced. A
// time that the entry cannot hold, and the bits that make it a directory or a label, stay.
ShortEntry WithFileInfo(const ShortEntry& entry, const FatFileInfo& info);

// The long name (up to 260 units) and the short name as BASE.EXT or BASE, in UTF-16. A short name
// that is no text in the process's code page comes out empty.
void FillNames(std::uint32_t longLength, const char16_t* longName, const std::uint8_t* shortName,
               FatFileInfo* info);

// The size of the first version of FatVolumeInfo, which ended before `refusesChanges`.
inline constexpr unsigned int FirstVolumeInfoSize = 48;

// Facts of a volume in use, whose root directory is open, as far as the record's size goes: the
// whole record, or its first version.
void FillVolumeInfo(const FatVolume& volume, FatVolumeInfo* info);

}  // namespace fatvol
