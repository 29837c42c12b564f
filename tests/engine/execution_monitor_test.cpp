// Silence and its end, with a real agent at the other end of pipes and virtual time on ours.
#include "engine/turns/execution_monitor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/process/process.h"
#include "runtimes/acp/acp_client.h"
#include "support/acp_agent_script.h"
#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;

/// An agent that follows its script line by line while the test writes it.
class ExecutionMonitorTest : public EngineFixture {
 protected:
  ExecutionMonitorTest() {
    const std::string path = folder / "script";
    if (mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("no pipe");
    // Also for reading, so that opening waits for nobody.
    script_ = open(path.c_str(), O_RDWR | O_CLOEXEC);
    providers.connectors[AgentProvider::grok].makeClient =
        [this, path](const ProviderConnectorContext& context) {
          return ACPClient::make({.provider = AgentProvider::grok,
                                  .executable = ACPAgentScript::program(),
                                  .workspacePath = context.workspacePath,
                                  .processArguments = {path},
                                  .processEnvironment = {{"PATH", "/usr/bin:/bin"}},
                                  .runtimeName = "Grok"},
                                 main, pool);
        };
    provider = AgentProvider::grok;
    start();
  }
  ~ExecutionMonitorTest() override {
    stop();
    close(script_);
    EXPECT_TRUE(Process::waitForAll(20s));
  }

  void agent(const ACPAgentScript& script) const {
    const std::string& text = script.text();
    ASSERT_EQ(write(script_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void await(const std::function<bool()>& condition) {
    ASSERT_TRUE(main.runUntil(condition))
        << run().statusMessage.value_or("-") << ", the last entry: " << texts().back();
  }
  /// A turn in which the agent has said one word.
  void startTurn() {
    agent(ACPAgentScript().openSession().expectPrompt().say("word "));
    app->selected().send("Go", {});
    await([this] { return texts().back() == "word "; });
    events.clear();
  }
  void agentSaysMore() {
    const std::string before = texts().back();
    agent(ACPAgentScript().say("word "));
    await([&] { return texts().back() == before + "word "; });
  }
  std::string message() { return run().statusMessage.value_or(""); }

  static constexpr std::string_view warning =
      "Grok has produced no new activity for 10m 0s. It may still be working; you can keep waiting "
      "or stop the task.";

  BackgroundPool pool{2};
  int script_;
};

TEST_F(ExecutionMonitorTest, WarnsOnceForASilenceAndAnewForTheNext) {
  startTurn();
  const Date lastWord = main.now();
  main.advance(599s);
  EXPECT_EQ(message(), "Grok is working");
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

  agentSaysMore();
  EXPECT_EQ(message(), "Grok resumed activity.");
  EXPECT_EQ(run().lastActivityAt, main.now());
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
  agent(ACPAgentScript().request(
      7, "session/request_permission",
      R"({"sessionId":"s1","toolCall":{"toolCallId":"t","title":"Run npm test"},)"
      R"("options":[{"optionId":"y","name":"Yes","kind":"allow_once"}]})"));
  await([this] { return execution().permissionRequest() != nullptr; });
  events.clear();
  main.advance(1h);
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(message(), "Run npm test");

  app->selected().respondToPermission("y");
  main.advance(599s);
  EXPECT_EQ(message(), "Continuing after your decision") << "the hour was not the agent's";
  main.advance(30s);
  EXPECT_EQ(events.size(), 1U);
  agent(ACPAgentScript().expect(R"("optionId":"y")"));
  agentSaysMore();
  EXPECT_EQ(message(), "Grok resumed activity.");
}

TEST_F(ExecutionMonitorTest, StatusQuestionInATurnReachesNoAgent) {
  startTurn();
  app->selected().send("And then this", {});
  const RunRecord before = run();
  app->selected().send("Is it still working?", {});
  EXPECT_TRUE(texts().back().starts_with("Yes—Grok is still working.\n\n- **Running:** 0s\n"))
      << texts().back();
  EXPECT_EQ(run(), before);
  EXPECT_EQ(thread().queuedPrompts.size(), 1U);
  EXPECT_EQ(thread().runs.size(), 1U);
  ChatAttachment file;
  file.path = "a.txt";
  app->selected().send("status", {file});
  EXPECT_EQ(thread().queuedPrompts.size(), 2U) << "with an attachment it is the agent's to answer";

  // The stop is the next line that the agent gets, and then the next prompt: anything else between
  // would end it.
  app->selected().stopWorking();
  agent(ACPAgentScript().expect("session/cancel").result(R"({"stopReason":"cancelled"})"));
  agent(ACPAgentScript().expectPrompt().endTurn());
  app->selected().send("Next", {});
  await([this] { return run().status == RunRecordStatus::completed; });
}

TEST_F(ExecutionMonitorTest, LooksAtConversationsThatAreNotSelected) {
  startTurn();
  model->operations->newThread(key.workspaceID);
  main.advance(600s);
  EXPECT_EQ(message(), warning);
  EXPECT_EQ(events.size(), 1U);
}

TEST_F(ExecutionMonitorTest, TimeBetweenTurnsIsNoSilence) {
  startTurn();
  agent(ACPAgentScript().endTurn());
  await([this] { return run().status == RunRecordStatus::completed; });
  main.advance(1h);
  app->selected().send("Next", {});  // its checkpoint and hooks may take a while
  model->monitor->checkExecutionHealth(main.now() + 599s);
  EXPECT_FALSE(execution().stallWarningSent);
  model->monitor->checkExecutionHealth(main.now() + 600s);
  EXPECT_TRUE(execution().stallWarningSent);
}

TEST_F(ExecutionMonitorTest, BeginsAnewWhenItIsConfiguredAgain) {
  startTurn();
  main.advance(580s);
  model->monitor->configureExecutionMonitor();
  main.advance(29s);
  EXPECT_EQ(message(), "Grok is working") << "the former timer would have seen 600 seconds";
  main.advance(1s);
  EXPECT_TRUE(message().contains("for 10m 10s"));
  main.advance(10min);
  EXPECT_EQ(events.size(), 1U);
}

}  // namespace
}  // namespace vantrell::tests
