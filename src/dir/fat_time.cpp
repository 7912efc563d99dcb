#include "dir/fat_time.h"

#include <limits>

#include "platform/clock.h"
#include "platform/system_time.h"

namespace fatvol {
namespace {

constexpr int FirstFatYear = 1980;
constexpr int LastFatYear = 2107;

// One tick short of two seconds: moves every time but an even second beyond the next even second.
constexpr std::int64_t RoundUpTicks = 19'999'999;

bool IsFatYear(int year) {
    return year >= FirstFatYear && year <= LastFatYear;
}

std::uint16_t PackDate(int year, int month, int day) {
    return static_cast<std::uint16_t>((year - FirstFatYear) << 9 | month << 5 | day);
}

std::uint16_t PackTime(int hour, int minute, int second) {
    return static_cast<std::uint16_t>(hour << 11 | minute << 5 | second / 2);
}

}  // namespace

bool FatTimeToSystemTime(std::uint16_t date, std::uint16_t time, std::int64_t* systemTime) {
    const TimeFields fields{.year = (date >> 9) + FirstFatYear,
                            .month = date >> 5 & 15,
                            .day = date & 31,
                            .hour = time >> 11,
                            .minute = time >> 5 & 63,
                            .second = (time & 31) * 2,
                            .milliseconds = 0};
    return TimeFieldsToSystemTime(fields, systemTime);
}

bool SystemTimeToFatTime(std::int64_t systemTime, std::uint16_t* date, std::uint16_t* time) {
    if (systemTime < 0 || systemTime > std::numeric_limits<std::int64_t>::max() - RoundUpTicks) {
        return false;
    }
    TimeFields fields;
    SystemTimeToTimeFields(systemTime + RoundUpTicks, &fields);
    if (!IsFatYear(fields.year)) {
        return false;
    }
    *date = PackDate(fields.year, fields.month, fields.day);
    *time = PackTime(fields.hour, fields.minute, fields.second);
    return true;
}

FatTimeStamp CurrentFatTimeStamp() {
    LocalTime now;
    if (!ReadLocalTime(&now) || !IsFatYear(now.year)) {
        return {0, 0};
    }
    return {PackDate(now.year, now.month, now.day), PackTime(now.hour, now.minute, now.second)};
}

}  // namespace fatvol
