// The code page conversions, the clock and the calendar: one table of cases for every system.
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "dir/fat_time.h"
#include "platform/clock.h"
#include "platform/locale_text.h"
#include "support/environment.h"

namespace fatvol {
namespace {

constexpr std::int64_t TicksPerSecond = 10'000'000;
constexpr std::int64_t Latest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t UnixEpochSeconds = 11'644'473'600;  // 1970 counted from 1601

// Seconds since 1970 of a calendar time in UTC.
std::int64_t Utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    const std::chrono::sys_days date = std::chrono::year(year) / month / day;
    return ((date.time_since_epoch().count() * 24LL + hour) * 60 + minute) * 60 + second;
}

std::int64_t Ticks(std::int64_t unixSeconds) {
    return (unixSeconds + UnixEpochSeconds) * TicksPerSecond;
}

// Each unit fails or comes back; returns how many came back.
int CountConvertibleUnits() {
    int convertible = 0;
    for (unsigned unit = 0; unit < 0x10000; ++unit) {
        char bytes[MaxUnitBytes];
        char16_t back = 0;
        const int count = UnitToBytes(static_cast<char16_t>(unit), bytes);
        if (count > 0) {
            ++convertible;
            EXPECT_EQ(BytesToUnits(bytes, static_cast<unsigned>(count), &back, 1), unit != 0);
            EXPECT_EQ(back, unit);
        }
    }
    return convertible;
}

TEST(LocaleText, ConvertsInEachCodePage) {
    const struct {
        const char* codePage;
        int convertibleUnits;
        std::vector<std::tuple<std::string_view, unsigned, const char16_t*>> texts;
    } cases[] = {
        {"C", 128, {{"README", 8, u"README"}, {"A\x82", 8, nullptr}, {"A\x82", 1, u"A"}}},
        {"CP1252",
         256,  // five of them are the control characters of unassigned bytes
         {{"\xC9\x80\xFF", 3, u"É€ÿ"}, {"A\x81", 8, u"A\u0081"}, {{"A\0\x81", 3}, 8, u"A"}}},
        {"UTF-8",
         65536 - 2048,  // all but the surrogates
         {{"É€", 8, u"É€"},
          {"\xF0\x9F\x98\x80", 2, u"\U0001F600"},
          {"a\xF0\x9F\x98\x80", 2, u"a"},  // no room for the pair
          {"\xED\xA0\x80", 8, nullptr},    // a surrogate
          {"\xF4\x90\x80\x80", 8, nullptr},
          {"A\xC3", 8, nullptr},  // cut short
          {std::string_view("AÉ", 2), 1, u"A"},
          {"", 8, u""}}},
    };
    int codePages = 0;
    for (const auto& [codePage, convertibleUnits, texts] : cases) {
        if (!test::UseCodePage(codePage)) {
            continue;
        }
        ++codePages;
        EXPECT_EQ(CountConvertibleUnits(), convertibleUnits) << codePage;
        for (const auto& [bytes, maxUnits, expected] : texts) {
            char16_t units[9] = {};
            const auto byteCount = static_cast<unsigned>(bytes.size());
            const int count = BytesToUnits(bytes.data(), byteCount, units, maxUnits);
            const std::u16string_view text = expected != nullptr ? expected : u"";
            ASSERT_EQ(count, expected != nullptr ? static_cast<int>(text.size()) : -1) << bytes;
            EXPECT_EQ(text, std::u16string_view(units, text.size())) << bytes;
        }
    }
    EXPECT_EQ(codePages, test::UseCodePage("UTF-8") ? 3 : 2) << "a locale is missing";
    const std::string tooLong(MaxTextBytes + 1, 'A');
    char16_t unit;
    EXPECT_EQ(BytesToUnits(tooLong.data(), MaxTextBytes + 1, &unit, 1), -1);
    EXPECT_EQ(BytesToUnits(tooLong.data(), MaxTextBytes, &unit, 1), 1);
}

// Every date with some times, every time with a date: refused or its moment, and back again.
TEST(FatTime, EveryWordConvertsOrIsRefused) {
    for (int i = 0; i < 0x20000; ++i) {
        const int date = i < 0x10000 ? i : 0x586F, time = i < 0x10000 ? i % 3 * 0x3F8F : i & 0xFFFF;
        const int year = date / 512 + 1980, month = date / 32 % 16, day = date % 32;
        const int hour = time / 2048, minute = time / 32 % 64, second = time % 32 * 2;
        const bool valid =
            (std::chrono::year(year) / month / day).ok() && hour < 24 && minute < 60 && second < 60;
        std::int64_t converted = -1;
        ASSERT_EQ(FatTimeToSystemTime(static_cast<std::uint16_t>(date),
                                      static_cast<std::uint16_t>(time), &converted),
                  valid);
        ASSERT_EQ(converted, valid ? Ticks(Utc(year, month, day, hour, minute, second)) : -1) << i;
        std::uint16_t dateBack = 0, timeBack = 0;
        ASSERT_EQ(SystemTimeToFatTime(converted, &dateBack, &timeBack), valid) << i;
        ASSERT_TRUE(!valid || (dateBack == date && timeBack == time)) << i;
    }
}

TEST(FatTime, RoundsUpWithinItsYears) {
    const std::int64_t morning = Ticks(Utc(2024, 3, 15, 10));
    const std::tuple<std::int64_t, bool, int, int> cases[] = {
        {morning, true, 0x586F, 0x5000},
        {morning + 1, true, 0x586F, 0x5001},
        {Ticks(Utc(1979, 12, 31, 23, 59, 58)), false, 1, 1},
        {Ticks(Utc(1979, 12, 31, 23, 59, 58)) + 1, true, 0x0021, 0},
        {Ticks(Utc(2023, 12, 31, 23, 59, 59)), true, 0x5821, 0},
        {Ticks(Utc(2107, 12, 31, 23, 59, 58)), true, 0xFF9F, 0xBF7D},
        {Ticks(Utc(2107, 12, 31, 23, 59, 58)) + 1, false, 1, 1},
        {-1, false, 1, 1},
        {Latest, false, 1, 1},
        {Latest - 19'999'999, false, 1, 1}};
    for (const auto& [systemTime, valid, expectedDate, expectedTime] : cases) {
        std::uint16_t date = 1, time = 1;
        EXPECT_EQ(SystemTimeToFatTime(systemTime, &date, &time), valid) << systemTime;
        EXPECT_TRUE(date == expectedDate && time == expectedTime) << systemTime;
    }
}

TEST(Clock, StampsLocalTime) {
    test::UseTimeZone("XST-5:30");
    constexpr std::int64_t Offset = 5 * 3600 + 30 * 60;
    const std::tuple<std::int64_t, int, int> cases[] = {
        {Utc(2024, 3, 15, 13, 45, 30), 0x586F, 0x6DAF},
        {Utc(2024, 3, 15, 13, 45, 31), 0x586F, 0x6DAF},
        {Utc(1979, 12, 31, 23, 59, 59), 0, 0},
        {Utc(2108, 1, 1), 0, 0},
        {Latest, 0, 0}};
    for (const auto& [localSeconds, date, time] : cases) {
        FixClockForTests(localSeconds - Offset);
        const FatTimeStamp stamp = CurrentFatTimeStamp();
        EXPECT_TRUE(stamp.date == date && stamp.time == time) << localSeconds;
    }
    LocalTime now;
    EXPECT_FALSE(ReadLocalTime(&now)) << "no calendar reaches that far";
    FixClockForTests(std::nullopt);
    ASSERT_TRUE(ReadLocalTime(&now));
    const auto read = Utc(now.year, now.month, now.day, now.hour, now.minute, now.second) - Offset;
    EXPECT_LE(std::abs(read - std::time(nullptr)), 60);
    test::UseTimeZone("");
}

}  // namespace
}  // namespace fatvol
