// The two 32-byte entries of a directory. A directory is addressed in slots: slot i is the 32 bytes
// at byte 32 * i of its data.
//
//   short entry                              long-name entry
//   offset size field                        offset size field
//        0   11 DIR_Name (8 base, 3 ext.)         0    1 LDIR_Ord: sequence number from 1, + 0x40
//       11    1 DIR_Attr                                 in the entry with the name's end
//       12    1 DIR_NTRes                         1   10 LDIR_Name1: 5 UTF-16 units
//       13    1 DIR_CrtTimeTenth                 11    1 LDIR_Attr: 0x0F
//       14    2 DIR_CrtTime                      12    1 LDIR_Type: 0
//       16    2 DIR_CrtDate                      13    1 LDIR_Chksum: of the short entry's name
//       18    2 DIR_LstAccDate                   14   12 LDIR_Name2: 6 units
//       20    2 DIR_FstClusHI                    26    2 LDIR_FstClusLO: 0
//       22    2 DIR_WrtTime                      28    4 LDIR_Name3: 2 units
//       24    2 DIR_WrtDate
//       26    2 DIR_FstClusLO
//       28    4 DIR_FileSize
//
// A name is a run of slots: its long-name entries, the last part of the name first, then the short
// entry. Byte 0 of an entry is 0x00 at the end of the directory and 0xE5 in a free slot.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "storage/little_endian.h"

namespace fatvol {

inline constexpr std::uint32_t DirEntrySize = 32;       // bytes
inline constexpr std::uint32_t MaxDirSlots = 65536;     // per directory
inline constexpr std::uint32_t ShortBaseSize = 8;       // bytes
inline constexpr std::uint32_t ShortExtensionSize = 3;  // bytes
inline constexpr std::uint32_t ShortNameSize = ShortBaseSize + ShortExtensionSize;
inline constexpr std::uint32_t UnitsPerLongEntry = 13;
inline constexpr std::uint32_t MaxLongEntries = 20;  // per name
inline constexpr std::uint32_t MaxLongNameUnits = MaxLongEntries * UnitsPerLongEntry;
inline constexpr std::uint32_t MaxRunSlots = MaxLongEntries + 1;

inline constexpr std::uint8_t EndMark = 0x00;
inline constexpr std::uint8_t DeletedMark = 0xE5;
inline constexpr std::uint8_t LeadingE5Substitute = 0x05;  // stands for a name's own 0xE5
inline constexpr std::uint8_t LastLongEntry = 0x40;
inline constexpr std::uint8_t LongSequenceMask = 0x3F;

inline constexpr std::uint8_t AttrVolumeLabel = 0x08;
inline constexpr std::uint8_t AttrDirectory = 0x10;
inline constexpr std::uint8_t AttrLongName = 0x0F;

// The first cluster that the mounted root directory of a FAT12/16 volume carries. On the medium it
// is out of range like any other such number.
inline constexpr std::uint32_t FixedRootCluster = 0xFFFFFFFF;

struct ShortEntry {
    std::uint8_t DIR_Name[ShortNameSize];
    std::uint8_t DIR_Attr;
    std::uint8_t DIR_NTRes;
    std::uint8_t DIR_CrtTimeTenth;
    std::uint8_t DIR_CrtTime[2];
    std::uint8_t DIR_CrtDate[2];
    std::uint8_t DIR_LstAccDate[2];
    std::uint8_t DIR_FstClusHI[2];
    std::uint8_t DIR_WrtTime[2];
    std::uint8_t DIR_WrtDate[2];
    std::uint8_t DIR_FstClusLO[2];
    std::uint8_t DIR_FileSize[4];
};
static_assert(sizeof(ShortEntry) == DirEntrySize && offsetof(ShortEntry, DIR_FstClusHI) == 20 &&
              offsetof(ShortEntry, DIR_FileSize) == 28);

struct LongEntry {
    std::uint8_t LDIR_Ord;
    std::uint8_t LDIR_Name1[10];
    std::uint8_t LDIR_Attr;
    std::uint8_t LDIR_Type;
    std::uint8_t LDIR_Chksum;
    std::uint8_t LDIR_Name2[12];
    std::uint8_t LDIR_FstClusLO[2];
    std::uint8_t LDIR_Name3[4];
};
static_assert(sizeof(LongEntry) == DirEntrySize && offsetof(LongEntry, LDIR_Name2) == 14 &&
              offsetof(LongEntry, LDIR_Name3) == 28);

inline bool IsDirectory(const ShortEntry& entry) {
    return (entry.DIR_Attr & AttrDirectory) != 0;
}

inline std::uint32_t FileSize(const ShortEntry& entry) {
    return LoadU32(entry.DIR_FileSize);
}

inline void SetFileSize(ShortEntry& entry, std::uint32_t sizeBytes) {
    StoreU32(entry.DIR_FileSize, sizeBytes);
}

inline std::uint32_t FirstCluster(const ShortEntry& entry) {
    return LoadU16(entry.DIR_FstClusLO) | static_cast<std::uint32_t>(LoadU16(entry.DIR_FstClusHI))
                                              << 16;
}

inline void SetFirstCluster(ShortEntry& entry, std::uint32_t cluster) {
    StoreU16(entry.DIR_FstClusLO, static_cast<std::uint16_t>(cluster));
    StoreU16(entry.DIR_FstClusHI, static_cast<std::uint16_t>(cluster >> 16));
}

// The names of the first two entries of a subdirectory.
inline constexpr std::uint8_t DotName[] = {'.', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
inline constexpr std::uint8_t DotDotName[] = {'.', '.', ' ', ' ', ' ', ' ',
                                              ' ', ' ', ' ', ' ', ' '};
static_assert(sizeof DotName == ShortNameSize && sizeof DotDotName == ShortNameSize);

inline bool HasShortName(const ShortEntry& entry, const std::uint8_t* shortName) {
    return std::memcmp(entry.DIR_Name, shortName, ShortNameSize) == 0;
}

// The checksum that ties long-name entries to the 11-byte name of their short entry.
std::uint8_t ShortNameChecksum(const std::uint8_t* shortName);

// Fills long-name entry number `sequence` (from 1; the last one of the name is so marked) with its
// 13 of the name's units, which are padded to whole entries.
void FillLongEntry(LongEntry& entry, const char16_t* name, std::uint32_t sequence, bool isLast,
                   std::uint8_t checksum);

// Copies the 13 units of a long-name entry in name order, stopping before a zero unit; the number
// of units copied.
std::uint32_t CopyLongNameUnits(const LongEntry& entry, char16_t* units);

}  // namespace fatvol
