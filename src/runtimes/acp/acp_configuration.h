// Everything that distinguishes one ACP runtime from another, given when its client is made.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/process.h"
#include "records/agent_provider.h"
#include "records/task_modes.h"

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
  std::string runtimeName;                    // for messages
};

/// Arguments of the Grok Build harness for a mode, a model and an effort. The mode stands in front
/// of the word "agent", full access behind it: the harness reads them in different places.
std::vector<std::string> agentArguments(GrokPermissionMode mode,
                                        const std::optional<std::string>& model,
                                        const std::optional<std::string>& effort);

}  // namespace vantrell
