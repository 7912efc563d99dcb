#include <chrono>

#include "platform/system_time.h"

namespace fatvol {
namespace {

namespace chr = std::chrono;

using Ticks = chr::duration<std::int64_t, std::ratio<1, 10'000'000>>;

constexpr chr::sys_days Epoch = chr::year(FirstSystemYear) / chr::January / 1;

bool Between(int value, int first, int last) {
    return first <= value && value <= last;
}

}  // namespace

bool TimeFieldsToSystemTime(const TimeFields& fields, std::int64_t* systemTime) {
    // The calendar types keep only a byte or two of each number, so the ranges come first.
    const bool inRange = Between(fields.year, FirstSystemYear, LastSystemYear) &&
                         Between(fields.month, 1, 12) && Between(fields.day, 1, 31) &&
                         Between(fields.hour, 0, 23) && Between(fields.minute, 0, 59) &&
                         Between(fields.second, 0, 59) && Between(fields.milliseconds, 0, 999);
    if (!inRange) {
        return false;
    }
    const chr::year_month_day date(chr::year(fields.year),
                                   chr::month(static_cast<unsigned>(fields.month)),
                                   chr::day(static_cast<unsigned>(fields.day)));
    if (!date.ok()) {
        return false;
    }
    const Ticks ticks = chr::sys_days(date) - Epoch + chr::hours(fields.hour) +
                        chr::minutes(fields.minute) + chr::seconds(fields.second) +
                        chr::milliseconds(fields.milliseconds);
    *systemTime = ticks.count();
    return true;
}

void SystemTimeToTimeFields(std::int64_t systemTime, TimeFields* fields) {
    const Ticks ticks(systemTime);
    const auto days = chr::floor<chr::days>(ticks);
    const chr::year_month_day date(Epoch + days);
    const chr::hh_mm_ss time(chr::floor<chr::milliseconds>(ticks - days));
    *fields = {static_cast<int>(date.year()),
               static_cast<int>(static_cast<unsigned>(date.month())),
               static_cast<int>(static_cast<unsigned>(date.day())),
               static_cast<int>(time.hours().count()),
               static_cast<int>(time.minutes().count()),
               static_cast<int>(time.seconds().count()),
               static_cast<int>(time.subseconds().count())};
}

}  // namespace fatvol
