// Days of the calendar in the user's language and time zone. Pure but for the environment; any
// thread.
#pragma once

#include <string>

#include "platform/values/date.h"

namespace vantrell {

/// The number of the day, counted from 1970-01-01.
long localDay(Date date);
/// "Nov 22, 2026".
std::string mediumDate(Date date);

}  // namespace vantrell
