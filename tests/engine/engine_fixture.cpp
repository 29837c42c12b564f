#include "support/engine_fixture.h"

namespace vantrell::tests {

EngineFixture::EngineFixture() : store(*defaults, folder.path()), supportFolder(folder.path()) {
  for (const auto each : allAgentProviders) {
    providers.connectors[each] = {
        each, "Install it.",
        [this, each](const auto&) { return provider == each || others.contains(each); },
        [this, each](const ProviderConnectorContext& context) {
          contexts.push_back(context);
          if (noClientFor == each) return std::shared_ptr<AgentClient>();
          clients.push_back(std::make_shared<FakeAgentClient>(each));
          return std::shared_ptr<AgentClient>(clients.back());
        }};
  }
}

EngineFixture::~EngineFixture() {
  stop();
}

void EngineFixture::taskEvent(TaskEventKind kind, std::string_view message,
                              const ThreadExecutionKey&) {
  events.push_back(
      {kind == TaskEventKind::completed ? "completed" : "needs_attention", std::string(message)});
  if (whenTaskEvent) whenTaskEvent(events.back().kind);
}

void EngineFixture::imagineEvent(ImagineEventKind kind, std::string_view message) {
  events.push_back({kind == ImagineEventKind::completed ? "imagine_completed" : "imagine_attention",
                    std::string(message)});
}

void EngineFixture::restart() {
  stop();
  app = std::make_unique<AppModel>(AppModel::Dependencies{.main = main,
                                                          .defaults = *defaults,
                                                          .store = store,
                                                          .providers = providers,
                                                          .projects = projects,
                                                          .events = *this,
                                                          .programs = programs,
                                                          .supportFolder = supportFolder,
                                                          .writer = writer,
                                                          .background = backgroundExecutor,
                                                          .refreshesRuntimes = refreshesRuntimes});
  model = &app->parts();
}

void EngineFixture::stop() {
  model = nullptr;
  app.reset();
}

void EngineFixture::start() {
  restart();
  model->operations->addWorkspace(folder.folder("project"));
  key = *model->selection.key();
  main.runReady();
}

void EngineFixture::send(const std::string& prompt) {
  app->selected().send(prompt, {});
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
