// Filling the records that hosts receive.
#pragma once

#include <cstdint>

#include "api/fatvol.h"

namespace fatvol {

class CFatFile;
struct DirItem;

// Attributes, size, times and names of a directory entry. A time that is none leaves its field as
// it was.
void FillFromItem(const DirItem& item, FatFileInfo* info);
void FillFromFile(const CFatFile& file, FatFileInfo* info);

// The long name (up to 260 units) and the short name as BASE.EXT or BASE, in UTF-16. A short name
// that is no text in the process's code page comes out empty.
void FillNames(std::uint32_t longLength, const char16_t* longName, const std::uint8_t* shortName,
               FatFileInfo* info);

// Facts of a mounted volume; `info` is a whole record.
void FillVolumeInfo(const FatVolume& volume, FatVolumeInfo* info);

}  // namespace fatvol
