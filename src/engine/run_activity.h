// A row of the activity list: the latest run of a conversation that the user may want to look at.
// Plain value.
#pragma once

#include <string>

#include "records/chat_thread.h"

namespace vantrell {

struct RunActivity {
  Uuid workspaceID;
  std::string workspaceName;
  Uuid threadID;
  std::string threadTitle;
  RunRecord run;

  bool operator==(const RunActivity&) const = default;
};

}  // namespace vantrell
