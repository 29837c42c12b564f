// Failures of the Claude Code client, apart from those of a turn, which Claude Code words itself.
#pragma once

#include <string>

#include "runtimes/wire/agent_error.h"

namespace vantrell::ClaudeCodeClientError {

inline AgentError executableMissing() {
  return AgentError("The Claude Code CLI is not installed.");
}
inline AgentError protocolError(std::string text) {
  return AgentError(std::move(text));
}
inline AgentError disconnected(std::string text) {
  return AgentError::disconnection(std::move(text));
}

}  // namespace vantrell::ClaudeCodeClientError
