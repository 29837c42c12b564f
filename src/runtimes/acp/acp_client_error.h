// Failures of an ACP runtime and of the services that the host does for it.
#pragma once

#include <string>

#include "runtimes/wire/agent_error.h"

namespace vantrell::ACPClientError {

inline AgentError executableMissing(const std::string& runtimeName) {
  return AgentError("The " + runtimeName + " CLI is not installed.");
}
inline AgentError processFailed(std::string text) {
  return AgentError(std::move(text));
}
inline AgentError invalidResponse(std::string text) {
  return AgentError(std::move(text));
}
inline AgentError invalidRequest(std::string text) {
  return AgentError(std::move(text));
}
inline AgentError disconnected() {
  return AgentError::disconnection("The model runtime disconnected.");
}

}  // namespace vantrell::ACPClientError
