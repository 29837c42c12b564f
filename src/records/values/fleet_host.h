// A place that can run work: this computer, another one that is paired by a link, or a host that is
// reached over HTTP. What is known of it is what was last seen. Plain values.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values/date.h"
#include "platform/values/uuid.h"
#include "records/values/raw_text.h"

namespace vantrell {

enum class FleetPlatform { macOS, windows, linux_, android };
constexpr auto rawTexts(FleetPlatform) {
  return std::to_array<std::string_view>({"macOS", "windows", "linux", "android"});
}

enum class FleetHostStatus { online, busy, offline, needsAttention };
constexpr auto rawTexts(FleetHostStatus) {
  return std::to_array<std::string_view>({"online", "busy", "offline", "needsAttention"});
}

struct FleetHost {
  Uuid id;
  std::string name;  // a check may replace it with what the host reports
  FleetPlatform platform = FleetPlatform::linux_;
  FleetHostStatus status = FleetHostStatus::offline;
  /// `thisMachine`, `linkScheme` with the id in lower case, or an HTTP URL. No secret.
  std::optional<std::string> endpoint;
  std::vector<std::string> capabilities;  // names of providers, or what the host reports
  /// Of a paired host: paths of its projects. Of an HTTP host: "id|path" each.
  std::vector<std::string> workspacePaths;
  std::optional<Date> lastSeenAt;
  bool preferred = false;

  static constexpr std::string_view thisMachine = "local://this-mac";
  static constexpr std::string_view linkScheme = "keychain://";

  bool isThisMachine() const { return endpoint == thisMachine; }
  bool isPaired() const { return endpoint && endpoint->starts_with(linkScheme); }

  bool operator==(const FleetHost&) const = default;
};

}  // namespace vantrell
