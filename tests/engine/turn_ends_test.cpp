// How a turn ends before its time: the user stops it, or its client goes.
#include "support/engine_fixture.h"
#include "support/held_executor.h"

namespace vantrell::tests {
namespace {

using TurnEnds = EngineFixture;

TEST_F(TurnEnds, StopWhileConnectingEndsTheClientAndTheRetry) {
  for (const bool inPause : {false, true}) {
    SCOPED_TRACE(inPause ? "in the pause" : "in the attempt");
    start();
    clients.clear();
    send("Go");
    if (inPause) main.advance(std::chrono::seconds(30));
    const auto stopped = clients.back();
    app->selected().stopWorking();
    EXPECT_EQ(stopped->stops, 1);
    EXPECT_EQ(state(), ConnectionState::ready());
    EXPECT_EQ(run().status, RunRecordStatus::cancelled);
    EXPECT_EQ(run().statusMessage, "Stopped by you.");
    EXPECT_EQ(texts().back(), "Stopped by you.");
    main.advance(std::chrono::minutes(2));
    EXPECT_EQ(clients.size(), 1u);
    send("Again");
    EXPECT_EQ(clients.size(), 2u) << "the next prompt starts a new client";
  }
}

TEST_F(TurnEnds, AnErrorStaysUntilItIsDismissedOrASuccess) {
  start();
  work("Go");
  client().fails(AgentError("It broke."));
  const auto shown = [this] { return app->selected().errorMessage(); };
  EXPECT_EQ(shown(), "It broke.");
  client().onLog("a line");
  model->navigation.selectWorkspace(model->tree.workspaces()[0].id);
  model->navigation.selectThread(key.threadID, key.workspaceID);
  main.runReady();
  EXPECT_EQ(shown(), "It broke.") << "what else is announced leaves it alone";
  app->selected().dismissError();
  model->executions.changed(key);
  main.runReady();
  EXPECT_FALSE(shown()) << "and nothing brings it back";

  app->selected().removeQueuedPrompt(Uuid::random());
  EXPECT_EQ(shown(), "That prompt is not waiting any more.");
  work("Again");
  client().fails(AgentError("Broken again."));
  work("Once more");
  client().finishes();
  main.runReady();
  EXPECT_FALSE(shown());
}

class BeforeAnUpdate : public EngineFixture {};

TEST_F(BeforeAnUpdate, WorkIsCountedAndStoppedAndTheQueueStays) {
  start();
  const auto summary = [this] { return model->updatePreparation.updateActivitySummary(); };
  EXPECT_EQ(summary(), (UpdateActivitySummary{0, 0}));
  work("Go");
  app->selected().send("Later", {});
  const auto working = key;
  model->operations->newThread(key.workspaceID);
  send("Being started");
  EXPECT_EQ(summary(), (UpdateActivitySummary{2, 1}));
  key = working;
  EXPECT_TRUE(model->updatePreparation.prepareForImmediateUpdate());
  EXPECT_EQ(clients[0]->cancels, 1);
  for (const auto& each : clients) EXPECT_EQ(each->stops, 1);
  for (const auto& each : model->tree.workspace(key.workspaceID)->threads) {
    EXPECT_EQ(each.runs.back().status, RunRecordStatus::cancelled);
    EXPECT_EQ(each.runs.back().statusMessage, "Stopped to install a vantrell update.");
    EXPECT_EQ(each.runs.back().completedAt, main.now());
  }
  EXPECT_EQ(summary(), (UpdateActivitySummary{0, 1})) << "a queued prompt outlives the update";
  main.advance(std::chrono::minutes(2));
  EXPECT_EQ(clients.size(), 2U) << "nothing starts again";
  EXPECT_EQ(saved()[1].threads[1].queuedPrompts.size(), 1U);
}

TEST_F(TurnEnds, StopBeforeTheRunHasBegunEndsTheTurn) {
  HeldExecutor checkpoints;
  checkpoints.isHeld = true;
  backgroundExecutor = &checkpoints;
  start();
  send("Go");
  app->selected().stopWorking();
  checkpoints.release();
  main.runReady();
  EXPECT_TRUE(thread().runs.empty());
  EXPECT_TRUE(clients.empty());
}

TEST_F(TurnEnds, PromptWhoseConnectionIsResetBeforeItsRunIsKeptAndTold) {
  start();
  model->executions.execution(key).connectionState = ConnectionState::connecting();
  model->runs.resetConnection(key, "Stopped: it moved.");
  ASSERT_FALSE(texts().empty());
  EXPECT_EQ(texts().back(), "Stopped: it moved.");
}

TEST_F(TurnEnds, PromptBehindAStoppedTurnWaitsForItsEnd) {
  const struct {
    const char* name;
    std::function<void(TurnEnds&)> end;
    bool isClientKept;
  } cases[] = {
      {"it ends", [](TurnEnds& t) { t.client().finishes(); }, true},
      {"it ends as an error", [](TurnEnds& t) { t.client().fails(AgentError("aborted")); }, true},
      {"its client goes", [](TurnEnds& t) { t.client().fails(AgentError::disconnection("gone")); },
       false},
      {"it never ends", [](TurnEnds& t) { t.main.advance(std::chrono::seconds(10)); }, false},
  };
  start();
  for (const auto& [name, end, isClientKept] : cases) {
    SCOPED_TRACE(name);
    work("Go");
    const auto stopped = clients.back();
    app->selected().stopWorking();
    send("More");
    EXPECT_EQ(stopped->cancels, 1);
    EXPECT_EQ(thread().runs[thread().runs.size() - 2].status, RunRecordStatus::cancelled);
    EXPECT_EQ(stopped->prompts.size(), 1U) << "a runtime takes one prompt at a time";
    EXPECT_EQ(state(), ConnectionState::connecting()) << "a further prompt is queued";
    end(*this);
    if (!isClientKept) {
      ASSERT_NE(clients.back(), stopped);
      EXPECT_EQ(stopped->stops, 1);
      client().opens("session");
    }
    EXPECT_EQ(clients.back() == stopped, isClientKept);
    EXPECT_EQ(client().prompts.size(), isClientKept ? 2U : 1U);
    EXPECT_EQ(run().status, RunRecordStatus::running);
    client().finishes();
    EXPECT_EQ(run().status, RunRecordStatus::completed);
    app->selected().resetConnection();
  }
}

TEST_F(TurnEnds, StopOfAPromptThatWaitsForAStoppedTurnSendsNothing) {
  start();
  work("Go");
  const auto stopped = clients.back();
  app->selected().stopWorking();
  send("More");
  app->selected().stopWorking();
  stopped->finishes();
  main.advance(std::chrono::minutes(1));
  EXPECT_EQ(stopped->prompts.size(), 1U);
  EXPECT_EQ(stopped->stops, 1);
  EXPECT_EQ(clients.size(), 1U);
  EXPECT_EQ(run().status, RunRecordStatus::cancelled);
}

TEST_F(TurnEnds, DyingClientGivesTheRunItsText) {
  start();
  for (const bool promptFailsFirst : {true, false}) {
    SCOPED_TRACE(promptFailsFirst);
    work("Go");
    if (promptFailsFirst) {
      client().fails(AgentError::disconnection("The model runtime disconnected."));
    }
    client().onUnexpectedTermination("Kimi exited with status 9.");
    EXPECT_EQ(run().status, RunRecordStatus::failed);
    EXPECT_EQ(run().statusMessage, "Kimi exited with status 9.");
    EXPECT_TRUE(run().completedAt);
    EXPECT_EQ(state(), ConnectionState::failed("Kimi exited with status 9."));
  }
}

TEST_F(TurnEnds, ClientThatDiesIdleLeavesTheCompletedRunAlone) {
  start();
  work("Go");
  client().finishes();
  client().onUnexpectedTermination("Kimi exited with status 0.");
  EXPECT_EQ(run().status, RunRecordStatus::completed);
  EXPECT_EQ(state().kind, ConnectionState::Kind::failed);
  send("Next");
  EXPECT_EQ(clients.size(), 2u);
  EXPECT_EQ(client().existingSession, "session");
}

TEST_F(TurnEnds, EndedRunIsLeftAloneByWhatComesLater) {
  start();
  work("Go");
  client().fails(AgentError("quota exceeded"));
  main.runReady();
  client().onPermissionRequest({1, "Late", "", {}});
  app->selected().respondToPermission("x");
  app->selected().stopWorking();
  client().onUnexpectedTermination("Kimi exited with status 0.");
  EXPECT_EQ(run().status, RunRecordStatus::failed);
  EXPECT_EQ(run().statusMessage, "quota exceeded");
}

TEST_F(TurnEnds, KeptClientThatDiesBeforeItIsUsedIsReplaced) {
  start();
  work("One");
  client().finishes();
  app->selected().send("Two", {});
  client().onUnexpectedTermination("gone");  // the turn is on its way to it
  EXPECT_EQ(state(), ConnectionState::connecting()) << "a further prompt is queued";
  main.runReady();
  ASSERT_EQ(clients.size(), 2U);
  client().opens("session");
  EXPECT_EQ(client().prompts.size(), 1U);
  EXPECT_EQ(run().status, RunRecordStatus::running);
}

}  // namespace
}  // namespace vantrell::tests
