#include "platform/values/date.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace vantrell {
namespace {

TEST(Date, ShowsSecondsSinceTheReferenceAsUtc) {
  struct Case {
    double seconds;
    std::string_view text;
  };
  const Case cases[] = {
      {0, "2001-01-01T00:00:00Z"},
      {0.999, "2001-01-01T00:00:00Z"},
      {-0.001, "2000-12-31T23:59:59Z"},
      {86400.0 * 59, "2001-03-01T00:00:00Z"},
      {-86400.0 * 307, "2000-02-29T00:00:00Z"},
      {-978307200, "1970-01-01T00:00:00Z"},
      {817074480, "2026-11-22T21:08:00Z"},
      {Date::distantPast().secondsSinceReference(), "0001-01-01T00:00:00Z"},
      {-1e300, "0001-01-01T00:00:00Z"},
      {252423993599, "9999-12-31T23:59:59Z"},
      {1e300, "9999-12-31T23:59:59Z"},
      {std::nan(""), "0001-01-01T00:00:00Z"},
  };
  for (const Case& c : cases) EXPECT_EQ(iso8601(Date(c.seconds)), c.text) << c.seconds;
}

TEST(Date, ReadsFractionsAndOffsets) {
  struct Case {
    std::string_view text;
    double seconds;
  };
  const Case cases[] = {
      {"2001-01-01T00:00:00Z", 0},
      {"2001-01-01T00:00:01.5Z", 1.5},
      {"2001-01-01T00:00:00.123456789Z", 0.123456789},
      {"2000-12-31T23:59:59.25Z", -0.75},
      {"2001-01-01T01:30:00+01:30", 0},
      {"2000-12-31T22:00:00-02:00", 0},
      {"2001-01-01T02:00:00.5+02:00", 0.5},
      {"2024-02-29T00:00:00Z", 730857600},
      {"2000-02-29T00:00:00Z", -86400.0 * 307},
      {"0001-01-01T00:00:00Z", -63113904000},
      {"9999-12-31T23:59:59Z", 252423993599},
  };
  for (const Case& c : cases) {
    const auto date = dateFromIso8601(c.text);
    ASSERT_TRUE(date) << c.text;
    EXPECT_EQ(date->secondsSinceReference(), c.seconds) << c.text;
  }
}

TEST(Date, RefusesWhatNoCalendarHas) {
  const std::pair<std::string_view, std::vector<std::string_view>> cases[] = {
      {"another form",
       {"", "2026-11-22", "2026-11-22T21:08:00", "2026-11-22 21:08:00Z", "2026-11-22t21:08:00z",
        "2026-11-22T21:08Z", "2026-11-22T21:08:00ZZ", "2026-11-22T21:08:00Z ",
        " 2026-11-22T21:08:00Z", "2026-11-22T21:08:00.Z", "2026-11-22T21:08:00,5Z"}},
      {"no such offset",
       {"2026-11-22T21:08:00+0100", "2026-11-22T21:08:00+24:00", "2026-11-22T21:08:00+01:60",
        "2026-11-22T21:08:00+01:00Z"}},
      {"no such day",
       {"2023-02-29T00:00:00Z", "1900-02-29T00:00:00Z", "2026-02-30T00:00:00Z",
        "2026-04-31T00:00:00Z", "2026-00-10T00:00:00Z", "2026-13-10T00:00:00Z",
        "2026-01-00T00:00:00Z", "2026-01-32T00:00:00Z", "0000-01-01T00:00:00Z"}},
      {"no such time", {"2026-01-01T24:00:00Z", "2026-01-01T00:60:00Z", "2026-01-01T00:00:60Z"}},
      {"not so many digits",
       {"26-01-01T00:00:00Z", "-026-01-01T00:00:00Z", "2026-1-01T00:00:00Z",
        "+2026-01-01T00:00:00Z"}},
  };
  for (const auto& [reason, texts] : cases) {
    for (const auto text : texts) EXPECT_FALSE(dateFromIso8601(text)) << reason << ": " << text;
  }
}

TEST(Date, EveryDayOfFourHundredYearsComesBack) {
  constexpr int daysOfACycle = 146'097;
  for (int day = 0; day < daysOfACycle; ++day) {
    const Date date(day * 86400.0 - 1);
    const auto back = dateFromIso8601(iso8601(date));
    ASSERT_TRUE(back) << iso8601(date);
    ASSERT_EQ(*back, date) << iso8601(date);
  }
}

}  // namespace
}  // namespace vantrell
