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

/// Whether the text has a digit where the form has a 0, and else what the form has.
bool hasForm(std::string_view text, std::string_view form) {
  return std::ranges::equal(text, form, [](char c, char formed) {
    return formed == '0' ? ascii::isDigit(c) : c == formed;
  });
}

/// The two digits at `at`.
int twoDigits(std::string_view text, std::size_t at) {
  return (text[at] - '0') * 10 + (text[at + 1] - '0');
}

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
  constexpr std::string_view form = "0000-00-00T00:00:00";
  if (!hasForm(text.substr(0, form.size()), form)) return std::nullopt;
  const int year = twoDigits(text, 0) * 100 + twoDigits(text, 2);
  const chrono::year_month_day day(chrono::year(year),
                                   chrono::month(static_cast<unsigned>(twoDigits(text, 5))),
                                   chrono::day(static_cast<unsigned>(twoDigits(text, 8))));
  const int hour = twoDigits(text, 11), minute = twoDigits(text, 14);
  const int second = twoDigits(text, 17);  // leap seconds have no place on the Unix time scale
  if (year < 1 || !day.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  text.remove_prefix(form.size());

  double fraction = 0;
  if (text.starts_with('.')) {
    const std::size_t end = std::min(text.find_first_not_of("0123456789", 1), text.size());
    if (end < 2) return std::nullopt;
    std::from_chars(text.data(), text.data() + end, fraction);  // leaves 0 when it is tiny
    text.remove_prefix(end);
  }
  int offset = 0;  // minutes east of UTC
  if (hasForm(text, "+00:00") || hasForm(text, "-00:00")) {
    const int hours = twoDigits(text, 1), minutes = twoDigits(text, 4);
    if (hours > 23 || minutes > 59) return std::nullopt;
    offset = (hours * 60 + minutes) * (text[0] == '-' ? -1 : 1);
  } else if (text != "Z") {
    return std::nullopt;
  }

  const double whole =
      unixSecondsOf(chrono::sys_days(day)) + ((hour * 60.0 + minute - offset) * 60.0 + second);
  // The whole seconds are moved to the reference date first: the sum then rounds only once.
  return Date(Date::sinceUnixEpoch(whole).secondsSinceReference() + fraction);
}

}  // namespace vantrell
