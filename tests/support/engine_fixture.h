// A whole engine in memory: virtual time, one project with one task selected, and agent clients
// that a test plays by hand.
#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "app/app_model.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/workspace_store.h"
#include "support/fake_agent_client.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class EngineFixture : public ::testing::Test {
 public:
  struct Event {
    std::string kind;
    std::string message;
  };

  EngineFixture();
  ~EngineFixture() override;

  /// Makes the model, with a project folder opened. Ports may be set before.
  void start();

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

  TemporaryFolder folder;
  ManualMainQueue main;
  std::unique_ptr<UserDefaults> defaults = UserDefaults::inMemory();
  WorkspaceStore store;
  std::map<AgentProvider, ProviderConnector> connectors;
  EnginePorts ports;
  /// Whose runtimes are there: one, and any others.
  std::optional<AgentProvider> provider = AgentProvider::kimi;
  std::set<AgentProvider> others;
  std::optional<AgentProvider> noClientFor;
  std::vector<std::shared_ptr<FakeAgentClient>> clients;
  std::vector<ProviderConnectorContext> contexts;
  std::vector<Event> events;
  std::unique_ptr<AppModel> model;
  ThreadExecutionKey key;
};

}  // namespace vantrell::tests
