#include "core/clock.h"

#include <gtest/gtest.h>

#include <ctime>

#include "support/time_zone.h"

namespace Orvane::Muxora {
namespace {

using test::ScopedTimeZone;

// Field by field, in the places that readers take them from.
uint32_t Word(uint32_t year, uint32_t month, uint32_t day, uint32_t hour, uint32_t minute, uint32_t second) {
    return second + minute * 64 + hour * 4096 + day * 131072 + month * 4194304 + (year - 2000) * 67108864;
}

TEST(Clock, TheClockOfATestStandsStill) {
    ScopedClock clock(1000);
    EXPECT_EQ(CurrentTime(), 1000);
    clock.Set(0);
    EXPECT_EQ(CurrentTime(), 0);
}

TEST(Clock, OtherwiseItIsTheMachines) {
    { const ScopedClock clock(1000); }
    const std::time_t before = std::time(nullptr);
    const int64_t now = CurrentTime();
    EXPECT_LE(before, now);
    EXPECT_LE(now, std::time(nullptr));
}

TEST(Clock, LocalTimeFollowsTheZone) {
    const ScopedTimeZone zone("XYZ-5:30");  // five and a half hours ahead
    const std::tm local = LocalTime(1'000'000'000);
    EXPECT_EQ(local.tm_year, 101);
    EXPECT_EQ(local.tm_mon, 8);
    EXPECT_EQ(local.tm_mday, 9);
    EXPECT_EQ(local.tm_hour, 7);
    EXPECT_EQ(local.tm_min, 16);
    EXPECT_EQ(local.tm_sec, 40);
    EXPECT_EQ(FromLocalTime(local), 1'000'000'000);
}

TEST(Clock, OutOfRangeFieldsAreNormalised) {
    const ScopedTimeZone zone("UTC0");
    std::tm local{};
    local.tm_year = 100;
    local.tm_mon = 12;   // January of 2001
    local.tm_mday = 32;  // its 32nd is the first of February
    EXPECT_EQ(FromLocalTime(local), 980'985'600);
}

TEST(Clock, ATimeBeyondTheCalendarIsTheEpoch) {
    const std::tm local = LocalTime(INT64_MAX);
    EXPECT_EQ(local.tm_year, 70);
    EXPECT_EQ(local.tm_mon, 0);
    EXPECT_EQ(local.tm_mday, 1);
}

TEST(DateWord, PacksTheLocalCalendar) {
    const ScopedTimeZone zone("UTC0");
    EXPECT_EQ(PackDateWord(1'000'000'000), Word(2001, 9, 9, 1, 46, 40));
    EXPECT_EQ(PackDateWord(1'000'000'000), 0x06521BA8u);
    EXPECT_EQ(PackDateWord(1'735'689'599), Word(2024, 12, 31, 23, 59, 59));
    EXPECT_EQ(PackDateWord(1'709'164'800), Word(2024, 2, 29, 0, 0, 0));
}

TEST(DateWord, IsLocal) {
    const ScopedTimeZone zone("XYZ-5:30");
    EXPECT_EQ(PackDateWord(1'000'000'001), Word(2001, 9, 9, 7, 16, 41));
}

TEST(DateWord, ZeroIsNow) {
    const ScopedTimeZone zone("UTC0");
    const ScopedClock clock(1'000'000'007);
    EXPECT_EQ(PackDateWord(0), Word(2001, 9, 9, 1, 46, 47));
}

TEST(DateWord, YearsBefore2000AndBehind2063Wrap) {
    const ScopedTimeZone zone("UTC0");
    EXPECT_EQ(PackDateWord(946'684'799), Word(2063, 12, 31, 23, 59, 59));  // 1999
    EXPECT_EQ(PackDateWord(2'966'371'200), Word(2000, 1, 1, 0, 0, 0));     // 2064
    EXPECT_EQ(PackDateWord(4'294'967'295), Word(2042, 2, 7, 6, 28, 15));   // 2106
}

TEST(DateWord, TheSameSecondTwiceIsTheSameWord) {
    const ScopedTimeZone zone("UTC0");
    const uint32_t first = PackDateWord(1'600'000'000);
    const uint32_t other = PackDateWord(1'600'000'001);
    EXPECT_EQ(PackDateWord(1'600'000'000), first);
    EXPECT_EQ(other, first + 1);
}

}  // namespace
}  // namespace Orvane::Muxora
