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
    for (auto& [each, connector] : providers.connectors) {
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
    for (const auto& effort : app->selected().sessionEffortOptions()) ids.push_back(effort.id);
    return ids;
  }
};

TEST_F(SessionControlsTest, ShowTheProviderAtWorkTheLastOrTheRoutesFirst) {
  startOn("local_first");
  EXPECT_EQ(app->selected().sessionConfigurationProvider(), local);
  provider = kimi;
  work("Go");
  client().finishes();
  EXPECT_EQ(app->selected().sessionConfigurationProvider(), kimi);
  app->selected().resetConnection();
  EXPECT_EQ(app->selected().sessionConfigurationProvider(), kimi) << "it served last";
  stop();
  startOn("claude");
  EXPECT_EQ(app->selected().sessionConfigurationProvider(), claude);
}

TEST_F(SessionControlsTest, OfferWhatTheConnectorSaysUntilTheRuntimeTells) {
  startOn("kimi");
  EXPECT_EQ(app->selected().sessionModelOptions().size(), 3U);
  work("Go");
  model->catalog->reported(
      kimi, {ProviderModelOption::defaultOption(efforts({})), {"k2", "K2", "", true, efforts({})}});
  EXPECT_EQ(app->selected().sessionModelOptions().at(1).id, "k2");
  EXPECT_THAT(offered(), ElementsAre("default"));
  restart();
  EXPECT_TRUE(model->catalog->providerModelOptions().empty());
  ASSERT_TRUE(model->controls.chooseModel(kimi, key, "k2")) << "what was reported is offered again";
  model->catalog->forget(kimi);
  restart();
  EXPECT_FALSE(offers(model->catalog->options(kimi), "k2"));
}

TEST_F(SessionControlsTest, AModelTakesItsEffortsAndANewClient) {
  startOn("kimi");
  EXPECT_EQ(app->selected().sessionModelLabel(), "Default");
  EXPECT_THAT(offered(), ElementsAre("default", "low", "high"));
  app->selected().setSessionEffort("high");
  EXPECT_EQ(app->selected().sessionEffortLabel(), "High");
  work("Go");
  app->selected().setSessionModel("big");
  EXPECT_FALSE(thread().modelID(kimi)) << "not while a turn runs";
  client().finishes();

  app->selected().setSessionModel("absent");
  EXPECT_FALSE(thread().modelID(kimi)) << "nobody offers it";
  EXPECT_EQ(client().stops, 0);
  app->selected().setSessionModel("big");
  EXPECT_EQ(client().stops, 1);
  EXPECT_EQ(saved().front().path, model->tree.workspaces().front().path);
  EXPECT_EQ(app->selected().sessionModelLabel(), "Big");
  EXPECT_FALSE(thread().effort(kimi)) << "the model does not have it";
  EXPECT_EQ(app->selected().sessionEffortLabel(), "Default");
  app->selected().setSessionEffort("low");
  EXPECT_FALSE(thread().effort(kimi));
  app->selected().setSessionEffort("xhigh");
  send("On");
  EXPECT_EQ(contexts.back().selectedModel, "big");
  EXPECT_EQ(contexts.back().selectedEffort, "xhigh");
  EXPECT_EQ(client().existingSession, "session") << "in the stored session";
  client().opens("session");
  client().finishes();

  app->selected().setSessionModel("plain");
  EXPECT_THAT(offered(), ElementsAre("default"));
  app->selected().setSessionModel("default");
  EXPECT_FALSE(thread().providerModelIDs) << "the usual one is no choice";
}

TEST_F(SessionControlsTest, ChoicesForTheTurnsOfOneConversationReachNoOther) {
  others = {codex};
  start();
  const auto other = key;
  model->operations->newThread(key.workspaceID);
  key = *model->selection.key();
  model->controls.chooseForTurns(
      key,
      {.provider = kimi, .permissionMode = GrokPermissionMode::auto_, .executable = "/opt/kimi"});
  for (const auto& each : {key, other}) {
    SCOPED_TRACE(each == key ? "chosen" : "other");
    model->composer->send("Go", {}, each);
    main.runReady();
    ASSERT_FALSE(contexts.empty());
    const auto& context = contexts.back();
    EXPECT_EQ(context.permissionMode,
              each == key ? GrokPermissionMode::auto_ : GrokPermissionMode::ask);
    EXPECT_EQ(context.executable,
              each == key ? std::optional<std::string>("/opt/kimi") : std::nullopt);
    EXPECT_EQ(model->executions.find(each)->activeProvider, each == key ? kimi : codex);
  }
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::ask);
}

TEST_F(SessionControlsTest, AStoredModelThatIsGoneShowsTheEffortsOfTheUsualOne) {
  startOn("codex");
  model->tree.updateThread(
      key, [this](ChatThread& changed) { changed.setModelID("gone", codex, main.now()); });
  EXPECT_THAT(offered(), ElementsAre("default", "low", "high"));
  EXPECT_EQ(app->selected().sessionModelLabel(), "gone");
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
  startOn("local");
  model->catalog->localRuntimeChanged();
  EXPECT_TRUE(model->catalog->providerModelOptions().empty()) << "still looking";
  providers.localStatus = LocalRuntimeStatus::ready({LocalRuntimeKind::ollama,
                                                     "Ollama",
                                                     *Url::parse("http://127.0.0.1/v1"),
                                                     {{"m", "m", "", false, efforts({})}}});
  model->catalog->localRuntimeChanged();
  EXPECT_EQ(app->selected().sessionModelOptions().back().id, "m");
  providers.localStatus = LocalRuntimeStatus::unavailable("gone");
  model->catalog->localRuntimeChanged();
  EXPECT_EQ(app->selected().sessionModelOptions().size(), 1U);
}

TEST_F(SessionControlsTest, ProgramsAreAskedForModelsWhenTheUsersPathIsKnown) {
  BackgroundPool pool{1};
  programs.runner = std::make_shared<ProgramRunner>(main, pool);
  programs.pool = &pool;
  refreshesRuntimes = true;
  std::function<void()> pathIsKnown;
  programs.readUserPath = [&](std::function<void()> done) { pathIsKnown = std::move(done); };
  programs.customExecutable = [](AgentProvider) { return std::optional("/bin/true"); };
  start();
  EXPECT_FALSE(model->catalog->isAsking());
  EXPECT_EQ(providers.localRefreshes, 1);
  pathIsKnown();
  EXPECT_TRUE(model->catalog->isAsking());
  EXPECT_TRUE(main.runUntil([&] { return !model->catalog->isAsking(); }));
  EXPECT_EQ(providers.localRefreshes, 1);
  stop();
  programs = {};
}

TEST_F(SessionControlsTest, WebhookOfAConversationThatTaskletServesCountsAtOnce) {
  bool isStored = true;
  std::string saved;
  providers.save = [&](const std::string& text, auto reply) {
    saved = text;
    reply(isStored);
  };
  provider = tasklet;
  startOn("tasklet");
  work("Go");
  client().finishes();
  isStored = false;
  std::optional<std::string> refusal;
  const auto note = [&](const Result<>& result) {
    refusal = result ? std::nullopt : std::optional(result.error().sentence);
  };
  model->setup.configureTaskletWebhookURL("https://a", note);
  EXPECT_EQ(refusal, "Could not save the Tasklet webhook in Keychain.");
  EXPECT_EQ(client().stops, 0);
  isStored = true;
  model->setup.configureTaskletWebhookURL("https://b", note);
  EXPECT_EQ(saved, "https://b");
  EXPECT_EQ(client().stops, 1) << "the next turn uses the new address";
  EXPECT_FALSE(refusal);
  EXPECT_EQ(run().status, RunRecordStatus::completed);

  work("Again");
  model->setup.configureTaskletWebhookURL("https://c", note);
  EXPECT_EQ(run().status, RunRecordStatus::cancelled) << "nobody is left who could end the turn";
  EXPECT_EQ(run().completedAt, main.now());
  work("Once more");
  stop();
  EXPECT_EQ(this->saved()[1].threads[0].runs.back().status, RunRecordStatus::running)
      << "the end of the program ends no run: the next start tells of it";
}

}  // namespace
}  // namespace vantrell
