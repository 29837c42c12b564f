// A row of the activity list: the latest run of a conversation that the user may want to look at.
// Plain value.
#pragma once

#include <string>
#include <vector>

#include "records/values/chat_thread.h"

namespace vantrell {

struct RunActivity {
  Uuid workspaceID;
  std::string workspaceName;
  Uuid threadID;
  std::string threadTitle;
  RunRecord run;

  bool operator==(const RunActivity&) const = default;
};

/// A completed run leaves the list so long after its last change.
inline constexpr Seconds completedRunIsListedFor{300.0};

/// The list over all conversations: the latest run of each, where that is under way, failed or
/// interrupted, or has just completed. The one that changed last comes first. Reads no transcript.
/// Pure, any thread.
std::vector<RunActivity> activities(const std::vector<Workspace>& workspaces, Date now);

}  // namespace vantrell
