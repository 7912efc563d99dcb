// The local wall clock, from which new directory entries take their time stamps.
#pragma once

#include <cstdint>
#include <optional>

namespace fatvol {

struct LocalTime {
    int year;    // full, for example 2024
    int month;   // 1..12
    int day;     // 1..31
    int hour;    // 0..23
    int minute;  // 0..59
    int second;  // 0..59
};

// The current local time. False, with `out` unchanged, when it cannot be expressed.
bool ReadLocalTime(LocalTime* out);

// Holds the clock of ReadLocalTime at a number of seconds since 1970-01-01 UTC, or lets it go.
void FixClockForTests(std::optional<std::int64_t> unixSeconds);

// What each platform supplies: its clock, in seconds since 1970-01-01 UTC, and the local time of
// such a number. LocalTimeOf is false, with `out` unchanged, when the platform cannot express it.
std::int64_t ReadUnixSeconds();
bool LocalTimeOf(std::int64_t unixSeconds, LocalTime* out);

}  // namespace fatvol
