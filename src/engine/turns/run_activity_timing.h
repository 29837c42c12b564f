// How long something has lasted, in the words of status messages. Pure functions, any thread.
#pragma once

#include <string>

#include "platform/values/date.h"

namespace vantrell {

struct RunActivityTiming {
  /// "42s", "3m 5s", "2h 10m": whole seconds, none for a date in the future.
  static std::string elapsedLabel(Date since, Date now);
};

}  // namespace vantrell
