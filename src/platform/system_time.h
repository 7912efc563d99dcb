// System time: 100-nanosecond intervals since 1601-01-01 00:00:00, without any time zone.
#pragma once

#include <cstdint>

namespace fatvol {

constexpr int FirstSystemYear = 1601;
constexpr int LastSystemYear = 30827;  // the last whole year that fits 63 bits

struct TimeFields {
    int year;          // FirstSystemYear..LastSystemYear
    int month;         // 1..12
    int day;           // 1..the length of the month
    int hour;          // 0..23
    int minute;        // 0..59
    int second;        // 0..59
    int milliseconds;  // 0..999
};

// False, with the output unchanged, when a field is out of its range.
bool TimeFieldsToSystemTime(const TimeFields& fields, std::int64_t* systemTime);

// `systemTime` is zero or more; what is below a millisecond is dropped. The last representable
// moments lie in the year LastSystemYear + 1.
void SystemTimeToTimeFields(std::int64_t systemTime, TimeFields* fields);

}  // namespace fatvol
