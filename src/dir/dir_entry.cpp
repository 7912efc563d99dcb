#include "dir/dir_entry.h"

namespace fatvol {
namespace {

// Where the units of a name stand in its long-name entry.
constexpr std::uint8_t UnitOffsets[UnitsPerLongEntry] = {1,  3,  5,  7,  9,  14, 16,
                                                         18, 20, 22, 24, 28, 30};

}  // namespace

std::uint8_t ShortNameChecksum(const std::uint8_t* shortName) {
    std::uint32_t sum = 0;
    for (std::uint32_t i = 0; i < ShortNameSize; ++i) {
        sum = ((sum >> 1 | sum << 7) + shortName[i]) & 0xFF;
    }
    return static_cast<std::uint8_t>(sum);
}

std::uint32_t CopyLongNameUnits(const LongEntry& entry, char16_t* units) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&entry);
    std::uint32_t count = 0;
    for (const std::uint8_t offset : UnitOffsets) {
        const char16_t unit = LoadU16(bytes + offset);
        if (unit == 0) {
            break;
        }
        units[count++] = unit;
    }
    return count;
}

}  // namespace fatvol
