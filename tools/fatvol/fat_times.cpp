#include "fat_times.h"

#include <fmt/format.h>

#include <chrono>

namespace tool {

namespace {

constexpr VolumeTime kUnitsPerSecond = 10'000'000;

struct CalendarTime {
    std::chrono::year_month_day date;
    std::chrono::hh_mm_ss<std::chrono::seconds> clock;
};

CalendarTime CalendarFromVolumeTime(VolumeTime time) {
    using namespace std::chrono;
    constexpr sys_days kEpoch = year{1601} / January / 1;
    const sys_seconds instant = sys_seconds(kEpoch) + seconds(time / kUnitsPerSecond);
    const sys_days day = floor<days>(instant);
    return {year_month_day(day), hh_mm_ss<seconds>(instant - day)};
}

std::string DateText(const std::chrono::year_month_day& date) {
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()),
                       static_cast<unsigned int>(date.month()),
                       static_cast<unsigned int>(date.day()));
}

}  // namespace

VolumeTime VolumeTimeFromHalves(unsigned int low, unsigned int high) {
    return static_cast<VolumeTime>(static_cast<std::uint64_t>(high) << 32 | low);
}

std::string FormatTime(VolumeTime time) {
    if (time == kNoTime) {
        return "-";
    }
    const auto [date, clock] = CalendarFromVolumeTime(time);
    return fmt::format("{} {:02}:{:02}:{:02}", DateText(date), clock.hours().count(),
                       clock.minutes().count(), clock.seconds().count());
}

std::string FormatDate(VolumeTime time) {
    return time == kNoTime ? "-" : DateText(CalendarFromVolumeTime(time).date);
}

std::optional<std::time_t> InstantFromVolumeTime(VolumeTime time) {
    if (time == kNoTime) {
        return std::nullopt;
    }
    const auto [date, clock] = CalendarFromVolumeTime(time);
    std::tm fields{};
    fields.tm_year = static_cast<int>(date.year()) - 1900;
    fields.tm_mon = static_cast<int>(static_cast<unsigned int>(date.month())) - 1;
    fields.tm_mday = static_cast<int>(static_cast<unsigned int>(date.day()));
    fields.tm_hour = static_cast<int>(clock.hours().count());
    fields.tm_min = static_cast<int>(clock.minutes().count());
    fields.tm_sec = static_cast<int>(clock.seconds().count());
    fields.tm_isdst = -1;
    const std::time_t instant = std::mktime(&fields);
    return instant == -1 ? std::nullopt : std::optional<std::time_t>(instant);
}

}  // namespace tool
