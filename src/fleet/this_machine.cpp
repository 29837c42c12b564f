#include "fleet/this_machine.h"

#include <algorithm>

#include "engine/core/execution_table.h"
#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/providers/router.h"
#include "platform/sockets/own_address.h"
#include "runtimes/catalog/provider_registry.h"

namespace vantrell {

FleetHost ThisMachine::asFleetHost() const {
  const bool isBusy = core_.executions.imagine().state.isBusy() ||
                      std::ranges::any_of(core_.executions.keys(), [&](const auto& key) {
                        return core_.executions.isBusy(key);
                      });
  FleetHost host{.id = {},
                 .name = nameOfThisComputer(),
                 .status = isBusy ? FleetHostStatus::busy : FleetHostStatus::online,
                 .endpoint = std::string(FleetHost::thisMachine),
                 .lastSeenAt = core_.main.now()};
  for (const auto& each : ProviderRegistry::all()) {
    if (core_.router.providerAvailable(each.id)) host.capabilities.push_back(each.label);
  }
  return host;
}

std::vector<FleetHost> ThisMachine::fleetOverview(const Fleet& fleet) const {
  std::vector<FleetHost> all{asFleetHost()};
  std::ranges::remove_copy_if(fleet.fleetHosts(), std::back_inserter(all),
                              &FleetHost::isThisMachine);
  return all;
}

JsonObject ThisMachine::statusForFleets() const {
  Json::Array capabilities;
  for (const auto& each : ProviderRegistry::all()) {
    if (core_.router.providerAvailable(each.id)) capabilities.push_back(each.shortLabel);
  }
  return {{"name", nameOfThisComputer()}, {"capabilities", std::move(capabilities)}};
}

AgentProvider ThisMachine::provider() const {
  const auto route = core_.settings.routingMode();
  const auto key = core_.selection.key();
  const ChatThread* thread = key ? core_.tree.thread(*key) : nullptr;
  if (!thread) return firstChoice(route);
  if (thread->nextMessageProvider) return *thread->nextMessageProvider;
  if (thread->preferredProvider) return *thread->preferredProvider;
  if (!allowsAutomaticHandoff(route)) return firstChoice(route);
  return thread->lastProvider.value_or(firstChoice(route));
}

FleetTask ThisMachine::task(std::string prompt,
                            const std::optional<std::string>& projectPath) const {
  const auto& selected = core_.selection.workspaceID();
  const Workspace* workspace = selected ? core_.tree.workspace(*selected) : nullptr;
  return {.prompt = std::move(prompt),
          .projectPath = projectPath.value_or(workspace ? workspace->path : std::string()),
          .provider = provider(),
          .permissionMode = core_.settings.permissionMode()};
}

}  // namespace vantrell
