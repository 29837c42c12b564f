// What is known of a runtime on this machine: a plain value.
#pragma once

#include <optional>
#include <string>

namespace vantrell {

struct RuntimeInstallStatus {
  enum class State {
    checking,   // nobody has looked yet, or not everywhere
    installed,  // with `path`
    missing,
  };

  State state = State::checking;
  std::string path;
  std::optional<std::string> version;
  /// Absent when it is not known. Codex and Claude alone can tell.
  std::optional<bool> signedIn;
  /// It is there, but left a question unanswered for the time limit.
  bool hasRunOut = false;
  /// It is there, but failed when it was asked for its version.
  bool hasFailed = false;

  static RuntimeInstallStatus installed(std::string path) {
    RuntimeInstallStatus status;
    status.state = State::installed;
    status.path = std::move(path);
    return status;
  }
  static RuntimeInstallStatus missing() {
    RuntimeInstallStatus status;
    status.state = State::missing;
    return status;
  }
  bool isInstalled() const { return state == State::installed; }
  bool operator==(const RuntimeInstallStatus&) const = default;
};

using GrokInstallStatus = RuntimeInstallStatus;
using CodexInstallStatus = RuntimeInstallStatus;
using KimiInstallStatus = RuntimeInstallStatus;
using OpenCodeInstallStatus = RuntimeInstallStatus;
using ClaudeInstallStatus = RuntimeInstallStatus;

/// The log-in that the user has started.
struct RuntimeLogin {
  bool isRunning = false;
  /// Why the last one did not succeed.
  std::optional<std::string> failure;
  bool operator==(const RuntimeLogin&) const = default;
};

}  // namespace vantrell
