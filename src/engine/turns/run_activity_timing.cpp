#include "engine/turns/run_activity_timing.h"

#include <algorithm>
#include <cstdint>
#include <fmt/format.h>

namespace vantrell {

std::string RunActivityTiming::elapsedLabel(Date since, Date now) {
  const auto seconds = static_cast<std::int64_t>(std::max(0.0, (now - since).count()));
  const std::int64_t minutes = seconds / 60;
  if (minutes >= 60) return fmt::format("{}h {}m", minutes / 60, minutes % 60);
  if (minutes >= 1) return fmt::format("{}m {}s", minutes, seconds % 60);
  return fmt::format("{}s", seconds);
}

}  // namespace vantrell
