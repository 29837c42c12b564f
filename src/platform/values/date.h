// Points in time as the program stores and sends them. A Date is a floating-point number of
// seconds since 2001-01-01 00:00:00 UTC, the form of the conversation document, so that a stored
// date comes back bit for bit.
#pragma once

#include <chrono>
#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace vantrell {

using Seconds = std::chrono::duration<double>;

class Date {
 public:
  Date() = default;
  /// Seconds since 2001-01-01 00:00:00 UTC.
  explicit constexpr Date(double secondsSinceReference) : seconds_(secondsSinceReference) {}

  /// The wall clock. Engine code asks its MainQueue instead.
  static Date current();
  /// The same, up to a tick of the kernel (4 ms) late, for callers that ask for every piece of a
  /// stream: in a virtual machine the exact time costs more than the piece.
  static Date currentCoarse();
  /// 0001-01-01 of the Julian calendar, two days before that of the Gregorian one; iso8601() shows
  /// it as the first day that it can.
  static constexpr Date distantPast() { return Date(-63114076800.0); }
  static constexpr Date sinceUnixEpoch(double seconds) { return Date(seconds - unixOffset); }

  constexpr double secondsSinceReference() const { return seconds_; }
  constexpr double secondsSinceUnixEpoch() const { return seconds_ + unixOffset; }

  constexpr auto operator<=>(const Date&) const = default;
  constexpr Date operator+(Seconds interval) const { return Date(seconds_ + interval.count()); }
  constexpr Date operator-(Seconds interval) const { return Date(seconds_ - interval.count()); }
  constexpr Seconds operator-(Date other) const { return Seconds(seconds_ - other.seconds_); }

 private:
  /// Seconds from 1970-01-01 to 2001-01-01.
  static constexpr double unixOffset = 978307200.0;
  double seconds_ = 0;
};

/// "2026-11-22T21:08:00Z": UTC, whole seconds (the fraction is dropped), the form of the
/// orchestration files. Years outside 1 to 9999 are clamped to them.
std::string iso8601(Date date);

// In the user's language and time zone.

/// "Nov 22, 2026, 9:08 PM".
std::string mediumDateAndTime(Date date);
/// "Nov 22, 2026".
std::string mediumDate(Date date);
/// The number of the day, counted from 1970-01-01.
long localDay(Date date);

/// Reads iso8601(), also with a fraction of a second and with "+hh:mm" or "-hh:mm" in place of "Z".
/// nullopt for anything else, dates that no calendar has and leap seconds included.
std::optional<Date> dateFromIso8601(std::string_view text);

}  // namespace vantrell
