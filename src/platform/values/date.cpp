#include "platform/values/date.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <fmt/format.h>

#include "platform/text/ascii.h"

namespace vantrell {
namespace {

namespace chrono = std::chrono;

constexpr double unixSecondsOf(chrono::sys_days day) {
  return static_cast<double>(chrono::sys_seconds(day).time_since_epoch().count());
}
constexpr double firstSecond = unixSecondsOf(chrono::sys_days(chrono::year(1) / 1 / 1));
constexpr double lastSecond = unixSecondsOf(chrono::sys_days(chrono::year(10000) / 1 / 1)) - 1;

/// Takes the text from its front, piece by piece.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  /// Exactly `count` digits, or -1.
  int digits(std::size_t count) {
    if (rest_.size() < count) return -1;
    int value = 0;
    for (const char c : rest_.substr(0, count)) {
      if (!ascii::isDigit(c)) return -1;
      value = value * 10 + (c - '0');
    }
    rest_.remove_prefix(count);
    return value;
  }
  bool take(char c) {
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }
  /// From the decimal point on; nullopt when no digit follows it.
  std::optional<double> fraction() {
    const std::size_t end = std::min(rest_.find_first_not_of("0123456789", 1), rest_.size());
    if (end < 2) return std::nullopt;
    double value = 0;
    const char* const first = rest_.data();
    std::from_chars(first, first + end, value);  // leaves 0 when it is tiny
    rest_.remove_prefix(end);
    return value;
  }
  bool isAt(char c) const { return rest_.starts_with(c); }
  bool atEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

}  // namespace

Date Date::current() {
  const auto sinceEpoch = chrono::system_clock::now().time_since_epoch();
  return sinceUnixEpoch(Seconds(sinceEpoch).count());
}

Date Date::currentCoarse() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &time);
  return sinceUnixEpoch(static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9);
}

std::string iso8601(Date date) {
  double seconds = std::floor(date.secondsSinceUnixEpoch());
  // Not std::clamp, which lets a NaN through.
  if (!(seconds >= firstSecond)) seconds = firstSecond;
  if (seconds > lastSecond) seconds = lastSecond;
  const chrono::sys_seconds time(chrono::seconds(static_cast<std::int64_t>(seconds)));
  const auto day = chrono::floor<chrono::days>(time);
  const chrono::year_month_day calendar(day);
  const chrono::hh_mm_ss clock(time - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(calendar.year()),
                     static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

std::optional<Date> dateFromIso8601(std::string_view text) {
  Scanner scanner(text);
  const int year = scanner.digits(4);
  if (year < 1 || !scanner.take('-')) return std::nullopt;
  const int month = scanner.digits(2);
  if (month < 1 || !scanner.take('-')) return std::nullopt;
  const int day = scanner.digits(2);
  if (day < 1 || !scanner.take('T')) return std::nullopt;
  const chrono::year_month_day calendar(chrono::year(year),
                                        chrono::month(static_cast<unsigned>(month)),
                                        chrono::day(static_cast<unsigned>(day)));
  if (!calendar.ok()) return std::nullopt;

  const int hour = scanner.digits(2);
  if (hour < 0 || hour > 23 || !scanner.take(':')) return std::nullopt;
  const int minute = scanner.digits(2);
  if (minute < 0 || minute > 59 || !scanner.take(':')) return std::nullopt;
  const int second = scanner.digits(2);  // leap seconds have no place on the Unix time scale
  if (second < 0 || second > 59) return std::nullopt;

  double fraction = 0;
  if (scanner.isAt('.')) {
    const auto digits = scanner.fraction();
    if (!digits) return std::nullopt;
    fraction = *digits;
  }
  int offset = 0;  // minutes east of UTC
  if (!scanner.take('Z')) {
    const bool west = scanner.isAt('-');
    if (!scanner.take(west ? '-' : '+')) return std::nullopt;
    const int hours = scanner.digits(2);
    if (hours < 0 || hours > 23 || !scanner.take(':')) return std::nullopt;
    const int minutes = scanner.digits(2);
    if (minutes < 0 || minutes > 59) return std::nullopt;
    offset = (hours * 60 + minutes) * (west ? -1 : 1);
  }
  if (!scanner.atEnd()) return std::nullopt;

  const double whole =
      unixSecondsOf(chrono::sys_days(calendar)) + ((hour * 60.0 + minute - offset) * 60.0 + second);
  // The whole seconds are moved to the reference date first: the sum then rounds only once.
  return Date(Date::sinceUnixEpoch(whole).secondsSinceReference() + fraction);
}

}  // namespace vantrell
