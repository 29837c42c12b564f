// Everything that distinguishes one ACP runtime from another, given when its client is made.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/process/process.h"
#include "records/values/agent_provider.h"
#include "records/values/task_modes.h"

namespace vantrell {

struct ACPConfiguration {
  AgentProvider provider = AgentProvider::grok;
  std::string executable;     // absolute
  std::string workspacePath;  // folder of the process and the session, bound of the file services
  std::optional<std::string> model;
  std::optional<std::string> effort;
  GrokPermissionMode permissionMode = GrokPermissionMode::ask;
  std::vector<std::string> processArguments;  // complete, without the executable
  Environment processEnvironment;             // complete
  /// Complete; of the terminals that the runtime opens. It is Grok's whichever the runtime is: that
  /// one only adds to PATH, as a user's own shell would. Empty: the process's.
  Environment terminalEnvironment;
  std::string runtimeName;  // for messages
};

}  // namespace vantrell
