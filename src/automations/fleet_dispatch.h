// What automations need of the fleet: hosts that take a prompt. The fleet implements it; without
// one no host is known. Main queue.
#pragma once

#include <functional>
#include <string>

#include "engine/core/refusal.h"
#include "platform/values/uuid.h"

namespace vantrell {

class FleetDispatch {
 public:
  virtual ~FleetDispatch() = default;
  /// Whether the list of hosts has it, reachable or not.
  virtual bool hasHost(const Uuid& hostID) const = 0;
  /// Hands the prompt to the host, for its project with this path or else its first. `done` follows
  /// when the host has accepted it or why it did not. What fails shows on the host.
  virtual void dispatchTask(const Uuid& hostID, std::string prompt, std::string projectPath,
                            std::function<void(Result<>)> done) = 0;
  /// Asks every host how it is.
  virtual void refreshFleet() = 0;
};

}  // namespace vantrell
