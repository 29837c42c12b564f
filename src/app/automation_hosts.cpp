#include "app/automation_hosts.h"

#include <algorithm>

#include "fleet/fleet_module.h"

namespace vantrell {

bool AutomationHosts::hasHost(const Uuid& hostID) const {
  const auto& hosts = fleet_.fleet->fleetHosts();
  return std::ranges::find(hosts, hostID, &FleetHost::id) != hosts.end();
}

void AutomationHosts::dispatchTask(const Uuid& hostID, std::string prompt, std::string projectPath,
                                   std::function<void(Result<>)> done) {
  fleet_.fleet->dispatchTask(hostID, fleet_.thisMachine.task(std::move(prompt), projectPath),
                             std::move(done));
}

void AutomationHosts::refreshFleet() {
  fleet_.fleet->refreshFleet();
}

}  // namespace vantrell
