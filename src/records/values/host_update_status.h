// How far an update of the program is: for its settings, and for remote clients, which see it in
// the snapshot. Plain values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "records/values/raw_text.h"

namespace vantrell {

enum class HostUpdatePhase {
  idle,
  checking,
  available,
  waiting,
  downloading,
  extracting,
  ready,
  installing,
  upToDate,
  failed
};
constexpr auto rawTexts(HostUpdatePhase) {
  return std::to_array<std::string_view>({"idle", "checking", "available", "waiting", "downloading",
                                          "extracting", "ready", "installing", "upToDate",
                                          "failed"});
}

struct RemoteHostUpdateStatus {
  HostUpdatePhase phase = HostUpdatePhase::idle;
  std::string label;    // a short headline
  std::string message;  // one or two sentences
  std::string currentVersion;
  std::optional<std::string> availableVersion;
  std::optional<double> progress;    // 0 to 1
  bool requiresDecision = false;     // a user must say whether work may be interrupted
  std::int64_t activeWorkCount = 0;  // when the decision was asked for
  std::int64_t queuedTaskCount = 0;  // the same
  bool waitingUntilIdle = false;

  bool operator==(const RemoteHostUpdateStatus&) const = default;
};

}  // namespace vantrell
