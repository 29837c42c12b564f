#include <memory>
#include <unicode/datefmt.h>
#include <unicode/unistr.h>

#include "platform/values/date.h"

namespace vantrell {

std::string mediumDateAndTime(Date date) {
  using icu::DateFormat;
  const std::unique_ptr<DateFormat> format(
      DateFormat::createDateTimeInstance(DateFormat::kMedium, DateFormat::kShort));
  if (!format) return iso8601(date);
  icu::UnicodeString words;
  format->format(date.secondsSinceUnixEpoch() * 1000, words);
  std::string text;
  return words.toUTF8String(text);
}

}  // namespace vantrell
