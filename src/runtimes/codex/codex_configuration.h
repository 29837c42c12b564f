// Everything that a Codex client is told about its conversation, given when it is made.
#pragma once

#include <optional>
#include <string>

#include "platform/process/process.h"
#include "records/values/task_modes.h"

namespace vantrell {

struct CodexConfiguration {
  std::string executable;     // absolute
  std::string workspacePath;  // folder of the process and the thread, the root that may be written
  std::optional<std::string> model;
  std::optional<std::string> effort;
  GrokPermissionMode permissionMode = GrokPermissionMode::ask;
  Environment processEnvironment;  // complete; of the subscription, without API keys
};

}  // namespace vantrell
