// A gateway and what it needs from outside, for tests, benchmarks and the program gateway_host.
// Made and used on the main queue.
#pragma once

#include <initializer_list>
#include <string>

#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "gateway/gateway_module.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/workspace_store.h"
#include "support/fake_services.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

/// Projects, settings and providers, which are always ready and give no client.
struct GatewaySurroundings {
  GatewaySurroundings(MainQueue& given, std::initializer_list<const char*> projects)
      : queue(given) {
    for (const auto each : allAgentProviders) {
      providers.connectors[each] = {
          each, "Install it.", [](const auto&) { return true; },
          [](const auto&) -> std::shared_ptr<AgentClient> { return nullptr; }};
    }
    settings.load();
    for (const auto* name : projects) {
      tree.addWorkspace(Workspace::makeProject(folder.folder(name), queue.now()));
    }
  }
  GatewayModule::Dependencies dependencies() {
    return {queue, changes, tree, settings, providers, pool, folder / "data"};
  }

  MainQueue& queue;
  TemporaryFolder folder;
  BackgroundPool pool{2};
  Changes changes{queue};
  std::unique_ptr<UserDefaults> defaults = UserDefaults::inMemory();
  Settings settings{*defaults, changes};
  WorkspaceStore workspaceStore{*defaults, folder / "data"};
  WorkspaceTree tree{queue, workspaceStore, changes};
  FakeProviders providers;
};

/// One project, one key for everything and one without local models. Jobs fail; the local runtime
/// is what the test says.
struct GatewayParts : GatewaySurroundings {
  explicit GatewayParts(MainQueue& given) : GatewaySurroundings(given, {"site"}) {
    module.load();
    module.keys.setEnabled(true);
    key = makeKey({allAgentProviders.begin(), allAgentProviders.end()});
    keyWithoutLocal = makeKey({AgentProvider::codex});
  }

  std::string makeKey(std::set<AgentProvider> allowed) {
    return module.keys.create("test", {{folder / "site"}, std::move(allowed)})->secret;
  }
  void serveModels(const std::string& baseURL, const std::vector<std::string>& ids) {
    LocalRuntimeConnection connection{LocalRuntimeKind::custom, "Test", *Url::parse(baseURL), {}};
    for (const auto& id : ids) connection.models.push_back({.id = id, .label = id});
    providers.localStatus = LocalRuntimeStatus::ready(std::move(connection));
  }

  GatewayModule module{dependencies()};
  std::string key;
  std::string keyWithoutLocal;
};

}  // namespace vantrell::tests
