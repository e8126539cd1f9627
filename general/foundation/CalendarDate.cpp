#include "general/foundation/CalendarDate.h"

#include <chrono>
#include <cmath>
#include <cstddef>

namespace foundation {

namespace {

using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr int kLastYear = 9999;
constexpr long kSecondsPerDay = 86400;

constexpr year_month_day calendarDay(int year, int month, int day) {
  return std::chrono::year(year) / std::chrono::month(static_cast<unsigned>(month)) /
         std::chrono::day(static_cast<unsigned>(day));
}

constexpr sys_days kReferenceDay = sys_days(calendarDay(2001, 1, 1));
constexpr long kFirstDay = (sys_days(calendarDay(0, 1, 1)) - kReferenceDay).count();
constexpr long kLastDay = (sys_days(calendarDay(kLastYear, 12, 31)) - kReferenceDay).count();

}  // namespace

std::optional<CalendarDate> CalendarDate::fromSecondsSince2001(double seconds) {
  const double day = std::floor(seconds / static_cast<double>(kSecondsPerDay));
  if (!(day >= static_cast<double>(kFirstDay) && day <= static_cast<double>(kLastDay))) return std::nullopt;
  const long whole = static_cast<long>(std::floor(seconds));
  // A tiny negative fraction can round up to the next day in the division above.
  long dayNumber = static_cast<long>(day);
  if (dayNumber * kSecondsPerDay > whole) --dayNumber;
  if (dayNumber < kFirstDay) return std::nullopt;
  const long rest = whole - dayNumber * kSecondsPerDay;
  const year_month_day date(kReferenceDay + days(dayNumber));
  return CalendarDate{static_cast<int>(date.year()),
                      static_cast<int>(static_cast<unsigned>(date.month())),
                      static_cast<int>(static_cast<unsigned>(date.day())),
                      static_cast<int>(rest / 3600),
                      static_cast<int>(rest / 60 % 60),
                      static_cast<int>(rest % 60)};
}

std::optional<CalendarDate> CalendarDate::parse(std::string_view text) {
  constexpr std::string_view kPattern = "dddd-dd-ddTdd:dd:ddZ";
  if (text.size() != kPattern.size()) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool fits = kPattern[i] == 'd' ? text[i] >= '0' && text[i] <= '9' : text[i] == kPattern[i];
    if (!fits) return std::nullopt;
  }
  const auto number = [&](std::size_t start, std::size_t digits) {
    int value = 0;
    for (const char digit : text.substr(start, digits)) value = value * 10 + (digit - '0');
    return value;
  };
  const CalendarDate date{number(0, 4), number(5, 2), number(8, 2), number(11, 2), number(14, 2), number(17, 2)};
  if (!calendarDay(date.year, date.month, date.day).ok()) return std::nullopt;
  if (date.hour > 23 || date.minute > 59 || date.second > 59) return std::nullopt;
  return date;
}

double CalendarDate::secondsSince2001() const {
  const long dayNumber = (sys_days(calendarDay(year, month, day)) - kReferenceDay).count();
  return static_cast<double>(dayNumber * kSecondsPerDay + hour * 3600L + minute * 60L + second);
}

double secondsSince2001Now() {
  return std::chrono::duration<double>(std::chrono::system_clock::now() - kReferenceDay).count();
}

}  // namespace foundation
