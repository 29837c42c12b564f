#include "platform/values/calendar_day.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <memory>
#include <unicode/datefmt.h>
#include <unicode/unistr.h>

namespace vantrell {

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

std::string mediumDate(Date date) {
  using icu::DateFormat;
  const std::unique_ptr<DateFormat> format(DateFormat::createDateInstance(DateFormat::kMedium));
  if (!format) return iso8601(date).substr(0, 10);
  icu::UnicodeString words;
  format->format(date.secondsSinceUnixEpoch() * 1000, words);
  std::string text;
  return words.toUTF8String(text);
}

}  // namespace vantrell
