// The times of a volume: wall-clock times without a zone, counted by the library in units of
// 100 nanoseconds since 1601-01-01.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace tool {

using VolumeTime = std::int64_t;

// What stands for a time that a directory entry does not hold.
constexpr VolumeTime kNoTime = 0;

VolumeTime VolumeTimeFromHalves(unsigned int low, unsigned int high);

// The time that clocks of the local time zone show at an instant, as far as a volume can hold it:
// cut to even seconds, and to the years 1980 to 2107.
VolumeTime VolumeTimeFromInstant(std::time_t instant);

VolumeTime CurrentVolumeTime();

// "2024-05-31 14:30" with or without seconds, or a date alone. Nothing for any other text and for
// years that a volume cannot hold.
std::optional<VolumeTime> ParseTime(const std::string& text);

// "2024-05-31 14:30:00", and its date alone; "-" for no time.
std::string FormatTime(VolumeTime time);
std::string FormatDate(VolumeTime time);

// The instant at which clocks of the local time zone show this time. Nothing for no time.
std::optional<std::time_t> InstantFromVolumeTime(VolumeTime time);

}  // namespace tool
