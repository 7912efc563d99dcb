#include "fat_times.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iomanip>
#include <locale>
#include <sstream>

namespace tool {

namespace {

constexpr VolumeTime kUnitsPerSecond = 10'000'000;

// What the seven bits of a volume's year can hold.
constexpr std::chrono::year kFirstYear{1980};
constexpr std::chrono::year kLastYear{2107};

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

namespace {

VolumeTime VolumeTimeFromCalendar(const CalendarTime& time) {
    using namespace std::chrono;
    constexpr sys_days kEpoch = year{1601} / January / 1;
    const seconds count = sys_days(time.date) - kEpoch + time.clock.to_duration();
    return static_cast<VolumeTime>(count.count() / 2 * 2) * kUnitsPerSecond;
}

CalendarTime CalendarOf(const std::tm& fields) {
    using namespace std::chrono;
    return {year(fields.tm_year + 1900) / month(static_cast<unsigned int>(fields.tm_mon + 1)) /
                day(static_cast<unsigned int>(fields.tm_mday)),
            // A leap second is no time of a volume.
            hh_mm_ss<seconds>(hours(fields.tm_hour) + minutes(fields.tm_min) +
                              seconds(std::min(fields.tm_sec, 59)))};
}

}  // namespace

VolumeTime VolumeTimeFromInstant(std::time_t instant) {
    using namespace std::chrono;
    constexpr CalendarTime kFirst = {kFirstYear / January / 1, hh_mm_ss<seconds>(0s)};
    constexpr CalendarTime kLast = {kLastYear / December / 31, hh_mm_ss<seconds>(24h - 2s)};
    const std::tm* const fields = std::localtime(&instant);
    if (fields == nullptr) {
        return VolumeTimeFromCalendar(instant < 0 ? kFirst : kLast);
    }
    return std::clamp(VolumeTimeFromCalendar(CalendarOf(*fields)), VolumeTimeFromCalendar(kFirst),
                      VolumeTimeFromCalendar(kLast));
}

VolumeTime CurrentVolumeTime() {
    return VolumeTimeFromInstant(std::time(nullptr));
}

std::optional<VolumeTime> ParseTime(const std::string& text) {
    for (const char* format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::istringstream stream(text);
        stream.imbue(std::locale::classic());
        std::tm fields{};
        stream >> std::get_time(&fields, format);
        if (stream.fail() || stream.peek() != std::istringstream::traits_type::eof()) {
            continue;
        }
        const CalendarTime time = CalendarOf(fields);
        if (time.date.ok() && time.date.year() >= kFirstYear && time.date.year() <= kLastYear) {
            return VolumeTimeFromCalendar(time);
        }
    }
    return std::nullopt;
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
