// Failures of the Claude Code client, apart from those of a turn, which Claude Code words itself.
#pragma once

#include <string>

#include "runtimes/agent_error.h"

namespace vantrell {

class ClaudeCodeClientError {
 public:
  enum class Kind { processFailed, disconnected, protocolError, executableMissing };

  static ClaudeCodeClientError processFailed(std::string text) {
    return {Kind::processFailed, std::move(text)};
  }
  static ClaudeCodeClientError disconnected(std::string text) {
    return {Kind::disconnected, std::move(text)};
  }
  static ClaudeCodeClientError protocolError(std::string text) {
    return {Kind::protocolError, std::move(text)};
  }
  static ClaudeCodeClientError executableMissing() {
    return {Kind::executableMissing, "The Claude Code CLI is not installed."};
  }

  Kind kind() const { return kind_; }
  const std::string& localizedDescription() const { return description_; }
  operator AgentError() const {
    return kind_ == Kind::disconnected ? AgentError::disconnection(description_)
                                       : AgentError(description_);
  }

 private:
  ClaudeCodeClientError(Kind kind, std::string description)
      : kind_(kind), description_(std::move(description)) {}

  Kind kind_;
  std::string description_;
};

}  // namespace vantrell
