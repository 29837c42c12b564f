#include "platform/text/text.h"
#include "platform/values/uuid.h"
#include "runtimes/agent_client_fixture.h"
#include "runtimes/claude/claude_code_client.h"
#include "support/claude_agent_script.h"
#include "support/claude_frames.h"

namespace vantrell {
namespace {

using tests::ClaudeAgentScript;

/// A Claude Code client and a scripted agent at the other end of real pipes.
class ClaudeClientTest : public tests::AgentClientTest {
 protected:
  ClaudeClientTest() {
    configuration_.workspacePath = project_;
    configuration_.model = "sonnet";
    configuration_.processEnvironment = {{"PATH", "/usr/bin:/bin"}};
  }

  /// A program that takes Claude Code's arguments, writes them down and follows the script.
  void make(const tests::AgentScriptText& script) override {
    configuration_.executable =
        program("claude", "printf '%s\\n' \"$@\" > '" + folder_ / "arguments" + "'\nexec '" +
                              tests::AgentScriptText::program() + "' '" +
                              folder_.file("script", script.withWaitAtTheEnd()) + "'\n");
    client_ = ClaudeCodeClient::make(configuration_, main_, pool_);
  }
  std::string opening() const override { return ClaudeAgentScript().open().text(); }
  std::string beginningOfATurn() const override {
    return ClaudeAgentScript().expectPrompt().text();
  }
  std::string arguments() const { return tests::TemporaryFolder::contentOf(folder_ / "arguments"); }

  using AgentClientTest::describe;
  std::string describe(const JsonObject& update) const override {
    if (json::object(update, "content")) return AgentClientTest::describe(update);
    return json::textOr(update, "title", "?") + " " + json::textOr(update, "status", "?");
  }
  std::string describe(const AgentStartResult& result) const override {
    return std::string("started") + (result.replayedSession ? " replayed" : "");
  }
  std::string describeEnd(const JsonObject& result) const override {
    return json::textOr(result, "result", "?");
  }

  AgentConfiguration configuration_;
};

using ClaudeClientStart = ClaudeClientTest;

TEST_F(ClaudeClientStart, NewSessionHasAnIdFromTheStart) {
  begin(ClaudeAgentScript()
            .expectLine(R"({"type":"control_request","request_id":"vantrell_1",)"
                        R"("request":{"subtype":"initialize","hooks":null}})")
            .answer(R"({"commands":[],"models":[]})"));
  expectNotes({"started"});
  EXPECT_TRUE(Uuid::parse(session_)) << session_;
  EXPECT_EQ(session_, text::lowercased(session_));
  EXPECT_TRUE(arguments().ends_with(
      "\n--permission-mode\ndefault\n--model\nsonnet\n--session-id=" + session_ + "\n"))
      << arguments();
  EXPECT_EQ(client_->provider(), AgentProvider::claude);
}

TEST_F(ClaudeClientStart, StoredSessionIsResumedWithoutAReplay) {
  configuration_.permissionMode = GrokPermissionMode::auto_;
  configuration_.effort = "high";
  begin(ClaudeAgentScript().open(), "Old one");
  expectNotes({"started replayed"});
  EXPECT_EQ(session_, "Old one");
  EXPECT_TRUE(arguments().ends_with(
      "\n--permission-mode\nauto\n--model\nsonnet\n--effort\nhigh\n--resume=Old one\n"))
      << arguments();
}

TEST_F(ClaudeClientStart, RefusalOfTheInitializationFailsIt) {
  begin(
      ClaudeAgentScript()
          .expect("initialize")
          .send(
              R"({"type":"control_response","response":{"request_id":"vantrell_1","subtype":"error"}})"));
  expectNotes({"not started: Claude Code rejected a control request."});
}

TEST_F(ClaudeClientStart, AnswerOfAnyOtherFormIsNotItsAnswer) {
  begin(ClaudeAgentScript()
            .expect("initialize")
            .send(R"({"type":"control_response","response":{"request_id":1}})")
            .send(R"({"type":"control_response","response":{"request_id":"vantrell_2"}})")
            .send(R"({"type":"control_response","response":{"request_id":"vantrell_01"}})")
            .send(R"({"type":"control_response","response":{"request_id":"vantrell_1"}})")
            // A second answer to the same request.
            .send(R"({"type":"control_response","response":{"request_id":"vantrell_1",)"
                  R"("subtype":"error"}})")
            .say("x"));
  expectNotes({"started", "says x"});
}

TEST_F(ClaudeClientStart, SessionThatCannotBeResumedFailsInClaudeCodesWords) {
  begin(ClaudeAgentScript()
            .expect("initialize")
            .line(R"(error No conversation found with session ID: old\n)")
            .send(tests::claude_frames::resumeFailed)
            .line("exit 1"),
        "old");
  expectNotes({"not started: No conversation found with session ID: old",
               "terminated: No conversation found with session ID: old"});
  EXPECT_EQ(log_, "No conversation found with session ID: old\n");
}

namespace frames = tests::claude_frames;
using ClaudeClientTurn = ClaudeClientTest;

TEST_F(ClaudeClientTurn, StreamsAndEndsAsTheRealOneDoes) {
  open(ClaudeAgentScript()
           .expect(R"({"type":"user","message":{"role":"user","content":"line one\nline \"two\""},)"
                   R"("parent_tool_use_id":null,"session_id":")")
           .send(frames::initOfATurn)
           .send(frames::thinkingDelta)
           .send(frames::thinkingWhole)
           .send(frames::textDelta)
           .send(frames::textWhole)
           .send(frames::limitNear)
           .send(frames::turnResult)
           // It has told its id of the session.
           .expectLine(R"({"type":"user","message":{"role":"user","content":"next"},)"
                       R"("parent_tool_use_id":null,"session_id":"s1"})")
           .say("b")
           .endTurn());
  prompt("line one\nline \"two\"");
  expectNotes({"thinks hm", "says hello ", "usage", "turn ended hello there my friend"});
  notes_.clear();
  prompt("next");
  expectNotes({"says b", "turn ended done"});
  EXPECT_EQ(json::textOr(updates_[0], "messageId", ""),
            "thought-" + json::textOr(updates_[1], "messageId", ""));
  EXPECT_NE(json::textOr(updates_[1], "messageId", ""), json::textOr(updates_[2], "messageId", ""));
}

TEST_F(ClaudeClientTurn, SecondPromptIsRefusedAndTheFirstGoesOn) {
  openTurn(ClaudeAgentScript().say("a").expect("interrupt").endTurn());
  await("says a");
  prompt("second");
  await("turn failed: Claude Code is already handling a prompt.");
  EXPECT_FALSE(failures_[0].isDisconnection());
  client_->cancel();
  await("turn ended done");
  EXPECT_EQ(notes_.size(), 3u);
}

TEST_F(ClaudeClientTurn, FailureArrivesClassified) {
  openTurn(ClaudeAgentScript()
               .send(frames::limitReached)
               .send(frames::limitText)
               .send(frames::limitResult));
  const std::string words = "You've hit your session limit · resets 1:40am (UTC)";
  expectNotes({"usage exhausted", "turn failed: " + words});
  EXPECT_TRUE(isUsageLimitFailure(failures_[0]));
}

// ---- turns that Claude Code begins by itself ----------------------------------------------------

TEST_F(ClaudeClientTurn, TurnOfItsOwnDoesNotAnswerThePromptBehindIt) {
  openTurn(ClaudeAgentScript()
               .send(frames::backgroundStarted)
               .send(frames::turnResult)
               .send(frames::backgroundNotified)
               .send(frames::initOfATurn)
               .send(frames::textDelta)
               .expectPrompt()
               .send(frames::textDelta)
               .send(frames::textWhole)
               .send(frames::resultOfItsOwn)
               .send(frames::initOfATurn)
               .send(frames::textWhole)
               .endTurn());
  await("says hello ");
  notes_.clear();
  const std::string ofItsOwn = json::textOr(updates_.back(), "messageId", "");
  updates_.clear();
  prompt();
  expectNotes({"says hello ", "says hello there my friend", "turn ended done"});
  EXPECT_EQ(json::textOr(updates_[0], "messageId", ""), ofItsOwn);
  EXPECT_NE(json::textOr(updates_[1], "messageId", ""), ofItsOwn);
}

TEST_F(ClaudeClientTurn, StopOfAPromptBehindATurnOfItsOwnReachesThePrompt) {
  open(ClaudeAgentScript()
           .send(frames::initOfATurn)
           .send(frames::textDelta)
           .expectPrompt()
           .expectInterrupt()
           .answer()
           .send(frames::resultOfItsOwn)
           .send(frames::initOfATurn)
           .expectInterrupt()
           .answer()
           .send(frames::interruptedResult)
           .expectPrompt()
           .send(frames::initOfATurn)
           .endTurn());
  await("says hello ");
  prompt();
  client_->cancel();
  await("turn failed: [ede_diagnostic] result_type=user last_content_type=n/a stop_reason=null");
  prompt();
  await("turn ended done");
}

// ---- cancelling ---------------------------------------------------------------------------------

TEST_F(ClaudeClientTurn, CancelWritesTheInterruptAndThenTheDenials) {
  openTurn(ClaudeAgentScript()
               .ask("q1", R"({"subtype":"can_use_tool","tool_name":"A","input":{"x":1}})")
               .ask("q2", R"({"subtype":"can_use_tool","tool_name":"B","input":{"x":2}})")
               .say("both asked")
               .expectLine(R"({"type":"control_request","request_id":"vantrell_2",)"
                           R"("request":{"subtype":"interrupt"}})")
               .expectDenied("q1")
               .expectDenied("q2")
               .ask("q3", R"({"subtype":"can_use_tool","tool_name":"crossed the stop"})")
               .expectDenied("q3")
               .send(frames::toolWhole)
               .send(frames::interruptedResult)
               .expectPrompt()
               .endTurn());
  await("says both asked");
  client_->cancel();
  client_->respondToPermission(100000, "claude-allow-once");
  expectNotes(
      {"asks 100000 A", "says both asked", "Bash in_progress", "Bash failed",
       "turn failed: [ede_diagnostic] result_type=user last_content_type=n/a stop_reason=null"});
  EXPECT_FALSE(isUsageLimitFailure(failures_[0]));
  EXPECT_FALSE(failures_[0].isDisconnection());
  prompt();
  await("turn ended done");
}

// ---- questions ----------------------------------------------------------------------------------

TEST_F(ClaudeClientTurn, RealQuestionIsAllowedWithItsInputUnchanged) {
  openTurn(ClaudeAgentScript()
               .send(frames::toolStart)
               .send(frames::toolWhole)
               .send(frames::toolQuestion)
               .expectAllowed("683e17bd-2054-4404-b19e-4a7def42338f",
                              R"({"command":"touch yes.txt","description":"run a command"})")
               .send(frames::toolResult)
               .endTurn());
  await("asks 100000 Bash");
  EXPECT_EQ(questions_[0].detail,
            "{\n  \"command\": \"touch yes.txt\",\n  \"description\": \"run a command\"\n}");
  client_->respondToPermission(100000, "claude-allow-once");
  expectNotes({"Bash in_progress", "Bash in_progress", "asks 100000 Bash", "Bash completed",
               "turn ended done"});
}

TEST_F(ClaudeClientTurn, WithdrawnQuestionIsNotAnswered) {
  open(ClaudeAgentScript()
           .send(frames::toolQuestion)
           .send(frames::questionWithdrawn)
           .ask("q2", R"({"subtype":"can_use_tool","title":"B"})")
           .expectDenied("q2")
           .say("done"));
  await("asks 100001 B");
  EXPECT_EQ(notes_, (Lines{"asks 100000 Bash", "withdrawn 100000", "asks 100001 B"}));
  client_->respondToPermission(100000, "claude-allow-once");
  client_->respondToPermission(100001, "claude-deny");
  await("says done");
}

TEST_F(ClaudeClientTurn, FullAccessAnswersByItself) {
  configuration_.permissionMode = GrokPermissionMode::fullAccess;
  open(ClaudeAgentScript()
           .ask("q1", R"({"subtype":"can_use_tool","input":{"z":1,"a":2}})")
           .expectAllowed("q1", R"({"z":1,"a":2})")
           .ask("q2", R"({"subtype":"can_use_tool","input":"x"})")
           .expectAllowed("q2", "{}")
           .say("done"));
  expectNotes({"says done"});
  EXPECT_TRUE(arguments().starts_with(
      "--output-format\nstream-json\n--verbose\n--input-format\nstream-json\n"
      "--include-partial-messages\n--permission-prompt-tool\nstdio\n"
      "--setting-sources=user,project,local\n--permission-mode\nbypassPermissions\n"))
      << arguments();
}

TEST_F(ClaudeClientTurn, OtherControlRequestsAreRefused) {
  const auto refusal = [](const std::string& id) {
    return R"({"type":"control_response","response":{"subtype":"error","request_id":")" + id +
           R"(","error":"vantrell does not support this Claude control request."}})";
  };
  open(ClaudeAgentScript()
           .send(R"({"type":"control_request","request":{"subtype":"can_use_tool"}})")
           .send(R"({"type":"control_request","request_id":7,"request":{}})")
           .send(R"({"type":"control_request","request_id":"q","request":[]})")
           .ask("q1", R"({"subtype":"hook_callback"})")
           .expectLine(refusal("q1"))
           .ask("q2", R"({"subtype":5})")
           .expectLine(refusal("q2"))
           .say("done"));
  expectNotes({"says done"});
}

}  // namespace
}  // namespace vantrell
