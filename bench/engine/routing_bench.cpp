// What it costs to decide who takes a turn: with every provider's program found, a local server and
// usage of all known, as a window has it at every turn. 50 microseconds are the limit.
#include <filesystem>
#include <fstream>

#include "bench_folder.h"
#include "engine/providers/router.h"
#include "platform/http/http_client.h"
#include "platform/process/process.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "ratio.h"
#include "records/stores/orchestration_store.h"
#include "records/stores/workspace_store.h"
#include "runtimes/tasklet/tasklet_webhook.h"
#include "support/fake_services.h"

using namespace vantrell;

namespace {

constexpr std::chrono::microseconds limit{50};
constexpr int decisionsOfARound = 100;

LocalRuntimeStatus serverWithModels() {
  LocalRuntimeConnection connection{
      LocalRuntimeKind::ollama, "Ollama", *Url::parse("http://127.0.0.1:11434/v1"), {}};
  for (int i = 0; i < 20; ++i) connection.models.push_back({fmt::format("model-{}", i)});
  return LocalRuntimeStatus::ready(connection);
}

}  // namespace

int main() {
  const bench::Folder folder;
  ManualMainQueue main;
  BackgroundPool pool{1};
  HttpClient http(main);
  const auto defaults = UserDefaults::inMemory();
  const auto program = [&](AgentProvider each) {
    return fmt::format("{}/{}", folder.path(), rawText(each));
  };
  for (const auto each : allAgentProviders) {
    std::ofstream(program(each)) << "#!/bin/sh\n";
    std::filesystem::permissions(program(each), std::filesystem::perms::owner_all);
  }
  const ProviderConnectorRegistry connectors({.main = main,
                                              .pool = pool,
                                              .defaults = *defaults,
                                              .http = http,
                                              .webhook = nullptr,
                                              .customExecutable = program});
  const auto status = serverWithModels();
  tests::FakeProviders providers;
  providers.localStatus = status;
  providers.isConfigured = true;
  for (const auto each : allAgentProviders) {
    providers.connectors[each] = connectors.connector(each);
  }

  WorkspaceStore store(*defaults, folder.path());
  Changes changes(main);
  Settings settings(*defaults, changes);
  WorkspaceTree tree(main, store, changes);
  Selection selection(*defaults, changes);
  ExecutionTable executions(main, changes);
  EngineEvents events;
  RunLifecycle runs(main, tree, executions, events);
  OrchestrationStore ledgers(folder.path(), [&] { return main.now(); }, [](const std::string&) {});
  tree.load();
  UsageTracker usage(main, changes, ledgers, nullptr);
  ProviderSetup setup({settings, tree, selection, executions, runs, providers});
  Router router({settings, tree, executions, runs, setup, usage});

  const Workspace& general = tree.workspaces().front();
  const ThreadExecutionKey key{general.id, general.threads.front().id};
  selection.select(key.workspaceID, key.threadID);
  executions.execution(key).activeProvider = AgentProvider::local;
  // All but the last of the order are used up, so that all are looked at.
  for (const auto each : allAgentProviders) {
    usage.discovered({.provider = each,
                      .primaryUsedPercent = 100,
                      .resetsAt = main.now() + Seconds(3600),
                      .exhausted = each != AgentProvider::claude});
  }

  std::size_t seen = 0;
  const auto found = bench::compare(
      201,
      [&] {
        return bench::timed([&] {
          for (int i = 0; i < decisionsOfARound; ++i) {
            if (router.providerForNextTurn({}, key) != AgentProvider::claude) std::abort();
          }
        });
      },
      [&] {
        return bench::timed([&] {
          for (int i = 0; i < decisionsOfARound; ++i) seen += currentEnvironment().size();
        });
      });
  if (seen == 0) std::abort();
  const double each =
      std::chrono::duration<double, std::micro>(found.ours).count() / decisionsOfARound;
  fmt::print("{:.1f} µs a decision\n", each);
  return bench::report({"a routing decision", "50 µs", 1},
                       each / static_cast<double>(limit.count())) |
         bench::report({"a routing decision", "one copy of the environment", 10}, found);
}
