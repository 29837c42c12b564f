// Silence and its end.
#include "engine/turns/execution_monitor.h"

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;

class ExecutionMonitorTest : public EngineFixture {
 protected:
  /// A turn in which the agent has said one word.
  void startTurn() {
    start();
    work("Go");
    client().says("word");
    events.clear();
  }
  std::string message() { return run().statusMessage.value_or(""); }

  static constexpr std::string_view warning =
      "Kimi has produced no new activity for 10m 0s. It may still be working; you can keep waiting "
      "or stop the task.";
};

TEST_F(ExecutionMonitorTest, WarnsOnceForEachSilence) {
  startTurn();
  const Date lastWord = main.now();
  main.advance(599s);
  EXPECT_EQ(message(), "Kimi is working");
  main.advance(1s);
  EXPECT_EQ(message(), warning);
  EXPECT_EQ(run().lastActivityAt, lastWord);
  EXPECT_EQ(run().status, RunRecordStatus::running) << "a warning stops nothing";
  const Date warned = run().updatedAt;
  main.advance(30s);
  EXPECT_EQ(run().updatedAt, warned);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].kind, "needs_attention");
  EXPECT_EQ(events[0].message, warning);

  client().says("more");
  EXPECT_EQ(message(), "Kimi resumed activity.");
  EXPECT_EQ(run().lastActivityAt, main.now());
  model->operations->newThread(key.workspaceID);  // also where it is not looked at
  main.advance(599s);
  EXPECT_EQ(events.size(), 1U);
  main.advance(1s);
  EXPECT_EQ(message(), warning);
  EXPECT_EQ(events.size(), 2U);
  EXPECT_FALSE(main.hasTimers()) << "the watch over the conversations counts as none";
}

TEST_F(ExecutionMonitorTest, WaitingForThePersonIsNoSilenceAndTheAnswerEndsIt) {
  startTurn();
  main.advance(600s);
  client().onPermissionRequest({7, "Run npm test", "", {{"y", "Yes", "allow_once"}}});
  events.clear();
  main.advance(1h);
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(message(), "Run npm test");
  app->selected().respondToPermission("y");
  main.advance(599s);
  EXPECT_EQ(message(), "Continuing after your decision") << "the hour was not the agent's";
  main.advance(30s);
  EXPECT_EQ(events.size(), 1U);
}

TEST_F(ExecutionMonitorTest, TimeBetweenTurnsIsNoSilence) {
  startTurn();
  client().finishes();
  main.advance(1h);
  app->selected().send("Next", {});  // its checkpoint and hooks may take a while
  model->monitor->checkExecutionHealth(main.now() + 599s);
  EXPECT_FALSE(execution().stallWarningSent);
  model->monitor->checkExecutionHealth(main.now() + 600s);
  EXPECT_TRUE(execution().stallWarningSent);
}

}  // namespace
}  // namespace vantrell::tests
