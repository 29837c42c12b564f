#include <gmock/gmock.h>

#include "engine/core/friendly_error.h"
#include "support/engine_fixture.h"
#include "support/held_executor.h"

namespace vantrell::tests {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Composer : public EngineFixture {
 public:
  /// One for each event.
  void addHooks() {
    for (const auto event : {ProjectHookEvent::beforeTask, ProjectHookEvent::afterTask,
                             ProjectHookEvent::taskFailed}) {
      model->hooks->addProjectHook(event, "hook", key.workspaceID);
    }
  }
};

constexpr std::string_view requestHeading = "USER REQUEST:\n";

TEST_F(Composer, PromptBecomesARunThatCompletes) {
  start();
  app->selected().send("  Fix the parser\nplease  ", {});
  EXPECT_EQ(thread().title, "Fix the parser");
  EXPECT_EQ(state(), ConnectionState::connecting());
  EXPECT_TRUE(thread().runs.empty()) << "checkpoint and hooks come before the run";

  main.runReady();
  EXPECT_EQ(run().status, RunRecordStatus::starting);
  EXPECT_EQ(run().statusMessage, "Connecting to Kimi…");
  EXPECT_EQ(run().prompt, "Fix the parser\nplease");
  EXPECT_EQ(run().provider, AgentProvider::kimi);

  client().opens("s-1");
  EXPECT_EQ(run().status, RunRecordStatus::running);
  EXPECT_EQ(run().statusMessage, "Kimi is working");
  EXPECT_EQ(state(), ConnectionState::working());
  ASSERT_EQ(client().prompts.size(), 1u);
  EXPECT_THAT(client().prompts[0], StartsWith("RESPONSE STYLE\nWrite for easy scanning"));
  EXPECT_THAT(client().prompts[0],
              EndsWith(std::string(requestHeading) + "Fix the parser\nplease"));

  client().says("Done.");
  client().finishes();
  EXPECT_EQ(run().status, RunRecordStatus::completed);
  EXPECT_EQ(run().statusMessage, "Kimi finished the task.");
  EXPECT_EQ(run().completedAt, main.now());
  EXPECT_EQ(state(), ConnectionState::ready());
  EXPECT_EQ(thread().sessionID(AgentProvider::kimi), "s-1");
  EXPECT_EQ(thread().lastProvider, AgentProvider::kimi);
  EXPECT_THAT(texts(), ElementsAre("Fix the parser\nplease", "Done."));
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].kind, "completed");
  EXPECT_EQ(saved()[1].threads[0].runs.back().status, RunRecordStatus::completed);
}

TEST_F(Composer, StepsOfATurnKeepTheirOrder) {
  std::vector<std::string> steps;
  const auto step = [&](std::string name) { steps.push_back(std::move(name)); };
  whenPreparingNotifications = [&] { step("notifications"); };
  struct NotingExecutor final : Executor {
    explicit NotingExecutor(std::vector<std::string>& to) : steps(to) {}
    void post(Work work) override {
      steps.push_back("checkpoint");
      work();
    }
    std::vector<std::string>& steps;
  } checkpoints(steps);
  backgroundExecutor = &checkpoints;
  projects.hook = [&](const ProjectHook& hook, const auto&, const auto& reply) {
    step(std::string(rawText(hook.event)));
    reply("");
  };
  projects.git = [&](const auto&, const auto&, const auto&) { step("git"); };
  whenTaskEvent = step;
  start();
  model->context->setProjectInstructions("Keep to it.", key.workspaceID);
  addHooks();
  steps.clear();
  const std::string prompt = "0123456789012345678901234567890123456789abcdefghij";
  work(prompt);
  EXPECT_THAT(
      client().prompts[0],
      StartsWith("VANTRELL PROJECT CONTEXT\nPROJECT INSTRUCTIONS\nKeep to it.\n\nRESPONSE STYLE"));
  send("Next");
  client().finishes();
  main.runReady();
  EXPECT_THAT(steps, ElementsAre("notifications", "checkpoint", "beforeTask", "git", "completed",
                                 "notifications", "afterTask", "checkpoint", "beforeTask"));
}

TEST_F(Composer, WhiteSpaceAloneIsNoPromptWhateverItsAttachments) {
  start();
  ChatAttachment file;
  file.path = "a.txt";
  app->selected().send(" \n\t", {file});
  main.runReady();
  EXPECT_TRUE(thread().entries.empty());
  EXPECT_TRUE(clients.empty());
}

TEST_F(Composer, SecondTurnUsesTheKeptClientAndFillsItsRun) {
  start();
  model->tree.updateThread(key, [&](ChatThread& each) {
    each.setModelID("k2", AgentProvider::kimi, main.now());
    each.setEffort("high", AgentProvider::kimi, main.now());
  });
  work("One");
  const std::string firstFallback = execution().fallbackMessageID;
  client().finishes();
  send("Two");
  ASSERT_EQ(clients.size(), 1u);
  ASSERT_EQ(client().prompts.size(), 2u);
  EXPECT_EQ(run().provider, AgentProvider::kimi);
  EXPECT_EQ(run().modelID, "k2");
  EXPECT_EQ(run().effort, "high");
  EXPECT_EQ(run().statusMessage, "Kimi is working");
  EXPECT_NE(execution().fallbackMessageID, firstFallback);
}

TEST_F(Composer, ConnectionIsTriedTwiceThirtySecondsEach) {
  start();
  send("Go");
  const auto first = clients.back();
  main.advance(std::chrono::milliseconds(29'999));
  EXPECT_EQ(first->stops, 0);
  main.advance(std::chrono::milliseconds(1));
  EXPECT_EQ(first->stops, 1);
  EXPECT_EQ(state(), ConnectionState::connecting());
  EXPECT_EQ(run().statusMessage, "Kimi did not finish connecting. Retrying once…");

  send("Later");
  EXPECT_EQ(thread().queuedPrompts.size(), 1u) << "the pause before the retry is still connecting";
  main.advance(std::chrono::milliseconds(500));
  ASSERT_EQ(clients.size(), 2u);

  first->opens("late");
  EXPECT_EQ(state(), ConnectionState::connecting()) << "the dropped client has no say any more";
  EXPECT_TRUE(clients[1]->prompts.empty());

  main.advance(std::chrono::seconds(30));
  const std::string text =
      "Kimi could not finish connecting after two attempts. The prompt was not sent. Check the "
      "provider sign-in in Settings, then try again.";
  EXPECT_EQ(state(), ConnectionState::failed(text));
  EXPECT_EQ(run().status, RunRecordStatus::failed);
  EXPECT_EQ(run().statusMessage, text);
  EXPECT_EQ(texts().back(), text);
  EXPECT_EQ(events.back().message, text);
}

TEST_F(Composer, SecondAttemptCanSucceed) {
  start();
  send("Go");
  main.advance(std::chrono::milliseconds(30'500));
  client().opens("s");
  EXPECT_EQ(client().prompts.size(), 1u);
  main.advance(std::chrono::seconds(60));
  EXPECT_EQ(state(), ConnectionState::working()) << "the watchdog ended with the connection";
}

TEST_F(Composer, FailureIsToldAndTheQueueWaits) {
  std::vector<ProjectHookEvent> hooks;
  projects.hook = [&](const ProjectHook& hook, const auto&, const auto& reply) {
    hooks.push_back(hook.event);
    reply("Hook completed.");
  };
  start();
  addHooks();
  work("One");
  send("Two");
  client().fails(AgentError("Login required: unauthorized"));
  main.runReady();
  const std::string advice =
      "Kimi needs you to sign in again. Use Log in with Kimi in Settings; vantrell removes "
      "pay-per-use API keys from the runtime.";
  EXPECT_EQ(state(), ConnectionState::failed("Login required: unauthorized"));
  EXPECT_EQ(execution().errorMessage, advice);
  EXPECT_EQ(run().statusMessage, advice);
  EXPECT_THAT(texts(),
              ElementsAre("One", "Hook completed.", "Error from Kimi: Login required: unauthorized",
                          "Hook completed."));
  EXPECT_EQ(events.back().kind, "needs_attention");
  EXPECT_EQ(events.back().message, advice);
  EXPECT_THAT(hooks, ElementsAre(ProjectHookEvent::beforeTask, ProjectHookEvent::taskFailed));
  EXPECT_EQ(thread().queuedPrompts.size(), 1u);
  EXPECT_NE(execution().client(), nullptr) << "the client stays attached";
}

TEST_F(Composer, HandOffSurvivesTheEndOfTheExhaustedClient) {
  std::function<void(std::string)> repositoryRead;
  projects.repository = [&](const std::string&, const auto& reply) { repositoryRead = reply; };
  others = {AgentProvider::glm};
  start();
  work("Go");
  const auto kimi = clients.back();
  kimi->fails(AgentError("usage limit"));
  kimi->onUnexpectedTermination("Kimi exited with status 1.");
  send("Later");
  EXPECT_EQ(thread().queuedPrompts.size(), 1U) << "the turn goes on";
  repositoryRead("");
  client().opens("g");
  EXPECT_EQ(run().status, RunRecordStatus::running);
  EXPECT_EQ(run().provider, AgentProvider::glm);
}

TEST_F(Composer, SessionThatTheRuntimeHasLostIsToldAndForgotten) {
  providers.connectors[AgentProvider::kimi].isSessionLost = [](std::string_view words) {
    return words == "no such session";
  };
  start();
  work("One");
  client().finishes();
  for (const char* words : {"no network", "no such session"}) {
    client().onUnexpectedTermination("gone");
    send("Next");
    EXPECT_EQ(client().existingSession, "session") << words;
    client().failsToOpen(words);
    EXPECT_EQ(run().statusMessage, words);
    send("Once more");
  }
  EXPECT_EQ(client().existingSession, std::nullopt);
  EXPECT_THAT(texts(),
              Contains("Kimi no longer has the session of this task. The next prompt begins "
                       "a new one, with the visible conversation attached."));
}

TEST_F(Composer, NoClientShowsTheSetupHintWithoutARemoteEvent) {
  noClientFor = AgentProvider::kimi;
  start();
  send("Go");
  EXPECT_EQ(state(), ConnectionState::failed("Install it."));
  EXPECT_EQ(run().statusMessage, "Install it.");
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(thread().entries.size(), 1u) << "the user's words stay";
}

TEST_F(Composer, ChangeOfProviderSendsACapsuleOnce) {
  projects.repository = [](const std::string&, const auto& reply) { reply("$ git status"); };
  start();
  work("Write a test");
  client().says("I have begun.");
  client().finishes();
  provider = AgentProvider::glm;
  send("Go on");
  client().opens("g-1");
  const std::string& capsule = client().prompts.at(0);
  EXPECT_THAT(capsule, StartsWith("Continue this coding task after an automatic provider handoff "
                                  "from Kimi to GLM.\n\nDo not restart completed work."));
  EXPECT_THAT(capsule, HasSubstr("ORIGINAL USER REQUEST\nRESPONSE STYLE"));
  EXPECT_THAT(capsule, HasSubstr("ACTIVE PLAN\nNo active plan was reported.\n\n"));
  EXPECT_THAT(capsule, HasSubstr("USER: Write a test\n\nASSISTANT [Kimi]: I have begun.\n\nUSER: "
                                 "Go on\n\nWORKSPACE\n" +
                                 folder / "project" + "\n\nREPOSITORY SNAPSHOT\n$ git status\n\n"));
  EXPECT_THAT(capsule, EndsWith("PROJECT CONTEXT\nNo project-level context was configured."));
  EXPECT_EQ(texts().back(), "Switched this task from Kimi to GLM with visible context attached.");
  // A report of the replaced client that is still on its way counts for its own provider.
  clients.front()->onModelOptionsUpdate(
      {ProviderModelOption::defaultOption({}), {"k2", "K2", "", true, {}}});
  EXPECT_EQ(model->catalog->options(AgentProvider::kimi).at(1).id, "k2");
  EXPECT_FALSE(model->catalog->providerModelOptions().contains(AgentProvider::glm));
  client().finishes();
  send("And on");
  EXPECT_THAT(client().prompts.at(1), StartsWith("RESPONSE STYLE"));
}

TEST_F(Composer, EngineThatGoesWhileATurnStartsBeginsNothing) {
  HeldExecutor checkpoints;
  checkpoints.isHeld = true;
  backgroundExecutor = &checkpoints;
  start();
  send("Go");
  stop();
  checkpoints.release();  // for an engine that has gone
  main.runReady();
  EXPECT_TRUE(clients.empty());
}

TEST(FriendlyError, AdvisesOnSignInAndOnWhatHasOneAnswer) {
  const struct {
    std::string_view message;
    AgentProvider provider;
    std::string_view expected;
  } cases[] = {
      {"any", AgentProvider::local, "The local runtime could not start."},
      {"any", AgentProvider::tasklet, "Tasklet could not accept the handoff."},
      {"AUTH failed", AgentProvider::codex,
       "Codex needs you to sign in again. Use Log in with Chat"},
      {"please login", AgentProvider::grok,
       "Grok needs you to sign in again. Use the Log in button"},
      {"Unauthorized", AgentProvider::claude, "Claude needs you to sign in again."},
      {"Unauthorized", AgentProvider::glm, "GLM needs you to sign in again."},
      {"connection reset", AgentProvider::kimi, "connection reset"},
  };
  for (const auto& each : cases) {
    EXPECT_THAT(friendlyError(each.message, each.provider), StartsWith(std::string(each.expected)));
  }
}

}  // namespace
}  // namespace vantrell::tests
