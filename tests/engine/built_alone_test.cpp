// Each class of the engine, made with its own neighbours and nothing else, does its own work.
#include <gtest/gtest.h>

#include "engine/imagine/imagine_controller.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/review_notes.h"
#include "engine/projects/task_safety.h"
#include "engine/providers/router.h"
#include "engine/providers/session_controls.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/workspace_operations.h"
#include "engine/turns/approvals.h"
#include "engine/turns/composer.h"
#include "engine/turns/execution_monitor.h"
#include "engine/turns/prompt_queue.h"
#include "engine/turns/session_intake.h"
#include "engine/turns/session_status_service.h"
#include "engine/turns/usage_reset.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/orchestration_store.h"
#include "records/stores/workspace_store.h"
#include "support/fake_agent_client.h"
#include "support/fake_services.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

using namespace std::chrono_literals;

class BuiltAlone : public testing::Test {
 protected:
  BuiltAlone() {
    for (const auto each : allAgentProviders) {
      providers.connectors[each] = {each, "Install it.", [](const auto&) { return true; },
                                    [this, each](const auto&) {
                                      client = std::make_shared<FakeAgentClient>(each);
                                      return std::shared_ptr<AgentClient>(client);
                                    },
                                    [](const auto&) { return std::vector<ProviderModelOption>(); }};
    }
    tree.load();
    selection.restore(tree.workspaces());
    key = {tree.workspaces()[0].id, tree.workspaces()[0].threads[0].id};
  }
  const ChatThread& thread() { return *tree.thread(key); }

  TemporaryFolder folder;
  ManualMainQueue main;
  std::unique_ptr<UserDefaults> defaults = UserDefaults::inMemory();
  WorkspaceStore store{*defaults, folder.path()};
  OrchestrationStore small{folder.path(), [this] { return main.now(); }, [](const auto&) {}};
  Changes changes{main};
  Settings settings{*defaults, changes};
  WorkspaceTree tree{main, store, changes};
  Selection selection{*defaults, changes};
  ExecutionTable executions{main, changes};
  EngineEvents events;
  RunLifecycle runs{main, tree, executions, events};
  std::shared_ptr<FakeAgentClient> client;  // the latest
  FakeProviders providers;
  FakeProjects projects;
  UsageTracker usage{main, changes, small, nullptr};
  ProviderSetup setup{{settings, tree, selection, executions, runs, providers}};
  std::shared_ptr<InstalledRuntimes> runtimes =
      std::make_shared<InstalledRuntimes>(changes, RuntimePrograms());
  ReportedModels reported{small, nullptr};
  std::shared_ptr<ModelCatalog> catalog =
      std::make_shared<ModelCatalog>(main, changes, setup, usage, *runtimes, reported);
  std::shared_ptr<ImagineController> imagine =
      std::make_shared<ImagineController>(ImagineController::Dependencies{
          main, settings, executions, changes, events, providers, *runtimes, folder.path(), main});
  std::shared_ptr<ProjectContextService> context = std::make_shared<ProjectContextService>(
      ProjectContextService::Dependencies{main, tree, selection, changes, small, projects});
  std::shared_ptr<GitSnapshotService> git =
      std::make_shared<GitSnapshotService>(tree, selection, changes, projects);
  std::shared_ptr<HookRunner> hooks = std::make_shared<HookRunner>(main, tree, *context, projects);
  std::shared_ptr<TaskSafety> safety = std::make_shared<TaskSafety>(TaskSafety::Dependencies{
      main, tree, executions, runs, *git, changes, nullptr, folder.path()});
  // What stands between a prompt and its agent.
  SessionControls controls{{main, settings, tree, executions, runs, *catalog}};
  SessionIntake intake{main, tree, executions, runs};
  Approvals approvals{settings, executions, runs, *imagine};
  PromptQueue queue{main, tree};
  SessionStatusService status{main, tree, executions, changes};
  std::shared_ptr<Router> router = std::make_shared<Router>(
      Router::Dependencies{settings, tree, executions, runs, setup, usage});
  AgentReports reports{{executions, runs, intake, approvals, *catalog, usage}};
  std::shared_ptr<AgentLauncher> launcher = std::make_shared<AgentLauncher>(
      AgentLauncher::Dependencies{tree, executions, runs, setup, intake, reports});
  std::shared_ptr<TurnOutcome> outcome =
      std::make_shared<TurnOutcome>(main, runs, executions, setup, *git, *hooks);
  std::shared_ptr<TurnPrompts> prompts = std::make_shared<TurnPrompts>(
      TurnPrompts::Dependencies{settings, tree, executions, *context, projects});
  std::shared_ptr<TurnRunner> turns = std::make_shared<TurnRunner>(
      TurnRunner::Dependencies{executions, runs, *router, *prompts, *launcher, *outcome});
  ThreadExecutionKey key;
};

TEST_F(BuiltAlone, RunLifecycleEndsARunAsItsStepsSay) {
  const Uuid run = runs.begin("Go", key);
  runs.working(key, run, AgentProvider::kimi);
  EXPECT_TRUE(executions.isBusy(key));
  EXPECT_TRUE(runs.stop(key));
  EXPECT_EQ(tree.run(run, key)->status, RunRecordStatus::cancelled);
  EXPECT_FALSE(runs.stop(key)) << "a stop at rest adds nothing";
  EXPECT_EQ(thread().entries.size(), 1U);
}

TEST_F(BuiltAlone, AgentSessionEndsItsQuestionWithItsClient) {
  const auto session = std::make_shared<AgentSession>(main);
  client = std::make_shared<FakeAgentClient>(AgentProvider::kimi);
  session->start(client, std::nullopt, 30s, [](const auto&) {});
  client->opens("one");
  client->onPermissionRequest({7, "May I?", "", {{"yes", "Yes", "allow_once"}}});
  EXPECT_TRUE(session->question());
  session->end();
  EXPECT_FALSE(session->answer(7, "yes"));
  EXPECT_TRUE(client->answers.empty());
}

TEST_F(BuiltAlone, AgentSessionGivesThePromptBackWhenTheStoppedTurnNeverEnds) {
  const auto session = std::make_shared<AgentSession>(main);
  client = std::make_shared<FakeAgentClient>(AgentProvider::kimi);
  session->start(client, std::nullopt, 30s, [](const auto&) {});
  client->opens("one");
  session->prompt("first", [](const auto&) {});
  session->cancel();
  std::optional<bool> wasAnswered;
  session->prompt("second", [&](const auto& result) { wasAnswered = result.has_value(); });
  main.advance(AgentSession::stopTimeout);
  EXPECT_EQ(wasAnswered, false);
}

TEST_F(BuiltAlone, PromptQueueRefusesWhatIsNotThere) {
  EXPECT_TRUE(queue.enqueuePrompt("One", {}, key));
  EXPECT_FALSE(queue.removeQueuedPrompt(Uuid::random(), key));
  EXPECT_FALSE(queue.enqueuePrompt("Two", {}, {key.workspaceID, Uuid::random()}));
  EXPECT_EQ(queue.takeNext(key)->text, "One");
  EXPECT_FALSE(queue.takeNext(key));
}

TEST_F(BuiltAlone, SessionIntakeWritesWhatTheAgentSays) {
  executions.execution(key).activeProvider = AgentProvider::kimi;
  intake.handle({{"sessionUpdate", "agent_message_chunk"},
                 {"content", JsonObject{{"type", "text"}, {"text", "Hello"}}}},
                key);
  EXPECT_EQ(thread().entries.back().text, "Hello");
}

TEST_F(BuiltAlone, ApprovalsLowerTheModeForEveryIdleClient) {
  client = std::make_shared<FakeAgentClient>(AgentProvider::kimi);
  executions.execution({key.workspaceID, Uuid::random()})
      .session->start(client, std::nullopt, 0s, [](const auto&) {});
  EXPECT_TRUE(approvals.setPermissionMode(GrokPermissionMode::auto_, key));
  EXPECT_EQ(client->stops, 1);
}

TEST_F(BuiltAlone, ExecutionMonitorTellsALongSilenceOnce) {
  const auto monitor = std::make_shared<ExecutionMonitor>(main, executions, runs);
  runs.working(key, runs.begin("Go", key), AgentProvider::kimi);
  monitor->configureExecutionMonitor();
  main.advance(11min);
  EXPECT_TRUE(tree.latestRun(key)->statusMessage->contains("has produced no new activity"));
}

TEST_F(BuiltAlone, SessionStatusIsAnsweredWithoutAnAgent) {
  status.respondToSessionStatus("status?", key);
  EXPECT_EQ(thread().entries.size(), 2U);
}

TEST_F(BuiltAlone, RouterDecidesByTheChoiceOfTheTask) {
  EXPECT_TRUE(router->handoff(AgentProvider::claude, ProviderHandoffScope::nextMessage, key));
  EXPECT_EQ(router->providerForNextTurn({}, key), AgentProvider::claude);
  EXPECT_NE(router->providerForNextTurn({}, key), AgentProvider::claude) << "it is used up";
}

TEST_F(BuiltAlone, SessionControlsRefuseWhatIsNotOffered) {
  EXPECT_EQ(controls.chooseModel(AgentProvider::kimi, key, "huge").error().sentence,
            "Kimi does not offer the model huge.");
}

TEST_F(BuiltAlone, ProjectServicesServeTheSelectedTask) {
  git->refreshIfSelected(key);
  EXPECT_FALSE(hooks->addProjectHook(ProjectHookEvent::beforeTask, "/bin/true", key.workspaceID));
  Navigation navigation({main, tree, selection, *context, *git});
  EXPECT_EQ(navigation.selectWorkspace(Uuid::random()).error().sentence,
            "That project is no longer available.");
  WorkspaceOperations operations({main, tree, executions, runs, navigation, events, changes});
  EXPECT_EQ(operations.moveThread(key.threadID, key.workspaceID, Uuid::random()).error().sentence,
            "That conversation or destination project is no longer available.");
}

TEST_F(BuiltAlone, TaskSafetyDoesOneOperationOfATaskAtATime) {
  std::vector<bool> ends;
  const auto note = [&](const Result<>& result) { ends.push_back(result.has_value()); };
  safety->createCheckpoint(key, "By hand", note);
  safety->createCheckpoint(key, "Again", note);
  EXPECT_EQ(ends, std::vector{false}) << "the second is refused at once";
  ChatThread other;
  const ThreadExecutionKey otherKey{key.workspaceID, other.id = Uuid::random()};
  tree.addThread(std::move(other), key.workspaceID);
  safety->createCheckpoint(otherKey, "Of another task", note);
  EXPECT_EQ(ends.size(), 1U);
  EXPECT_TRUE(safety->taskSafetyWorking());
  main.runReady();
  EXPECT_EQ(ends.size(), 3U);
  EXPECT_FALSE(safety->taskSafetyWorking());
}

TEST_F(BuiltAlone, AgentLauncherOpensASessionAndHearsIt) {
  bool isReady = false;
  launcher->startClient(AgentProvider::kimi, key, std::nullopt, [&] { isReady = true; });
  client->opens("one");
  EXPECT_TRUE(isReady);
  EXPECT_EQ(thread().sessionID(AgentProvider::kimi), "one");
  client->says("Hello");
  EXPECT_EQ(thread().entries.back().text, "Hello");
}

TEST_F(BuiltAlone, TurnRunnerTakesATurnToItsEnd) {
  bool isCompleted = false;
  turns->run(
      {.key = key, .runID = runs.begin("Go", key), .whenCompleted = [&] { isCompleted = true; }},
      "Go", {});
  main.runReady();
  client->opens("one");
  EXPECT_TRUE(client->prompts.at(0).ends_with("USER REQUEST:\nGo"));
  client->finishes();
  EXPECT_TRUE(isCompleted);
}

TEST_F(BuiltAlone, TurnOutcomeSaysWhatFailed) {
  const Uuid run = runs.begin("Go", key);
  runs.working(key, run, AgentProvider::kimi);
  outcome->failed(AgentError("It broke."), {.key = key, .runID = run}, AgentProvider::kimi);
  EXPECT_EQ(tree.run(run, key)->statusMessage, "It broke.");
  EXPECT_EQ(thread().entries.back().text, "Error from Kimi: It broke.");
}

TEST_F(BuiltAlone, ComposerStartsOneTurnAndQueuesTheNextAndBranchesHoldPromptsBack) {
  const auto starter = std::make_shared<TurnStarter>(
      TurnStarter::Dependencies{main, tree, runs, *hooks, *safety, *turns});
  const auto composer = std::make_shared<Composer>(
      Composer::Dependencies{tree, executions, runs, status, queue, *starter});
  const auto branches = std::make_shared<TaskBranches>(
      TaskBranches::Dependencies{main, tree, executions, *router, *composer, *safety});
  composer->setGate(branches.get());
  EXPECT_TRUE(composer->send("One", {}, key) && composer->send("Two", {}, key));
  main.runReady();
  EXPECT_EQ(thread().runs.size() + thread().queuedPrompts.size(), 2U);
  const auto branch = branches->retry(key);
  EXPECT_TRUE(branches->isPreparing(*branch) && composer->send("Three", {}, *branch));
  EXPECT_EQ(tree.thread(*branch)->queuedPrompts.size(), 1U);
}

TEST_F(BuiltAlone, UsageResetNeedsCodex) {
  const auto reset = std::make_shared<UsageReset>(executions, usage, controls, *launcher);
  EXPECT_EQ(reset->resetSessionUsage(key).error().sentence,
            "Only Codex has credits for a manual reset.");
}

TEST_F(BuiltAlone, ReviewNotesKeepNoBlankOnes) {
  ReviewNotes notes(main, changes, small);
  EXPECT_FALSE(notes.addReviewAnnotation("a", 1, " \n", ReviewDecision::pending, key));
  EXPECT_TRUE(notes.addReviewAnnotation("a", 1, "leaks", ReviewDecision::pending, key));
}

}  // namespace vantrell::tests
