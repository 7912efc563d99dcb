#include <time.h>

#include "platform/clock.h"

namespace fatvol {

std::int64_t ReadUnixSeconds() {
    return _time64(nullptr);
}

bool LocalTimeOf(std::int64_t unixSeconds, LocalTime* out) {
    constexpr int TmYearBase = 1900;
    const __time64_t seconds = unixSeconds;
    const tm* parts = _localtime64(&seconds);
    if (parts == nullptr) {
        return false;
    }
    *out = {parts->tm_year + TmYearBase,
            parts->tm_mon + 1,
            parts->tm_mday,
            parts->tm_hour,
            parts->tm_min,
            parts->tm_sec};
    return true;
}

}  // namespace fatvol
