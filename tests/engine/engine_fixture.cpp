#include "support/engine_fixture.h"

#include "app/ports.h"

namespace vantrell::tests {

EngineFixture::EngineFixture() : store(*defaults, folder.path()) {
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
  ports.sendRemoteTaskEvent = [this](std::string_view kind, std::string_view message, const auto&) {
    events.push_back({std::string(kind), std::string(message)});
  };
  ports.imagine.supportFolder = folder.path();
  ports.sendRemoteImagineEvent = [this](std::string_view kind, std::string_view message) {
    events.push_back({std::string(kind), std::string(message)});
  };
}

EngineFixture::~EngineFixture() = default;

void EngineFixture::start() {
  model = std::make_unique<AppModel>(main, *defaults, store, ports);
  model->operations.addWorkspace(folder.folder("project"));
  key = *model->selection.key();
  main.runReady();
}

void EngineFixture::send(const std::string& prompt) {
  model->driver->send(prompt, {});
  main.runReady();
}

void EngineFixture::work(const std::string& prompt) {
  send(prompt);
  if (client().prompts.empty()) client().opens("session");
  main.runReady();
}

std::vector<std::string> EngineFixture::texts() {
  std::vector<std::string> all;
  for (const auto& entry : thread().entries) all.push_back(entry.text);
  return all;
}

std::vector<Workspace> EngineFixture::saved() {
  main.runReady();
  return WorkspaceStore(*defaults, folder.path()).load(main.now());
}

}  // namespace vantrell::tests
