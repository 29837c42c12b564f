// What can go wrong with an agent runtime, as one value that every client hands out.
#pragma once

#include <optional>
#include <string>

#include "records/values/agent_provider.h"

namespace vantrell {

/// A failure that the client could classify by itself.
struct AgentRuntimeError {
  enum class Kind { usageLimit, authentication, disconnected, protocolError };

  AgentProvider provider = AgentProvider::grok;
  Kind kind = Kind::protocolError;
  std::string message;
};

/// Any failure of a client: a classified one, or one that is known by its words alone (a runtime's
/// own error text, a system message).
class AgentError {
 public:
  AgentError(AgentRuntimeError error)
      : description_(error.message), runtimeError_(std::move(error)) {}
  explicit AgentError(std::string description) : description_(std::move(description)) {}
  /// The runtime has gone; how it ended is told apart from this.
  static AgentError disconnection(std::string description) {
    AgentError error(std::move(description));
    error.isDisconnection_ = true;
    return error;
  }

  static AgentError notInstalled(const std::string& runtimeName) {
    return AgentError("The " + runtimeName + " CLI is not installed.");
  }

  /// The way to the runtime failed: no word of the text is the runtime's, whatever names of servers
  /// stand in it.
  static AgentError transport(std::string description) {
    AgentError error(std::move(description));
    error.isOfTransport_ = true;
    return error;
  }

  /// The sentence for people.
  const std::string& localizedDescription() const { return description_; }
  const std::optional<AgentRuntimeError>& runtimeError() const { return runtimeError_; }
  bool isOfTransport() const { return isOfTransport_; }
  bool isDisconnection() const {
    return isDisconnection_ ||
           (runtimeError_ && runtimeError_->kind == AgentRuntimeError::Kind::disconnected);
  }

 private:
  std::string description_;
  std::optional<AgentRuntimeError> runtimeError_;
  bool isDisconnection_ = false;
  bool isOfTransport_ = false;
};

/// Whether the provider says that its allowance is used up: the one failure that hands a task on to
/// another provider. A classified error answers by its kind; any other by its words, since ACP
/// runtimes report a limit in text alone. A login failure, a network failure or a crash never
/// counts.
bool isUsageLimitFailure(const AgentError& error);

}  // namespace vantrell
