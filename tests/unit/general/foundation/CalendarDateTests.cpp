#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "general/foundation/CalendarDate.h"

using foundation::CalendarDate;

namespace {

std::optional<double> secondsOf(std::string_view text) {
  const auto date = CalendarDate::parse(text);
  return date ? std::optional(date->secondsSince2001()) : std::nullopt;
}

void expectDate(double seconds, int year, int month, int day, int hour, int minute, int second) {
  const auto date = CalendarDate::fromSecondsSince2001(seconds);
  ASSERT_TRUE(date) << seconds;
  EXPECT_EQ(date->year, year) << seconds;
  EXPECT_EQ(date->month, month) << seconds;
  EXPECT_EQ(date->day, day) << seconds;
  EXPECT_EQ(date->hour, hour) << seconds;
  EXPECT_EQ(date->minute, minute) << seconds;
  EXPECT_EQ(date->second, second) << seconds;
}

}  // namespace

TEST(CalendarDate, CountsFromTheFirstInstantOf2001) {
  EXPECT_EQ(secondsOf("2001-01-01T00:00:00Z"), 0.0);
  EXPECT_EQ(secondsOf("2001-01-02T01:02:03Z"), 90123.0);
  EXPECT_EQ(secondsOf("1970-01-01T00:00:00Z"), -978307200.0);
  expectDate(0, 2001, 1, 1, 0, 0, 0);
  expectDate(-978307200, 1970, 1, 1, 0, 0, 0);
}

TEST(CalendarDate, CutsToTheSecondBefore) {
  expectDate(0.999, 2001, 1, 1, 0, 0, 0);
  expectDate(-0.001, 2000, 12, 31, 23, 59, 59);
  expectDate(-1e-12, 2000, 12, 31, 23, 59, 59);
}

TEST(CalendarDate, KnowsLeapYears) {
  EXPECT_TRUE(secondsOf("2000-02-29T00:00:00Z"));
  EXPECT_TRUE(secondsOf("2024-02-29T00:00:00Z"));
  EXPECT_FALSE(secondsOf("1900-02-29T00:00:00Z"));
  EXPECT_FALSE(secondsOf("2023-02-29T00:00:00Z"));
}

TEST(CalendarDate, GoesFromTheYear0To9999) {
  for (const std::string_view text : {"0000-01-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
    const auto seconds = secondsOf(text);
    ASSERT_TRUE(seconds) << text;
    const auto date = CalendarDate::fromSecondsSince2001(*seconds);
    ASSERT_TRUE(date) << text;
    EXPECT_EQ(date->secondsSince2001(), *seconds) << text;
  }
  EXPECT_FALSE(CalendarDate::fromSecondsSince2001(*secondsOf("0000-01-01T00:00:00Z") - 1));
  EXPECT_FALSE(CalendarDate::fromSecondsSince2001(*secondsOf("9999-12-31T23:59:59Z") + 1));
  for (const double beyond : {1e300, -1e300, std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_FALSE(CalendarDate::fromSecondsSince2001(beyond)) << beyond;
  }
}

TEST(CalendarDate, ReadsExactlyOneForm) {
  for (const std::string_view text : {"", "2001-01-01", "2001-01-01T00:00:00", "2001-01-01T00:00:00Z ",
                                      " 2001-01-01T00:00:00Z", "2001-01-01 00:00:00Z", "2001-1-01T00:00:00Z0",
                                      "2001-01-01T00:00:0xZ", "-001-01-01T00:00:00Z", "2001-01-01t00:00:00z"}) {
    EXPECT_FALSE(secondsOf(text)) << text;
  }
}

TEST(CalendarDate, RefusesWhatNoCalendarAndNoClockHas) {
  for (const std::string_view text :
       {"2001-00-01T00:00:00Z", "2001-13-01T00:00:00Z", "2001-01-00T00:00:00Z", "2001-04-31T00:00:00Z",
        "2001-01-01T24:00:00Z", "2001-01-01T00:60:00Z", "2001-01-01T00:00:60Z"}) {
    EXPECT_FALSE(secondsOf(text)) << text;
  }
}
