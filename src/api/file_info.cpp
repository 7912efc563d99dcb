#include "api/file_info.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "data/fat_file.h"
#include "dir/dir_listing.h"
#include "dir/fat_time.h"
#include "platform/locale_text.h"
#include "volume/fat_volume.h"

// The layout that hosts are compiled against.
static_assert(sizeof(FatFileInfo) == 592);
static_assert(offsetof(FatFileInfo, attributes) == 0);
static_assert(offsetof(FatFileInfo, creationTimeLow) == 4);
static_assert(offsetof(FatFileInfo, lastAccessTimeLow) == 12);
static_assert(offsetof(FatFileInfo, lastWriteTimeLow) == 20);
static_assert(offsetof(FatFileInfo, sizeHigh) == 28);
static_assert(offsetof(FatFileInfo, sizeLow) == 32);
static_assert(offsetof(FatFileInfo, reserved) == 36);
static_assert(offsetof(FatFileInfo, longName) == 44);
static_assert(offsetof(FatFileInfo, shortName) == 564);
static_assert(offsetof(FatVolumeInfo, refusesChanges) == fatvol::FirstVolumeInfoSize);

namespace fatvol {
namespace {

void FillTime(std::uint16_t date, std::uint16_t time, unsigned int* low, unsigned int* high) {
    std::int64_t systemTime = 0;
    if (FatTimeToSystemTime(date, time, &systemTime)) {
        *low = static_cast<unsigned int>(systemTime);
        *high = static_cast<unsigned int>(systemTime >> 32);
    }
}

void FillFromEntry(const ShortEntry& entry, FatFileInfo* info) {
    info->attributes = entry.DIR_Attr;
    info->sizeHigh = 0;
    info->sizeLow = FileSize(entry);
    FillTime(LoadU16(entry.DIR_CrtDate), LoadU16(entry.DIR_CrtTime), &info->creationTimeLow,
             &info->creationTimeHigh);
    FillTime(LoadU16(entry.DIR_WrtDate), LoadU16(entry.DIR_WrtTime), &info->lastWriteTimeLow,
             &info->lastWriteTimeHigh);
    FillTime(LoadU16(entry.DIR_LstAccDate), 0, &info->lastAccessTimeLow, &info->lastAccessTimeHigh);
}

// Converts a space-padded field of a short name; the units without trailing spaces, or -1.
int ConvertField(const std::uint8_t* bytes, std::uint32_t size, char16_t* units) {
    int count = BytesToUnits(reinterpret_cast<const char*>(bytes), size, units, size);
    while (count > 0 && units[count - 1] == u' ') {
        --count;
    }
    return count;
}

// The units of a short name as BASE.EXT or BASE, or -1; `units` has room for both parts and a dot.
int ConvertShortName(const std::uint8_t* shortName, char16_t* units) {
    const int base = ConvertField(shortName, ShortBaseSize, units);
    if (base < 0) {
        return base;
    }
    const int extension =
        ConvertField(shortName + ShortBaseSize, ShortExtensionSize, units + base + 1);
    if (extension <= 0) {
        return extension < 0 ? extension : base;
    }
    units[base] = u'.';
    return base + 1 + extension;
}

}  // namespace

void FillNames(std::uint32_t longLength, const char16_t* longName, const std::uint8_t* shortName,
               FatFileInfo* info) {
    std::copy_n(longName, longLength, info->longName);
    if (longLength < std::size(info->longName)) {
        info->longName[longLength] = 0;
    }
    char16_t units[ShortBaseSize + 1 + ShortExtensionSize];
    const int length = std::max(ConvertShortName(shortName, units), 0);
    std::copy_n(units, length, info->shortName);
    info->shortName[length] = 0;
}

void FillFromItem(const DirItem& item, FatFileInfo* info) {
    FillFromEntry(item.entry, info);
    FillNames(item.longEntryCount != 0 ? NameLength(item) : 0, item.name.get(), item.entry.DIR_Name,
              info);
}

void FillFromFile(const CFatFile& file, FatFileInfo* info) {
    FillFromEntry(file.entry, info);
    FillNames(file.longNameLength, file.longName, file.entry.DIR_Name, info);
}

namespace {

// Stores a time in the two words of an entry; `time` may be null where only the date is kept.
void StoreTime(unsigned int low, unsigned int high, std::uint8_t* date, std::uint8_t* time) {
    const auto systemTime =
        static_cast<std::int64_t>(std::uint64_t{high} << 32 | std::uint64_t{low});
    FatTimeStamp stamp{};
    if (!SystemTimeToFatTime(systemTime, &stamp.date, &stamp.time)) {
        return;
    }
    StoreU16(date, stamp.date);
    if (time) {
        StoreU16(time, stamp.time);
    }
}

}  // namespace

ShortEntry WithFileInfo(const ShortEntry& entry, const FatFileInfo& info) {
    constexpr unsigned int Fixed = AttrDirectory | AttrVolumeLabel;
    ShortEntry changed = entry;
    changed.DIR_Attr =
        static_cast<std::uint8_t>((info.attributes & ~Fixed) | (entry.DIR_Attr & Fixed));
    StoreTime(info.creationTimeLow, info.creationTimeHigh, changed.DIR_CrtDate,
              changed.DIR_CrtTime);
    StoreTime(info.lastWriteTimeLow, info.lastWriteTimeHigh, changed.DIR_WrtDate,
              changed.DIR_WrtTime);
    StoreTime(info.lastAccessTimeLow, info.lastAccessTimeHigh, changed.DIR_LstAccDate, nullptr);
    return changed;
}

void FillVolumeInfo(const FatVolume& volume, FatVolumeInfo* info) {
    info->fatType = volume.fatType;
    info->bytesPerSector = volume.bytesPerSector;
    info->bytesPerCluster = volume.bytesPerCluster;
    info->clusterCount = volume.clusterCount;
    info->freeClusters = volume.clusterBitmap.freeCount;
    const DirListing& root = *volume.rootDirectory->listing;
    char16_t label[ShortNameSize];
    const int length = std::max(ConvertField(root.volumeLabel, ShortNameSize, label), 0);
    std::copy_n(label, length, info->volumeLabel);
    info->volumeLabel[length] = 0;
    if (info->size >= sizeof(FatVolumeInfo)) {
        info->refusesChanges = volume.isUncertain ? 1 : 0;
    }
}

}  // namespace fatvol
