#include <gmock/gmock.h>

#include "platform/process/program_runner.h"
#include "support/engine_fixture.h"

namespace vantrell {
namespace {

using enum AgentProvider;
using testing::ElementsAre;

std::vector<ProviderEffortOption> efforts(std::initializer_list<const char*> ids) {
  std::vector<ProviderEffortOption> all{ProviderEffortOption::defaultOption()};
  for (const char* id : ids) all.push_back(ProviderEffortOption::named(id, ""));
  return all;
}

class SessionControlsTest : public tests::EngineFixture {
 protected:
  SessionControlsTest() {
    for (auto& [each, connector] : connectors) {
      connector.modelOptions = [](const ProviderConnectorContext&) {
        return std::vector{ProviderModelOption::defaultOption(efforts({"low", "high"})),
                           ProviderModelOption{"big", "Big", "", false, efforts({"xhigh"})},
                           ProviderModelOption{"plain", "Plain", "", false, {}}};
      };
    }
  }
  void startOn(const std::string& route) {
    defaults->setText("providerRoutingMode.v1", route);
    start();
  }
  std::vector<std::string> offered() {
    std::vector<std::string> ids;
    for (const auto& effort : model->controls.sessionEffortOptions()) ids.push_back(effort.id);
    return ids;
  }
};

TEST_F(SessionControlsTest, ShowTheProviderAtWorkTheLastOrTheRoutesFirst) {
  startOn("local_first");
  EXPECT_EQ(model->controls.sessionConfigurationProvider(), local);
  provider = kimi;
  work("Go");
  client().finishes();
  EXPECT_EQ(model->controls.sessionConfigurationProvider(), kimi);
  model->executions.resetConnection();
  EXPECT_EQ(model->controls.sessionConfigurationProvider(), kimi) << "it served last";
  model.reset();
  startOn("claude");
  EXPECT_EQ(model->controls.sessionConfigurationProvider(), claude);
}

TEST_F(SessionControlsTest, OfferWhatTheConnectorSaysUntilTheRuntimeTells) {
  startOn("kimi");
  EXPECT_EQ(model->controls.sessionModelOptions().size(), 3U);
  work("Go");
  model->catalog->reported(
      kimi, {ProviderModelOption::defaultOption(efforts({})), {"k2", "K2", "", true, efforts({})}});
  EXPECT_EQ(model->controls.sessionModelOptions().at(1).id, "k2");
  EXPECT_THAT(offered(), ElementsAre("default"));
}

TEST_F(SessionControlsTest, AModelTakesItsEffortsAndANewClient) {
  startOn("kimi");
  EXPECT_EQ(model->controls.sessionModelLabel(), "Default");
  EXPECT_THAT(offered(), ElementsAre("default", "low", "high"));
  model->controls.setSessionEffort("high");
  EXPECT_EQ(model->controls.sessionEffortLabel(), "High");
  work("Go");
  model->controls.setSessionModel("big");
  EXPECT_FALSE(thread().modelID(kimi)) << "not while a turn runs";
  client().finishes();

  model->controls.setSessionModel("absent");
  EXPECT_FALSE(thread().modelID(kimi)) << "nobody offers it";
  EXPECT_EQ(client().stops, 0);
  model->controls.setSessionModel("big");
  EXPECT_EQ(client().stops, 1);
  EXPECT_EQ(saved().front().path, model->tree.workspaces().front().path);
  EXPECT_EQ(model->controls.sessionModelLabel(), "Big");
  EXPECT_FALSE(thread().effort(kimi)) << "the model does not have it";
  EXPECT_EQ(model->controls.sessionEffortLabel(), "Default");
  model->controls.setSessionEffort("low");
  EXPECT_FALSE(thread().effort(kimi));
  model->controls.setSessionEffort("xhigh");
  send("On");
  EXPECT_EQ(contexts.back().selectedModel, "big");
  EXPECT_EQ(contexts.back().selectedEffort, "xhigh");
  EXPECT_EQ(client().existingSession, "session") << "in the stored session";
  client().opens("session");
  client().finishes();

  model->controls.setSessionModel("plain");
  EXPECT_THAT(offered(), ElementsAre("default"));
  model->controls.setSessionModel("default");
  EXPECT_FALSE(thread().providerModelIDs) << "the usual one is no choice";
}

TEST_F(SessionControlsTest, AStoredModelThatIsGoneShowsTheEffortsOfTheUsualOne) {
  startOn("codex");
  model->tree.updateThread(
      key, [this](ChatThread& changed) { changed.setModelID("gone", codex, main.now()); });
  EXPECT_THAT(offered(), ElementsAre("default", "low", "high"));
  EXPECT_EQ(model->controls.sessionModelLabel(), "gone");
}

TEST_F(SessionControlsTest, ChooseForAConversationThatIsNotSelected) {
  startOn("automatic");
  const auto other = key;
  model->operations.newThread(other.workspaceID);
  EXPECT_TRUE(model->controls.chooseModel(claude, other, "big"));
  EXPECT_EQ(model->tree.thread(other)->modelID(claude), "big");
  EXPECT_FALSE(model->controls.chooseModel(claude, {other.workspaceID, Uuid::random()}, "big"));
}

TEST_F(SessionControlsTest, ConnectorsAreToldOfTheSelectedConversationOrTheHome) {
  startOn("automatic");
  model->controls.chooseModel(codex, key, "big");
  const auto context = model->setup.connectorContext(codex);
  EXPECT_EQ(context.workspacePath, folder / "project");
  EXPECT_EQ(context.workspaceName, "project");
  EXPECT_EQ(context.selectedModel, "big");
  EXPECT_FALSE(model->setup.connectorContext(claude).selectedModel);
  EXPECT_EQ(model->setup.connectorContext(codex, std::string("/elsewhere")).workspacePath,
            "/elsewhere");
}

TEST_F(SessionControlsTest, ModelsOfTheLocalServerFollowADetection) {
  auto status = LocalRuntimeStatus::checking();
  ports.localRuntimeStatus = [&] { return status; };
  startOn("local");
  model->catalog->localRuntimeChanged();
  EXPECT_TRUE(model->catalog->providerModelOptions().empty()) << "still looking";
  status = LocalRuntimeStatus::ready({LocalRuntimeKind::ollama,
                                      "Ollama",
                                      *Url::parse("http://127.0.0.1/v1"),
                                      {{"m", "m", "", false, efforts({})}}});
  model->catalog->localRuntimeChanged();
  EXPECT_EQ(model->controls.sessionModelOptions().back().id, "m");
  status = LocalRuntimeStatus::unavailable("gone");
  model->catalog->localRuntimeChanged();
  EXPECT_EQ(model->controls.sessionModelOptions().size(), 1U);
}

TEST_F(SessionControlsTest, ProgramsAreAskedForModelsWhenTheUsersPathIsKnown) {
  BackgroundPool pool{1};
  ports.runtimes.runner = std::make_shared<ProgramRunner>(main, pool);
  ports.runtimes.pool = &pool;
  ports.runtimes.refreshesAtStart = true;
  int lookedForServers = 0;
  ports.refreshLocalRuntime = [&] { ++lookedForServers; };
  std::function<void()> pathIsKnown;
  ports.runtimes.readUserPath = [&](std::function<void()> done) { pathIsKnown = std::move(done); };
  ports.runtimes.customExecutable = [](AgentProvider) { return std::optional("/bin/true"); };
  start();
  EXPECT_FALSE(model->catalog->isAsking());
  EXPECT_EQ(lookedForServers, 1);
  pathIsKnown();
  EXPECT_TRUE(model->catalog->isAsking());
  EXPECT_TRUE(main.runUntil([&] { return !model->catalog->isAsking(); }));
  EXPECT_EQ(lookedForServers, 1);
  model.reset();
  ports.runtimes = {};
}

TEST_F(SessionControlsTest, WebhookOfAConversationThatTaskletServesCountsAtOnce) {
  bool isStored = true;
  std::string saved;
  ports.saveTaskletWebhook = [&](const std::string& text, auto reply) {
    saved = text;
    reply(isStored);
  };
  provider = tasklet;
  startOn("tasklet");
  work("Go");
  client().finishes();
  isStored = false;
  model->setup.configureTaskletWebhookURL("https://a");
  EXPECT_EQ(model->executions.mirror().errorMessage,
            "Could not save the Tasklet webhook in Keychain.");
  EXPECT_EQ(client().stops, 0);
  isStored = true;
  model->setup.configureTaskletWebhookURL("https://b");
  EXPECT_EQ(saved, "https://b");
  EXPECT_EQ(client().stops, 1) << "the next turn uses the new address";
  EXPECT_FALSE(model->executions.mirror().errorMessage);
  EXPECT_EQ(run().status, RunRecordStatus::completed);

  work("Again");
  model->setup.configureTaskletWebhookURL("https://c");
  EXPECT_EQ(run().status, RunRecordStatus::cancelled) << "nobody is left who could end the turn";
  EXPECT_EQ(run().completedAt, main.now());
  work("Once more");
  model.reset();
  EXPECT_EQ(this->saved()[1].threads[0].runs.back().status, RunRecordStatus::running)
      << "the end of the program ends no run: the next start tells of it";
}

}  // namespace
}  // namespace vantrell
