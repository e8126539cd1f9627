#pragma once

#include <optional>
#include <string_view>

namespace foundation {

/// A date of the Gregorian calendar to the second, UTC, years 0 to 9999: what the text forms of a date can carry.
struct CalendarDate {
  int year = 0;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;

  /// Cuts to the whole second before. Nothing for a date outside the years above.
  [[nodiscard]] static std::optional<CalendarDate> fromSecondsSince2001(double seconds);
  /// Reads exactly `yyyy-MM-ddTHH:mm:ssZ`; nothing for anything else, or a date that no calendar has.
  [[nodiscard]] static std::optional<CalendarDate> parse(std::string_view text);
  [[nodiscard]] double secondsSince2001() const;
};

/// This instant, as property lists count: seconds since the first instant of 2001, UTC.
[[nodiscard]] double secondsSince2001Now();

}  // namespace foundation
