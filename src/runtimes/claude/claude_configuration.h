// Everything that one Claude Code client is told when it is made.
#pragma once

#include <optional>
#include <string>

#include "platform/process/process.h"
#include "records/values/task_modes.h"

namespace vantrell {

struct ClaudeConfiguration {
  std::string executable;             // absolute
  std::string workspacePath;          // folder of the process
  std::string model;                  // never empty: the selected one, else the configured one
  std::optional<std::string> effort;  // as selected
  GrokPermissionMode permissionMode = GrokPermissionMode::ask;
  Environment processEnvironment;  // complete, and without API keys
};

}  // namespace vantrell
