// Multi-byte fields of on-disk structures, which are little-endian and aligned to nothing.
#pragma once

#include <cstdint>

namespace fatvol {

inline std::uint16_t LoadU16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

inline std::uint32_t LoadU32(const std::uint8_t* bytes) {
    return LoadU16(bytes) | static_cast<std::uint32_t>(LoadU16(bytes + 2)) << 16;
}

inline void StoreU16(std::uint8_t* bytes, std::uint16_t value) {
    bytes[0] = static_cast<std::uint8_t>(value);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

inline void StoreU32(std::uint8_t* bytes, std::uint32_t value) {
    StoreU16(bytes, static_cast<std::uint16_t>(value));
    StoreU16(bytes + 2, static_cast<std::uint16_t>(value >> 16));
}

}  // namespace fatvol
