#include "dir/dir_entry.h"

namespace fatvol {
namespace {

// Where the units of a name stand in its long-name entry.
constexpr std::size_t UnitOffset(std::size_t unit) {
    if (unit < 5) {
        return offsetof(LongEntry, LDIR_Name1) + 2 * unit;
    }
    return unit < 11 ? offsetof(LongEntry, LDIR_Name2) + 2 * (unit - 5)
                     : offsetof(LongEntry, LDIR_Name3) + 2 * (unit - 11);
}

}  // namespace

std::uint8_t ShortNameChecksum(const std::uint8_t* shortName) {
    std::uint32_t sum = 0;
    for (std::uint32_t i = 0; i < ShortNameSize; ++i) {
        sum = ((sum >> 1 | sum << 7) + shortName[i]) & 0xFF;
    }
    return static_cast<std::uint8_t>(sum);
}

void FillLongEntry(LongEntry& entry, const char16_t* name, std::uint32_t sequence, bool isLast,
                   std::uint8_t checksum) {
    entry = LongEntry{};
    entry.LDIR_Ord = static_cast<std::uint8_t>(sequence | (isLast ? LastLongEntry : 0u));
    entry.LDIR_Attr = AttrLongName;
    entry.LDIR_Chksum = checksum;
    auto* bytes = reinterpret_cast<std::uint8_t*>(&entry);
    const char16_t* units = name + std::size_t{sequence - 1} * UnitsPerLongEntry;
    for (std::uint32_t i = 0; i < UnitsPerLongEntry; ++i) {
        StoreU16(bytes + UnitOffset(i), units[i]);
    }
}

std::uint32_t CopyLongNameUnits(const LongEntry& entry, char16_t* units) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&entry);
    for (std::uint32_t count = 0; count < UnitsPerLongEntry; ++count) {
        units[count] = LoadU16(bytes + UnitOffset(count));
        if (units[count] == 0) {
            return count;
        }
    }
    return UnitsPerLongEntry;
}

}  // namespace fatvol
