// A whole engine in memory: virtual time, one project with one task selected, and agent clients
// that a test plays by hand.
#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "app/ports.h"
#include "engine/app_model.h"
#include "platform/manual_main_queue.h"
#include "platform/user_defaults.h"
#include "records/workspace_store.h"
#include "support/fake_agent_client.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class EngineFixture : public ::testing::Test {
 public:
  struct Event {
    std::string kind;
    std::string message;
  };

  EngineFixture() : store(*defaults, folder.path()) {
    ports = neutralPorts();
    for (const auto each : allAgentProviders) {
      connectors[each] = {
          each, "Install it.",
          [this, each](const auto&) { return provider == each || others.contains(each); },
          [this, each](const ProviderConnectorContext& context) {
            contexts.push_back(context);
            if (noClientFor == each) return std::shared_ptr<AgentClient>();
            clients.push_back(std::make_shared<FakeAgentClient>(each));
            return std::shared_ptr<AgentClient>(clients.back());
          }};
    }
    ports.connector = [this](AgentProvider each) -> const ProviderConnector& {
      return connectors[each];
    };
    ports.sendRemoteTaskEvent = [this](std::string_view kind, std::string_view message,
                                       const auto&) {
      events.push_back({std::string(kind), std::string(message)});
    };
  }

  /// Makes the model, with a project folder opened. Ports may be set before.
  void start() {
    model = std::make_unique<AppModel>(main, *defaults, store, ports);
    model->operations.addWorkspace(folder.folder("project"));
    key = *model->selection.key();
    main.runReady();
  }

  /// A turn up to the point where the client has been asked to start.
  void send(const std::string& prompt) {
    model->driver->send(prompt, {});
    main.runReady();
  }
  /// A turn that is at work in the client.
  void work(const std::string& prompt) {
    send(prompt);
    if (client().prompts.empty()) client().opens("session");
    main.runReady();
  }

  FakeAgentClient& client() { return *clients.back(); }
  const ChatThread& thread() { return *model->tree.thread(key); }
  const RunRecord& run() { return *thread().latestRun(); }
  ThreadExecutionRuntime& execution() { return model->executions.execution(key); }
  ConnectionState state() { return execution().connectionState; }
  std::vector<std::string> texts() {
    std::vector<std::string> all;
    for (const auto& entry : thread().entries) all.push_back(entry.text);
    return all;
  }
  /// What a restart would read.
  std::vector<Workspace> saved() {
    return WorkspaceStore(*defaults, folder.path()).load(main.now());
  }

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
