// The date and time words of a directory entry.
//
//   date   bits 15-9 year - 1980, bits 8-5 month 1..12, bits 4-0 day 1..31
//   time   bits 15-11 hour 0..23, bits 10-5 minute 0..59, bits 4-0 second / 2, 0..29
#pragma once

#include <cstdint>

namespace fatvol {

struct FatTimeStamp {
    std::uint16_t date;
    std::uint16_t time;
};

// False, with the output unchanged, when the words are no date and time; a date of 0 is none.
bool FatTimeToSystemTime(std::uint16_t date, std::uint16_t time, std::int64_t* systemTime);

// Rounds up to the next even second. False, with both outputs unchanged, when the result does not
// lie in the years 1980 to 2107.
bool SystemTimeToFatTime(std::int64_t systemTime, std::uint16_t* date, std::uint16_t* time);

// The current local time, an odd second rounded down. Both words are 0, the mark of an unknown
// date, when the clock is unreadable or outside 1980 to 2107: a year folded into the seven bits
// would be a false date, and a creation must not fail over its time stamp.
FatTimeStamp CurrentFatTimeStamp();

}  // namespace fatvol
