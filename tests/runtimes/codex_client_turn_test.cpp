#include <gtest/gtest.h>

#include "runtimes/codex_client_fixture.h"

namespace vantrell {
namespace {

using tests::CodexAgentScript;
using CodexClientTurn = tests::CodexClientTest;

TEST_F(CodexClientTurn, EndsAfterItsLastUpdateAndAsksForTheAllowance) {
  configuration_.effort = "high";
  open(CodexAgentScript()
           .expectLine(R"({"jsonrpc":"2.0","id":4,"method":"turn/start","params":{"threadId":"t1",)"
                       R"("input":[{"type":"text","text":"line one\nline \"two\""}],)"
                       R"("approvalPolicy":"on-request","approvalsReviewer":"user",)"
                       R"("sandboxPolicy":{"type":"workspaceWrite","writableRoots":["${folder}"],)"
                       R"("networkAccess":false},"effort":"high"}})")
           .result(R"({"turn":{"id":"u1","status":"inProgress"}})")
           .notify("item/reasoning/summaryTextDelta", R"({"itemId":"r","delta":"hm"})")
           .notify("item/reasoning/textDelta", R"({"itemId":"r","delta":"m"})")
           .say("m", "a")
           .say("m", "b")
           .endTurn("u1")
           .expectLine(R"({"jsonrpc":"2.0","id":5,"method":"account/rateLimits/read","params":{}})")
           .result(R"({"rateLimits":{"primary":{"usedPercent":14}}})")
           .expectPrompt()
           .error("Usage limit reached"));
  prompt("line one\nline \"two\"");
  expectNotes({"thinks reasoning-r hm", "thinks reasoning-r m", "says m a", "says m b",
               "turn ended completed", "usage"});
  notes_.clear();
  prompt();
  expectNotes({"turn failed: usageLimit Usage limit reached"});
}

TEST_F(CodexClientTurn, EndMayComeBeforeTheAnswerToItsStart) {
  open(CodexAgentScript()
           .expectPrompt()
           .say("m", "quick")
           .endTurn("u1")
           .send(R"({"id":4,"result":{"turn":{"id":"u1"}}})")
           .expectUsageRead()
           .startTurn("u2")
           .endTurn("u2"));
  prompt();
  expectNotes({"says m quick", "turn ended completed"});
  client_->cancel();  // there is nothing that could be interrupted
  prompt();
  awaitCount(3);
  EXPECT_EQ(notes_.back(), "turn ended completed");
}

TEST_F(CodexClientTurn, TextThatWasStreamedIsNotRepeatedAndOtherTextComesOnce) {
  const std::string message = R"({"item":{"type":"agentMessage","id":")";
  openTurn(
      CodexAgentScript()
          .notify("item/started", message + R"(m","text":""}})")
          .say("m", "streamed")
          .notify("item/completed", message + R"(m","text":"streamed"}})")
          .notify("item/completed", message + R"(n","text":"whole"}})")
          .notify("item/completed", R"({"item":{"type":"reasoning","id":"r","summary":["a","b"]}})")
          .endTurn("u1")
          .expectUsageRead()
          .startTurn("u2")
          .notify("item/completed", message + R"(m","text":"of the next turn"}})")
          .endTurn("u2"));
  expectNotes(
      {"says m streamed", "says n whole", "thinks reasoning-r a\nb", "turn ended completed"});
  notes_.clear();
  prompt();
  expectNotes({"says m of the next turn", "turn ended completed"});
}

TEST_F(CodexClientTurn, FailedTurnsAndTheirWords) {
  const auto error = [](const std::string& params) {
    return CodexAgentScript().notify("error", params).text();
  };
  const auto reported = [&](const std::string& rest) {
    return error(R"({"turnId":"u1",)" + rest + "}");
  };
  const std::string failed = "protocolError Codex turn failed.";
  struct Case {
    std::string before, status, rest, expected;
  };
  const Case cases[] = {
      {"", "failed", "", failed},
      {"", "interrupted", R"(,"error":null)", "protocolError Codex turn interrupted."},
      {"", "failed", R"(,"error":{"message":"own"})", "protocolError own"},
      {reported(R"("error":{"message":"told before","codexErrorInfo":"unauthorized"})"), "failed",
       R"(,"error":{"message":"own"})", "authentication told before"},
      {reported(R"("error":{"message":"first"})") + reported(R"("error":{"message":"last"})"),
       "failed", "", "protocolError last"},
      {reported(R"("willRetry":true,"error":{"message":"Reconnecting... 1/1"})"), "failed",
       R"(,"error":{"message":"own"})", "protocolError own"},
      {error(R"({"turnId":"other","error":{"message":"of another turn"}})"), "failed", "", failed},
  };
  for (const auto& [before, status, rest, expected] : cases) {
    openTurn(CodexAgentScript().line(before).endTurn("u1", status, rest));
    expectNotes({"turn failed: " + expected});
  }
}

TEST_F(CodexClientTurn, PromptsThatRunIntoOneTurnBothEndWithIt) {
  openTurn(CodexAgentScript().startTurn("u1").endTurn("u1").endTurn("u1").say("m", "end"));
  prompt();
  expectNotes({"turn ended completed", "turn ended completed", "says m end"});
}

TEST_F(CodexClientTurn, CancelInterruptsAndWithdrawsOpenQuestions) {
  openTurn(CodexAgentScript()
               .ask("0", "commandExecution", R"({"command":"a"})")
               .ask(R"("p")", "permissions", R"({"permissions":{"x":1}})")
               .say("m", "both asked")
               .expectLine(R"({"jsonrpc":"2.0","id":5,"method":"turn/interrupt",)"
                           R"("params":{"threadId":"t1","turnId":"u1"}})")
               .expectDecision("0", "cancel")
               .expectAnswer(R"("p")", R"({"permissions":{},"scope":"turn"})")
               .ask("1", "fileChange", R"({"reason":"crossed the stop"})")
               .expectDecision("1", "cancel")
               .send(R"({"id":5,"error":{"message":"no such turn"}})")
               .endTurn("u1", "interrupted")
               .expectUsageRead()
               .startTurn("u2"));
  await("says m both asked");
  client_->cancel();
  await("turn failed: protocolError Codex turn interrupted.");
  EXPECT_EQ(questions_.size(), 1U);
  client_->respondToPermission(1, "codex-allow-once");
  client_->cancel();
  prompt();  // would not be what the counterpart expects if either had said anything
  main_.runReady();
}

// The real program refuses an interruption until it has said that the turn runs.
TEST_F(CodexClientTurn, CancelIsNotLostWhileTheTurnStarts) {
  const std::string interruption = R"("method":"turn/interrupt","params":{"threadId":"t1",)"
                                   R"("turnId":"u1"})";
  open(CodexAgentScript()
           .expectPrompt()
           .say("m", "thinking")
           .expectUsageRead()  // by which the test knows that the cancellation went first
           .send(R"({"id":4,"result":{"turn":{"id":"u1"}}})")
           .expect(interruption)
           .error("no active turn to interrupt")
           .notify("turn/started", R"({"turn":{"id":"other"}})")
           .notify("turn/started", R"({"turn":{"id":"u1"}})")
           .expect(interruption)
           .result("{}")
           .notify("turn/started", R"({"turn":{"id":"u1"}})")
           .endTurn("u1", "interrupted")
           .expectUsageRead()
           .startTurn("u2")
           .notify("turn/started", R"({"turn":{"id":"u2"}})")
           .endTurn("u2")
           .expectUsageRead()
           .say("m", "end"));
  prompt();
  await("says m thinking");
  client_->cancel();
  codex().refreshUsage();
  await("turn failed: protocolError Codex turn interrupted.");
  prompt();
  await("says m end");
  EXPECT_EQ(std::ranges::count(notes_, "turn ended completed"), 1) << "the next turn runs";
}

}  // namespace
}  // namespace vantrell
