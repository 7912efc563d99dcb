// The boot sector as far as the library reads it, and the media parameter record made of it.
//
//   offset size field              offset size field
//        0    1 BS_jmpBoot[0]          22    2 BPB_FATSz16
//       11    2 BPB_BytsPerSec         32    4 BPB_TotSec32
//       13    1 BPB_SecPerClus         36    4 BPB_FATSz32    (FAT32 layout)
//       14    2 BPB_RsvdSecCnt         40    2 BPB_ExtFlags   (FAT32 layout)
//       16    1 BPB_NumFATs            42    2 BPB_FSVer      (FAT32 layout)
//       17    2 BPB_RootEntCnt         44    4 BPB_RootClus   (FAT32 layout)
//       19    2 BPB_TotSec16           48    2 BPB_FSInfo     (FAT32 layout)
//       21    1 BPB_Media             510    2 signature
//
// A boot sector has the FAT32 layout exactly when BPB_FATSz16 is 0.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fatvol {

// The media parameter record that a host's GetMpbProc fills; its layout is part of that interface.
struct Mpb {
    std::uint8_t BPB_NumFATs;
    std::uint8_t BPB_SecPerClus;
    std::uint16_t BPB_TotSec16;
    std::uint16_t BPB_RootEntCnt;
    std::uint16_t BPB_FATSz16;
    std::uint16_t BPB_BytsPerSec;
    std::uint16_t BPB_RsvdSecCnt;
    std::uint32_t BPB_FSInfo;  // widened from 16 bits; 0 unless FAT32 layout
    std::uint32_t BPB_TotSec32;
    std::uint32_t BPB_FATSz32;   // 0 unless FAT32 layout
    std::uint32_t BPB_RootClus;  // 0 unless FAT32 layout
};
static_assert(sizeof(Mpb) == 28 && offsetof(Mpb, BPB_BytsPerSec) == 8 &&
              offsetof(Mpb, BPB_FSInfo) == 12 && offsetof(Mpb, BPB_RootClus) == 24);

// Whether the first 512 bytes of a volume are the boot sector of a volume that can be mounted.
// When the signature is right and BPB_TotSec16 is set, BPB_TotSec32 is cleared in the buffer,
// whatever the result, so that only one total is left to believe.
bool IsBootSectorOk(std::uint8_t* bootSector);

// The sector size in bytes that a boot sector declares.
std::uint32_t BytesPerSectorOf(const std::uint8_t* bootSector);

// The record of a boot sector.
Mpb MakeMpb(const std::uint8_t* bootSector);

}  // namespace fatvol
