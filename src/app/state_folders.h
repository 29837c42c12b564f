// Where the program keeps its state, and the lock that lets one process own it. Blocks. Errors are
// one sentence or two for the user.
#pragma once

#include <expected>
#include <string>

#include "platform/files.h"

namespace vantrell {

struct StateFolders {
  std::string support;  // conversations, and all else that is no setting
  std::string config;

  std::string settingsFile() const { return config + "/defaults.sqlite"; }

  /// Makes them when missing; empty names stand for the user's own.
  static std::expected<StateFolders, std::string> make(std::string support, std::string config);
};

/// Held until the object goes, or the process ends.
std::expected<files::LockFile, std::string> lockState(const StateFolders& folders);

}  // namespace vantrell
