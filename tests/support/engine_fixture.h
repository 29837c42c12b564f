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
#include "support/fake_services.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

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
  Executor* writer = nullptr;
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
