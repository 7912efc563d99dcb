#include "storage/boot_sector.h"

#include <bit>

#include "api/fatvol.h"
#include "storage/little_endian.h"

namespace fatvol {
namespace {

constexpr std::size_t BS_jmpBoot = 0, BPB_BytsPerSec = 11, BPB_SecPerClus = 13, BPB_RsvdSecCnt = 14,
                      BPB_NumFATs = 16, BPB_RootEntCnt = 17, BPB_TotSec16 = 19, BPB_Media = 21,
                      BPB_FATSz16 = 22, BPB_TotSec32 = 32, BPB_FATSz32 = 36, BPB_ExtFlags = 40,
                      BPB_FSVer = 42, BPB_RootClus = 44, BPB_FSInfo = 48, SignatureOffset = 510;

constexpr std::uint8_t SingleActiveFat = 0x80;  // of BPB_ExtFlags: the FATs are not mirrored

bool IsJumpOk(std::uint8_t first) {
    return first == 0xE9 || first == 0xEB || first == 0x49;
}

bool IsMediaOk(std::uint8_t media) {
    return media == 0xF0 || (media >= 0xF8 && media != 0xFA);
}

bool AreSizesOk(const std::uint8_t* b) {
    const std::uint16_t sector = LoadU16(b + BPB_BytsPerSec);
    const std::uint8_t cluster = b[BPB_SecPerClus];
    return sector >= 128 && sector <= 4096 && std::has_single_bit(sector) && cluster <= 128 &&
           std::has_single_bit(cluster);
}

bool IsFat32Layout(const std::uint8_t* b) {
    return LoadU16(b + BPB_FATSz16) == 0;
}

bool AreRegionsOk(const std::uint8_t* b) {
    if (LoadU16(b + BPB_RsvdSecCnt) == 0 || b[BPB_NumFATs] == 0) {
        return false;
    }
    if (LoadU16(b + BPB_TotSec16) == 0 && LoadU32(b + BPB_TotSec32) == 0) {
        return false;
    }
    return !IsFat32Layout(b) || (LoadU32(b + BPB_FATSz32) != 0 && LoadU16(b + BPB_FSVer) == 0);
}

bool IsLayoutOk(const std::uint8_t* b) {
    return IsFat32Layout(b) ? (b[BPB_ExtFlags] & SingleActiveFat) == 0
                            : LoadU16(b + BPB_RootEntCnt) != 0;
}

}  // namespace

bool IsBootSectorOk(std::uint8_t* bootSector) {
    if (LoadU16(bootSector + SignatureOffset) != CVolumeStorage::MBR_DBR_MAGIC_TAG) {
        return false;
    }
    if (LoadU16(bootSector + BPB_TotSec16) != 0) {
        StoreU32(bootSector + BPB_TotSec32, 0);
    }
    return IsJumpOk(bootSector[BS_jmpBoot]) && AreSizesOk(bootSector) && AreRegionsOk(bootSector) &&
           IsMediaOk(bootSector[BPB_Media]) && IsLayoutOk(bootSector);
}

std::uint32_t BytesPerSectorOf(const std::uint8_t* bootSector) {
    return LoadU16(bootSector + BPB_BytsPerSec);
}

Mpb MakeMpb(const std::uint8_t* bootSector) {
    Mpb mpb{};
    mpb.BPB_NumFATs = bootSector[BPB_NumFATs];
    mpb.BPB_SecPerClus = bootSector[BPB_SecPerClus];
    mpb.BPB_TotSec16 = LoadU16(bootSector + BPB_TotSec16);
    mpb.BPB_RootEntCnt = LoadU16(bootSector + BPB_RootEntCnt);
    mpb.BPB_FATSz16 = LoadU16(bootSector + BPB_FATSz16);
    mpb.BPB_BytsPerSec = LoadU16(bootSector + BPB_BytsPerSec);
    mpb.BPB_RsvdSecCnt = LoadU16(bootSector + BPB_RsvdSecCnt);
    mpb.BPB_TotSec32 = LoadU32(bootSector + BPB_TotSec32);
    if (IsFat32Layout(bootSector)) {
        mpb.BPB_FSInfo = LoadU16(bootSector + BPB_FSInfo);
        mpb.BPB_FATSz32 = LoadU32(bootSector + BPB_FATSz32);
        mpb.BPB_RootClus = LoadU32(bootSector + BPB_RootClus);
    }
    return mpb;
}

}  // namespace fatvol
