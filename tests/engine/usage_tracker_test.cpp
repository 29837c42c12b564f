#include <gmock/gmock.h>

#include "engine/turns/usage_reset.h"
#include "records/stores/orchestration_store.h"
#include "runtimes/codex/codex_app_server_client.h"
#include "support/codex_agent_script.h"
#include "support/engine_fixture.h"
#include "support/held_executor.h"

namespace vantrell {
namespace {

using enum AgentProvider;
using namespace std::chrono_literals;
using tests::CodexAgentScript;

TEST(ProviderUsage, SaysInTwoWordsWhatIsKnown) {
  const std::tuple<std::optional<double>, bool, std::string> cases[] = {
      {41.5, false, "42% used"},
      {0.0, true, "0% used"},
      {{}, true, "Limit reached"},
      {{}, false, "Usage unavailable"},
  };
  for (const auto& [percent, exhausted, label] : cases) {
    ProviderUsage usage;
    usage.primaryUsedPercent = percent;
    usage.exhausted = exhausted;
    EXPECT_EQ(usage.compactLabel(), label);
  }
}

class UsageTrackerTest : public tests::EngineFixture {
 protected:
  static ProviderUsage usageOf(AgentProvider each, std::optional<double> percent = {}) {
    ProviderUsage usage;
    usage.provider = each;
    usage.primaryUsedPercent = percent;
    return usage;
  }
  std::vector<UsageLedgerEvent> stored() {
    OrchestrationStore files(folder.path(), [] { return Date(0); }, [](const auto&) {});
    return UsageLedger::load(files);
  }
};

TEST_F(UsageTrackerTest, ReportsOfAClientReachTheLedgerAndKeepEarlierCredits) {
  start();
  auto usage = usageOf(codex, 10);
  usage.manualResetCredits = 2;
  usage.manualResetCreditID = "c";
  model->usage.discovered(usage);
  EXPECT_TRUE(model->usage.ledger().empty()) << "a question is no report";

  provider = codex;
  work("Go");
  usage = usageOf(codex, 40);
  usage.resetsAt = main.now() + Seconds(60);
  client().onUsageUpdate(usage);
  EXPECT_EQ(model->usage.usage(codex)->primaryUsedPercent, 40);
  EXPECT_EQ(model->usage.usage(codex)->manualResetCredits, 2);
  EXPECT_EQ(model->usage.usage(codex)->manualResetCreditID, "c");
  ASSERT_EQ(stored().size(), 1U);
  EXPECT_EQ(stored()[0].usedPercent, 40);
  EXPECT_EQ(stored()[0].provider, codex);
  EXPECT_EQ(stored()[0].resetAt, usage.resetsAt);

  usage.manualResetCredits = 0;
  client().onUsageUpdate(usage);
  EXPECT_EQ(model->usage.usage(codex)->manualResetCredits, 0);
  EXPECT_EQ(stored().size(), 1U) << "reports that come close together are written together";
  main.advance(1s);
  EXPECT_EQ(stored().size(), 2U);
}

TEST_F(UsageTrackerTest, LedgerWaitsForTheDiskElsewhereAndOneWriteAtATime) {
  tests::HeldExecutor disk;
  disk.isHeld = true;
  Changes changes(main);
  OrchestrationStore ledgers(
      folder.path(), [this] { return main.now(); }, [](const std::string&) {});
  UsageTracker tracker(main, changes, ledgers, &disk);
  tracker.reported(usageOf(claude, 1));
  tracker.reported(usageOf(claude, 2));
  main.advance(5s);
  ASSERT_EQ(disk.held.size(), 1U);
  EXPECT_TRUE(stored().empty());
  disk.held[0]();
  EXPECT_EQ(stored().size(), 1U);
  main.advance(1s);
  ASSERT_EQ(disk.held.size(), 2U);
  disk.held[1]();
  EXPECT_EQ(stored().size(), 2U);
}

TEST_F(UsageTrackerTest, LedgerOutlivesTheProgramAndDropsItsOldest) {
  start();
  for (int i = 0; i < 1003; ++i) model->usage.reported(usageOf(claude, i));
  stop();
  start();
  ASSERT_EQ(model->usage.ledger().size(), 1000U);
  EXPECT_EQ(model->usage.ledger().front().usedPercent, 3);
  EXPECT_EQ(model->usage.ledger().back().usedPercent, 1002);
  EXPECT_EQ(model->usage.usage(claude), nullptr) << "usage itself is not stored";
}

// ---- the manual reset, with a real client ------------------------------------------------------

class UsageResetTest : public UsageTrackerTest {
 protected:
  /// Codex is at work in the conversation as the script says, or starts so when it is needed.
  void startWith(const CodexAgentScript& script) {
    const std::string program =
        folder.file("codex", "#!/bin/sh\nexec '" + CodexAgentScript::program() + "' '" +
                                 folder.file("script", script.text()) + "'\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    providers.connectors[codex].makeClient = [this,
                                              program](const ProviderConnectorContext& context) {
      ++clientsMade;
      return CodexAppServerClient::make({.executable = program,
                                         .workspacePath = context.workspacePath,
                                         .processEnvironment = {{"PATH", "/usr/bin:/bin"}}},
                                        main, pool);
    };
    defaults->setText("providerRoutingMode.v1", "codex");
    start();
    auto usage = usageOf(codex, 100);
    usage.manualResetCredits = 1;
    model->usage.discovered(usage);
  }
  ~UsageResetTest() override {
    stop();
    EXPECT_TRUE(Process::waitForAll(20s));
  }
  void reset() {
    model->usageReset->resetSessionUsage(key);
    EXPECT_TRUE(model->usageReset->usageResetInProgress());
    model->usageReset->resetSessionUsage(key);  // one at a time
    EXPECT_TRUE(main.runUntil([this] { return !model->usageReset->usageResetInProgress(); }));
  }
  static CodexAgentScript upToTheReset() {
    return CodexAgentScript().openThread().expect("account/rateLimitResetCredit/consume");
  }

  BackgroundPool pool{2};
  int clientsMade = 0;
};

TEST_F(UsageResetTest, StartsAClientSpendsOneCreditAndTellsTheOutcome) {
  startWith(upToTheReset()
                .result(R"({"outcome":"nothingToReset"})")
                .expectUsageRead()
                .result(R"({"rateLimits":{"primary":{"usedPercent":7}}})")
                .expect("account/rateLimitResetCredit/consume")
                .error("no such credit")
                .hang());
  reset();
  EXPECT_EQ(clientsMade, 1);
  EXPECT_EQ(app->selected().errorMessage(),
            "No current Codex allowance window is eligible for a manual reset.");
  EXPECT_TRUE(main.runUntil([this] { return model->usage.usage(codex)->primaryUsedPercent == 7; }));
  EXPECT_EQ(model->usage.usage(codex)->manualResetCredits, 1) << "not told anew, so as it was";
  reset();
  EXPECT_EQ(clientsMade, 1) << "the client that is there serves";
  EXPECT_EQ(app->selected().errorMessage(), "Could not reset Codex usage: no such credit");
  EXPECT_TRUE(thread().runs.empty()) << "it is no turn";
}

TEST_F(UsageResetTest, StartThatFailsOrIsStoppedEndsTheReset) {
  startWith(CodexAgentScript().expect("initialize").error("not today").hang());
  reset();
  EXPECT_EQ(state(), ConnectionState::failed("not today"));

  model->usageReset->resetSessionUsage(key);
  EXPECT_TRUE(model->usageReset->usageResetInProgress());
  app->selected().stopWorking();
  EXPECT_FALSE(model->usageReset->usageResetInProgress());
}

TEST_F(UsageResetTest, NeedsCodexACreditAndAnIdleConversation) {
  startWith(CodexAgentScript().hang());
  provider = kimi;
  model->router->handoff(kimi, ProviderHandoffScope::nextMessage, key);
  work("Go");
  model->usageReset->resetSessionUsage(key);
  EXPECT_EQ(clientsMade, 0) << "a turn keeps its client";
  client().finishes();
  auto usage = usageOf(codex);
  usage.manualResetCredits = 0;
  model->usage.discovered(usage);
  model->usageReset->resetSessionUsage(key);
  EXPECT_EQ(clientsMade, 0);
}

TEST(UsageResetMessage, SaysWhatTheWordOfTheRuntimeMeans) {
  EXPECT_EQ(usageResetMessage("reset"), std::nullopt);
  EXPECT_EQ(usageResetMessage("noCredit"), "No Codex reset credit is currently available.");
  EXPECT_EQ(usageResetMessage(std::unexpected(AgentError("gone"))),
            "Could not reset Codex usage: gone");
}

}  // namespace
}  // namespace vantrell
