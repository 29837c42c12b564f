// Failures of an ACP runtime and of the services that the host does for it.
#pragma once

#include <string>

#include "runtimes/agent_error.h"

namespace vantrell {

class ACPClientError {
 public:
  enum class Kind {
    executableMissing,
    processFailed,
    invalidResponse,
    invalidRequest,
    disconnected
  };

  static ACPClientError executableMissing(const std::string& runtimeName) {
    return {Kind::executableMissing, "The " + runtimeName + " CLI is not installed."};
  }
  static ACPClientError processFailed(std::string text) {
    return {Kind::processFailed, std::move(text)};
  }
  static ACPClientError invalidResponse(std::string text) {
    return {Kind::invalidResponse, std::move(text)};
  }
  static ACPClientError invalidRequest(std::string text) {
    return {Kind::invalidRequest, std::move(text)};
  }
  static ACPClientError disconnected() {
    return {Kind::disconnected, "The model runtime disconnected."};
  }

  Kind kind() const { return kind_; }
  const std::string& localizedDescription() const { return description_; }
  operator AgentError() const {
    return kind_ == Kind::disconnected ? AgentError::disconnection(description_)
                                       : AgentError(description_);
  }

 private:
  ACPClientError(Kind kind, std::string description)
      : kind_(kind), description_(std::move(description)) {}

  Kind kind_;
  std::string description_;
};

}  // namespace vantrell
