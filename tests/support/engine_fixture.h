// A whole engine in memory: virtual time, one project with one task selected, and agent clients
// that a test plays by hand. Its surroundings are played by functions that a test may replace
// before start().
#pragma once

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "app/app_model.h"
#include "app/app_parts.h"
#include "app/selected_task.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/workspace_store.h"
#include "support/fake_agent_client.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

struct FakeProviders : ProviderServices {
  std::map<AgentProvider, ProviderConnector> connectors;
  LocalRuntimeStatus localStatus = LocalRuntimeStatus::checking();
  int localRefreshes = 0;
  bool isConfigured = false;
  std::function<void(const std::string&, std::function<void(bool)>)> save =
      [](const std::string&, const std::function<void(bool)>& reply) { reply(false); };
  std::function<bool(AgentProvider)> known = [](AgentProvider) { return true; };
  std::function<void(AgentProvider, std::function<void()>)> findOut =
      [](AgentProvider, const std::function<void()>& done) { done(); };

  const ProviderConnector& connector(AgentProvider each) const override {
    return connectors.at(each);
  }
  LocalRuntimeStatus localRuntimeStatus() const override { return localStatus; }
  void refreshLocalRuntime() override { ++localRefreshes; }
  bool isTaskletConfigured() const override { return isConfigured; }
  void loadTasklet(std::function<void()> done) override { done(); }
  void saveTaskletWebhook(const std::string& text, std::function<void(bool)> reply) override {
    save(text, std::move(reply));
  }
  bool isKnown(AgentProvider each) const override { return known(each); }
  void prepare(AgentProvider each, std::function<void()> done) override {
    findOut(each, std::move(done));
  }
};

struct FakeProjects : ProjectServices {
  std::function<void(const std::string&, std::function<void(std::string)>)> repository =
      [](const auto&, const auto& reply) { reply(""); };
  std::function<void(const std::string&, std::function<void(std::vector<ProjectContextSource>)>)>
      contextSources = [](const auto&, const auto& reply) { reply({}); };
  std::function<void(const std::string&, std::stop_token,
                     std::function<void(GitWorkspaceSnapshot)>)>
      git = [](const auto&, const auto&, const auto& reply) {
        reply(GitWorkspaceSnapshot::unavailable());
      };
  std::function<void(const ProjectHook&, const std::string&, std::function<void(std::string)>)>
      hook = [](const auto&, const auto&, const auto& reply) { reply(""); };

  void repositoryState(const std::string& folder, std::function<void(std::string)> reply) override {
    repository(folder, std::move(reply));
  }
  void discoverContextSources(
      const std::string& folder,
      std::function<void(std::vector<ProjectContextSource>)> reply) override {
    contextSources(folder, std::move(reply));
  }
  void gitSnapshot(const std::string& folder, std::stop_token stop,
                   std::function<void(GitWorkspaceSnapshot)> reply) override {
    git(folder, std::move(stop), std::move(reply));
  }
  void runProjectHook(const ProjectHook& which, const std::string& folder,
                      std::function<void(std::string)> reply) override {
    hook(which, folder, std::move(reply));
  }
};

class EngineFixture : public ::testing::Test, protected EngineEvents {
 public:
  struct Event {
    std::string kind;
    std::string message;
  };

  EngineFixture();
  ~EngineFixture() override;

  /// Makes the model, with a project folder opened.
  void start();
  /// Makes the model anew on what is stored, with nothing opened: a restart.
  void restart();
  void stop();

  /// A turn up to the point where the client has been asked to start.
  void send(const std::string& prompt);
  /// A turn that is at work in the client.
  void work(const std::string& prompt);

  FakeAgentClient& client() { return *clients.back(); }
  const ChatThread& thread() { return *model->tree.thread(key); }
  const RunRecord& run() { return *thread().latestRun(); }
  ThreadExecutionRuntime& execution() { return model->executions.execution(key); }
  ConnectionState state() { return execution().connectionState; }
  std::vector<std::string> texts();
  /// What a restart would read.
  std::vector<Workspace> saved();

  void chooseFolder(std::string_view title, std::string_view prompt,
                    std::function<void(std::string path)> reply) override {
    if (whenChoosingFolder) whenChoosingFolder(title, prompt, reply);
  }
  void prepareNotifications() override {
    if (whenPreparingNotifications) whenPreparingNotifications();
  }
  void taskEvent(TaskEventKind kind, std::string_view message,
                 const ThreadExecutionKey& about) override;
  void imagineEvent(ImagineEventKind kind, std::string_view message) override;

  TemporaryFolder folder;
  ManualMainQueue main;
  std::unique_ptr<UserDefaults> defaults = UserDefaults::inMemory();
  WorkspaceStore store;
  FakeProviders providers;
  FakeProjects projects;
  RuntimePrograms programs;
  Executor* backgroundExecutor = nullptr;
  bool refreshesRuntimes = false;
  std::string supportFolder;
  /// Whose runtimes are there: one, and any others.
  std::optional<AgentProvider> provider = AgentProvider::kimi;
  std::set<AgentProvider> others;
  std::optional<AgentProvider> noClientFor;
  std::vector<std::shared_ptr<FakeAgentClient>> clients;
  std::vector<ProviderConnectorContext> contexts;
  std::vector<Event> events;
  std::function<void(std::string_view, std::string_view, std::function<void(std::string)>)>
      whenChoosingFolder;
  std::function<void()> whenPreparingNotifications;
  std::function<void(std::string kind)> whenTaskEvent;
  std::unique_ptr<AppModel> app;
  AppParts* model = nullptr;
  ThreadExecutionKey key;
};

}  // namespace vantrell::tests
