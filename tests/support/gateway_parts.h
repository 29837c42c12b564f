// A gateway with all that it stands on, for tests, benchmarks and the program gateway_host: one
// project, one key for everything and one without local models. Agents are none, so jobs fail; the
// local runtime is what the test says. Made and used on the main queue.
#pragma once

#include <string>

#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "gateway/gateway_scope.h"
#include "gateway/gateway_store.h"
#include "gateway/personal_gateway.h"
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
    keys.load();
    keys.setEnabled(true);
    jobs->load();
    key = makeKey({allAgentProviders.begin(), allAgentProviders.end()});
    keyWithoutLocal = makeKey({AgentProvider::codex});
  }

  std::string makeKey(std::set<AgentProvider> allowed) {
    return keys.create("test", {{folder / "site"}, std::move(allowed)})->secret;
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
  HttpClient http{main};
  std::shared_ptr<GatewayStore> store =
      std::make_shared<GatewayStore>(main, changes, folder / "data", pool);
  SiteKeys keys{main, changes, *store};
  GatewayScope scope{tree, settings, providers};
  std::shared_ptr<GatewayJobs> jobs =
      std::make_shared<GatewayJobs>(GatewayJobs::Dependencies{main, changes, keys, scope, *store});
  JobRoutes jobRoutes{{main, *jobs, scope, keys, *store, pool}};
  std::shared_ptr<CompatibilityRoutes> compatibility =
      CompatibilityRoutes::make(main, http, providers);
  GatewayServer server{main, pool};
  PersonalGateway gateway{{changes, server, keys, *jobs, jobRoutes, *compatibility}};
  std::string key;
  std::string keyWithoutLocal;
};

}  // namespace vantrell::tests
