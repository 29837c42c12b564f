// A gateway and what it needs from outside, for tests, benchmarks and the program gateway_host: one
// project, one key for everything and one without local models. Agents are none, so jobs fail; the
// local runtime is what the test says. Made and used on the main queue.
#pragma once

#include <string>

#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "gateway/gateway_module.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/workspace_store.h"
#include "support/fake_services.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

struct GatewayParts {
  explicit GatewayParts(MainQueue& queue) : main(queue) {
    for (const auto each : allAgentProviders) {
      providers.connectors[each] = {
          each, "Install it.", [](const auto&) { return true; },
          [](const auto&) -> std::shared_ptr<AgentClient> { return nullptr; }};
    }
    settings.load();
    tree.addWorkspace(Workspace::makeProject(folder.folder("site"), main.now()));
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

  MainQueue& main;
  TemporaryFolder folder;
  BackgroundPool pool{2};
  Changes changes{main};
  std::unique_ptr<UserDefaults> defaults = UserDefaults::inMemory();
  Settings settings{*defaults, changes};
  WorkspaceStore workspaceStore{*defaults, folder / "data"};
  WorkspaceTree tree{main, workspaceStore, changes};
  FakeProviders providers;
  GatewayModule module{{.main = main,
                        .changes = changes,
                        .tree = tree,
                        .settings = settings,
                        .providers = providers,
                        .pool = pool,
                        .supportFolder = folder / "data"}};
  std::string key;
  std::string keyWithoutLocal;
};

}  // namespace vantrell::tests
