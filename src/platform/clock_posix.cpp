#include <time.h>

#include <algorithm>
#include <climits>

#include "platform/clock.h"

namespace fatvol {

static_assert(sizeof(time_t) == sizeof(std::int64_t), "32-bit time would end in 2038");

std::int64_t ReadUnixSeconds() {
    return time(nullptr);
}

bool LocalTimeOf(std::int64_t unixSeconds, LocalTime* out) {
    constexpr int TmYearBase = 1900;
    const time_t seconds = unixSeconds;
    tm parts{};
    if (localtime_r(&seconds, &parts) == nullptr || parts.tm_year > INT_MAX - TmYearBase) {
        return false;
    }
    *out = {parts.tm_year + TmYearBase, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
            parts.tm_min,
            // Some time zones count leap seconds; a directory entry has no second 60.
            std::min(parts.tm_sec, 59)};
    return true;
}

}  // namespace fatvol
