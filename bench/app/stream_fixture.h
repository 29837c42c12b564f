// A whole engine with real child processes that stream prepared turns, for measuring what updates
// cost on their way from the pipe to the observers.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "app/app_model.h"
#include "app/app_parts.h"
#include "app/stream_agent.h"
#include "bench_folder.h"
#include "platform/process/process.h"
#include "platform/queues/run_loop.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/workspace_store.h"
#include "support/fake_services.h"

namespace vantrell::bench {

/// By its path: in a child, /proc/self/exe is another program.
inline std::string ownProgram() {
  return std::filesystem::read_symlink("/proc/self/exe").string();
}

class StreamFixture {
 public:
  /// One conversation for each part, all at once.
  explicit StreamFixture(std::vector<StreamPart> parts) : parts_(std::move(parts)) {}
  /// One conversation, whose runtime sends these lines in the turn.
  StreamFixture(const StreamDialect& dialect, const std::string& lines)
      : StreamFixture({{&dialect}}) {
    parts_[0].linesFile = folder_.path() + "/lines";
    std::ofstream(parts_[0].linesFile) << lines;
  }

  /// Runs one turn of each conversation to its end. `streaming` is called when a prompt goes out,
  /// `observe` for each announcement, `streamed` when a run has ended.
  void run(const std::function<void()>& streaming,
           const std::function<void(const ChangeBatch&, const WorkspaceTree&)>& observe,
           const std::function<void(const Transcript&)>& streamed) {
    RunLoop main;
    BackgroundPool pool;
    auto defaults = UserDefaults::inMemory();
    WorkspaceStore store(*defaults, folder_.path());

    // Routing looks at all of them, to give the reason for its choice.
    tests::FakeProviders providers;
    tests::FakeProjects projects;
    RuntimePrograms programs;
    EngineEvents events;
    for (const auto each : allAgentProviders) {
      ProviderConnector& connector = providers.connectors[each];
      connector.provider = each;
      connector.isAvailable = [](const auto&) { return false; };
    }
    for (const StreamPart& part : parts_) {
      ProviderConnector& connector = providers.connectors[part.dialect->provider];
      connector.isAvailable = [](const auto&) { return true; };
      connector.makeClient = [&](const ProviderConnectorContext& context) {
        return part.dialect->makeClient(ownProgram(), context.workspacePath, part.environment(),
                                        main, pool);
      };
    }
    AppModel app({.main = main,
                  .defaults = *defaults,
                  .store = store,
                  .providers = providers,
                  .projects = projects,
                  .events = events,
                  .programs = programs,
                  .supportFolder = folder_.path()});
    AppParts& model = app.parts();

    const Uuid workspace = model.selection.key()->workspaceID;
    std::vector<ThreadExecutionKey> keys;
    for (const StreamPart& part : parts_) {
      ChatThread thread = ChatThread::make("A task", main.now());
      thread.preferredProvider = part.dialect->provider;
      keys.push_back({workspace, thread.id});
      model.tree.addThread(std::move(thread), workspace);
    }
    std::size_t ended = 0;
    const auto observation = model.changes.observe([&](const ChangeBatch& batch) {
      observe(batch, model.tree);
      for (const auto& [key, changes] : batch.conversations) {
        if (!changes.runs) continue;
        const RunRecord& run = *model.tree.latestRun(key);
        if (run.status == RunRecordStatus::running) streaming();
        if (isActive(run.status)) continue;
        if (run.status != RunRecordStatus::completed) std::abort();
        streamed(model.tree.thread(key)->entries);
        if (++ended == parts_.size()) main.quit();
      }
    });
    for (const auto& key : keys) model.composer->sendNow("Go", {}, key);
    main.run();
    app.endAllWork();
    Process::waitForAll(std::chrono::seconds(5));
  }

 private:
  Folder folder_;
  std::vector<StreamPart> parts_;
};

}  // namespace vantrell::bench
