// What Kimi Code and OpenCode do differently, by the frames that showed it.
#include <fstream>
#include <gtest/gtest.h>

#include "runtimes/acp/kimi_quirks.h"
#include "runtimes/acp/opencode_quirks.h"
#include "runtimes/acp/update_completer.h"
#include "runtimes/acp_client_fixture.h"

namespace vantrell {
namespace {

using tests::ACPAgentScript;

// ---- Kimi Code ----------------------------------------------------------------------------------

const std::string request = "2026-11-23T14:08:43.043Z INFO  llm request  turnStep=0.1\n";
const std::string limit =
    "2026-11-23T14:08:43.102Z WARN  llm request failed  turnStep=0.1 model=stand-in "
    "errorName=APIProviderRateLimitError errorMessage=\"429 The usage limit has been reached\" "
    "statusCode=429\n";

const std::string response =
    "2026-11-23T14:08:44.162Z INFO  llm response  turnStep=0.1 ttftMs=23 outputTokens=20\n";

TEST(KimiQuirks, LastRequestOfTheLogDecides) {
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      {"", std::nullopt},
      {request, std::nullopt},
      {request + limit, "429 The usage limit has been reached"},
      {request + limit + request, std::nullopt},
      {request + limit + request + limit, "429 The usage limit has been reached"},
      {limit + "2026-11-23T14:08:44Z INFO  other\n", "429 The usage limit has been reached"},
  };
  for (const auto& [log, expected] : cases) EXPECT_EQ(KimiQuirks::failureIn(log), expected) << log;
  for (const auto& log :
       {std::string(), request, request + limit + request, request + response + request}) {
    EXPECT_FALSE(KimiQuirks::hasEnded(log)) << log;
  }
  for (const auto& log : {request + limit, request + limit + request + response, limit}) {
    EXPECT_TRUE(KimiQuirks::hasEnded(log)) << log;
  }
}

class Kimi : public tests::ACPClientTest {
 protected:
  Kimi() {
    configuration_.provider = AgentProvider::kimi;
    configuration_.runtimeName = "Kimi";
    configuration_.processEnvironment["KIMI_CODE_HOME"] = folder_ / "kimi";
  }
  std::string opening() const override {
    return ACPAgentScript().openSession().expect("\"mode\"").result("{}").text();
  }
  /// The log of the session, as Kimi keeps it.
  void log(const std::string& text) {
    const auto path = folder_.folder("kimi/sessions/wd_p/s1/logs") + "/kimi-code.log";
    std::ofstream(path, std::ios::app) << text;
  }
  /// Opens a turn whose end comes once the log says so much. The client has looked there once.
  using ACPClientTest::openTurn;
  void openTurn(const std::string& logAtItsEnd, const std::string& said) {
    ACPAgentScript turn;
    if (!said.empty()) turn.say(said);
    ACPClientTest::openTurn(turn.ask(70, "A").expectChoice(70, "y").send(
        R"({"id":4,"result":{"stopReason":"end_turn"}})"));
    await("asks 70 A");
    log(logAtItsEnd);
    client_->respondToPermission(70, "y");
    ASSERT_TRUE(main_.runUntil([&] { return main_.hasTimers(); }))
        << testing::PrintToString(notes_);
  }
  /// Lets it look until the turn has ended so.
  void endsWith(const std::string& line) {
    const auto hasEnded = [&] { return !notes_.empty() && notes_.back().starts_with("turn "); };
    const auto begin = main_.uptime();
    while (!hasEnded()) {
      ASSERT_TRUE(main_.runUntil([&] { return hasEnded() || main_.hasTimers(); }));
      main_.advance(std::chrono::milliseconds(250));
    }
    EXPECT_EQ(notes_.back(), line);
    EXPECT_LE(main_.uptime() - begin, std::chrono::seconds(4));
  }
};

TEST_F(Kimi, TurnWithoutAWordHasFailed) {
  openTurn(ACPAgentScript().endTurn());
  endsWith("turn failed: Kimi ended its turn without a word.");
}

TEST_F(Kimi, FailureThatOnlyItsLogTellsIsTheTurns) {
  log(request);  // of an earlier turn
  openTurn(request + limit, "");
  endsWith("turn failed: The model of Kimi failed: 429 The usage limit has been reached");
  ASSERT_EQ(failures_.size(), 1U);
  EXPECT_TRUE(isUsageLimitFailure(failures_.back()));
}

TEST_F(Kimi, FailureOfAnEarlierTurnIsNotThisOnes) {
  log(request + limit);
  openTurn(ACPAgentScript().say("well").endTurn());
  endsWith(R"(turn ended {"stopReason":"end_turn"})");
}

TEST_F(Kimi, LogIsReadOnceAllOfTheTurnIsInIt) {
  const std::string failed =
      "turn failed: The model of Kimi failed: 429 The usage limit has been reached";
  const std::string ended = R"(turn ended {"stopReason":"end_turn"})";
  const struct {
    std::string said, atItsEnd, late, expected;
  } cases[] = {
      {"", "", request + limit, failed},
      {"well", "", request + limit, failed},
      {"", request + limit + request, limit, failed},
      {"well", request, limit, failed},
      {"", request + limit, request + response, "turn failed: Kimi ended its turn without a word."},
      {"well", request + limit, request + response, ended},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.said + each.atItsEnd);
    std::filesystem::remove_all(folder_ / "kimi");
    openTurn(each.atItsEnd, each.said);
    log(each.late);
    endsWith(each.expected);
    client_.reset();
  }
}

TEST_F(Kimi, StopWhileTheLogIsWaitedForEndsTheTurn) {
  openTurn(ACPAgentScript().endTurn());
  ASSERT_TRUE(main_.runUntil([&] { return main_.hasTimers(); }));
  client_->cancel();
  endsWith(R"(turn ended {"stopReason":"end_turn"})");
}

TEST_F(Kimi, CancelledTurnWithoutAWordHasNotFailed) {
  openTurn(ACPAgentScript()
               .expect("session/cancel")
               .send(R"({"id":4,"result":{"stopReason":"cancelled"}})"));
  client_->cancel();
  expectNotes({R"(turn ended {"stopReason":"cancelled"})"});
}

TEST_F(Kimi, DeathWhileItsModeIsSetIsToldAsADeath) {
  begin(
      ACPAgentScript().openSession().expect("\"mode\"").line("error out of memory").line("exit 9"));
  expectNotes({"not started: out of memory", "terminated: out of memory"});
}

// ---- updates that leave something out -----------------------------------------------------------

std::string completed(UpdateCompleter& completer, const std::string& frame) {
  auto update = *json::parseObject(frame);
  completer.complete(update);
  return json::write(update);
}

TEST(UpdateCompleter, ToolUpdateCarriesTheLastKnownTitleAndStatus) {
  UpdateCompleter completer;
  const auto update = [&](const std::string& rest) {
    return completed(
        completer,
        R"({"sessionUpdate":"tool_call_update","toolCallId":"0:call_e6d5")" + rest + "}");
  };
  const std::string front = R"({"sessionUpdate":"tool_call_update","toolCallId":"0:call_e6d5")";
  EXPECT_EQ(update(""), front + "}") << "nothing is known";
  update(R"(,"title":"Bash","status":"pending")");
  EXPECT_EQ(update(R"(,"status":"in_progress")"),
            front + R"(,"status":"in_progress","title":"Bash"})");
  EXPECT_EQ(update(R"(,"title":"Running: ls")"),
            front + R"(,"title":"Running: ls","status":"in_progress"})");
  EXPECT_EQ(update(R"(,"status":"completed")"),
            front + R"(,"status":"completed","title":"Running: ls"})");
}

TEST(UpdateCompleter, TextWithoutAnIdAfterAToolIsAnotherMessage) {
  UpdateCompleter completer;
  const std::string text = R"({"sessionUpdate":"agent_message_chunk","content":{"text":"a"}})";
  const std::string tool = R"({"sessionUpdate":"tool_call","toolCallId":"1"})";
  const auto idOf = [&](const std::string& frame) {
    return json::textOr(*json::parseObject(completed(completer, frame)), "messageId", "");
  };
  EXPECT_EQ(idOf(text), "") << "the turn's own message";
  completed(completer, tool);
  const std::string second = idOf(text);
  EXPECT_NE(second, "");
  completed(completer, tool);
  EXPECT_EQ(idOf(text), second) << "the call was known";
  EXPECT_EQ(idOf(R"({"sessionUpdate":"agent_thought_chunk"})"), "thought-" + second);
  EXPECT_EQ(idOf(R"({"sessionUpdate":"agent_message_chunk","messageId":"own"})"), "own");
  completer.beginTurn();
  EXPECT_EQ(idOf(text), "");
}

// ---- OpenCode -----------------------------------------------------------------------------------

TEST(OpenCodeQuirks, SaysThatItMayNotAskUnlessItsSettingsDo) {
  const tests::TemporaryFolder folder;
  ACPConfiguration configuration;
  configuration.workspacePath = folder.folder("project");
  configuration.processEnvironment = {{"HOME", folder.path()}};
  const OpenCodeQuirks quirks;
  const auto isTold = [&] { return quirks.startNotice(configuration).has_value(); };
  EXPECT_TRUE(isTold());
  configuration.permissionMode = GrokPermissionMode::auto_;
  EXPECT_FALSE(isTold());
  configuration.permissionMode = GrokPermissionMode::ask;
  folder.file(".config/opencode/opencode.json", R"({"permission":{"bash":"allow"}})");
  EXPECT_TRUE(isTold());
  folder.file("project/opencode.jsonc", R"({"permission":{"bash":"ask"} /* careful */})");
  EXPECT_FALSE(isTold());
}

}  // namespace
}  // namespace vantrell
