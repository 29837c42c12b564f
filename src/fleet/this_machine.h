// This machine as a host of the fleet, and the tasks that are described by what the user looks at
// here. Main queue.
#pragma once

#include <optional>
#include <string>

#include "fleet/fleet.h"
#include "platform/values/json.h"
#include "records/values/chat_thread.h"

namespace vantrell {

class ExecutionTable;
class Router;
class Selection;
class Settings;
class WorkspaceTree;

class ThisMachine {
 public:
  /// All must outlive it.
  struct Dependencies {
    MainQueue& main;
    const WorkspaceTree& tree;
    const Settings& settings;
    const Selection& selection;
    const ExecutionTable& executions;
    const Router& router;
  };
  explicit ThisMachine(const Dependencies& given) : core_(given) {}

  /// As it is now: busy while any conversation or the media generator is at work.
  FleetHost asFleetHost() const;
  /// This machine, then the stored hosts.
  std::vector<FleetHost> fleetOverview(const Fleet& fleet) const;
  /// What the fleet of another machine asks for: name and capabilities.
  JsonObject statusForFleets() const;
  /// For a host that does what would be done here, in the project or else in the selected one.
  FleetTask task(std::string prompt, const std::optional<std::string>& projectPath = {}) const;

 private:
  AgentProvider provider() const;

  const Dependencies core_;
};

}  // namespace vantrell
