// The status of internal operations. Zero or positive is success, negative is failure; callers
// look at the sign only and pass a failure on unchanged. A failure that a host callback returns
// travels as it is, so values outside this list occur.
#pragma once

#include <cstdint>

namespace fatvol {

enum class [[nodiscard]] FatStatus : std::int32_t{
    STATUS_SUCCESS = 0,
    STATUS_INVALID_PARAMETER = static_cast<std::int32_t>(0xC000000D),
    STATUS_END_OF_FILE = static_cast<std::int32_t>(0xC0000011),
    STATUS_NO_MEMORY = static_cast<std::int32_t>(0xC0000017),
    STATUS_DISK_CORRUPT_ERROR = static_cast<std::int32_t>(0xC0000032),
    STATUS_DISK_FULL = static_cast<std::int32_t>(0xC000007F),
    STATUS_FILE_INVALID = static_cast<std::int32_t>(0xC0000098),
    STATUS_FILE_CORRUPT_ERROR = static_cast<std::int32_t>(0xC0000102),
    STATUS_UNRECOGNIZED_VOLUME = static_cast<std::int32_t>(0xC000014F),
    STATUS_DRIVER_INTERNAL_ERROR = static_cast<std::int32_t>(0xC0000183),
    STATUS_NOT_FOUND = static_cast<std::int32_t>(0xC0000225),
};

using enum FatStatus;

constexpr bool Failed(FatStatus status) {
    return static_cast<std::int32_t>(status) < 0;
}
constexpr bool Succeeded(FatStatus status) {
    return !Failed(status);
}

}  // namespace fatvol
