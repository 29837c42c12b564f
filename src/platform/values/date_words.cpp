#include <algorithm>
#include <cmath>
#include <ctime>
#include <memory>
#include <unicode/datefmt.h>
#include <unicode/unistr.h>

#include "platform/values/date.h"

namespace vantrell {
namespace {

std::string formatted(Date date, icu::DateFormat* made) {
  const std::unique_ptr<icu::DateFormat> format(made);
  if (!format) return iso8601(date);
  icu::UnicodeString words;
  format->format(date.secondsSinceUnixEpoch() * 1000, words);
  std::string text;
  return words.toUTF8String(text);
}

}  // namespace

std::string mediumDateAndTime(Date date) {
  using icu::DateFormat;
  return formatted(date,
                   DateFormat::createDateTimeInstance(DateFormat::kMedium, DateFormat::kShort));
}

std::string mediumDate(Date date) {
  return formatted(date, icu::DateFormat::createDateInstance(icu::DateFormat::kMedium));
}

long localDay(Date date) {
  namespace chrono = std::chrono;
  constexpr double mostSeconds = 253402300799;  // the end of the year 9999; no document has later
  const double seconds = std::floor(date.secondsSinceUnixEpoch());
  const auto time =
      static_cast<std::time_t>(std::clamp(std::isnan(seconds) ? 0 : seconds, 0.0, mostSeconds));
  std::tm local{};
  ::localtime_r(&time, &local);
  const chrono::year_month_day day(chrono::year(local.tm_year + 1900),
                                   chrono::month(static_cast<unsigned>(local.tm_mon + 1)),
                                   chrono::day(static_cast<unsigned>(local.tm_mday)));
  return chrono::sys_days(day).time_since_epoch().count();
}

}  // namespace vantrell
