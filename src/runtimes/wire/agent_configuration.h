// What a client of Codex or Claude Code is told about its conversation when it is made.
#pragma once

#include <optional>
#include <string>

#include "platform/process/process.h"
#include "records/values/task_modes.h"

namespace vantrell {

struct AgentConfiguration {
  std::string executable;            // absolute
  std::string workspacePath;         // folder of the process and the session
  std::optional<std::string> model;  // of Claude Code never absent: the selected or the configured
  std::optional<std::string> effort;
  GrokPermissionMode permissionMode = GrokPermissionMode::ask;
  Environment processEnvironment;  // complete; of the subscription, without API keys
};

}  // namespace vantrell
