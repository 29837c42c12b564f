#include <gtest/gtest.h>

#include "runtimes/codex_client_fixture.h"

namespace vantrell {
namespace {

using tests::CodexAgentScript;
using CodexClientTurn = tests::CodexClientTest;

TEST_F(CodexClientTurn, EndsAfterItsLastUpdateAndAsksForTheAllowance) {
  configuration_.effort = "high";
  open(CodexAgentScript()
           .openThread()
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
           .error("Usage limit reached")
           .hang());
  prompt("line one\nline \"two\"");
  expectNotes({"thinks reasoning-r hm", "thinks reasoning-r m", "says m a", "says m b",
               "turn ended completed", "usage"});
  notes_.clear();
  prompt();
  expectNotes({"turn failed: usageLimit Usage limit reached"});
}

TEST_F(CodexClientTurn, EndMayComeBeforeTheAnswerToItsStart) {
  open(CodexAgentScript()
           .openThread()
           .expectPrompt()
           .say("m", "quick")
           .endTurn("u1")
           .line(R"(send {"id":4,"result":{"turn":{"id":"u1"}}})")
           .expectUsageRead()
           .startTurn("u2")
           .endTurn("u2")
           .hang());
  prompt();
  expectNotes({"says m quick", "turn ended completed"});
  client_->cancel();  // there is nothing that could be interrupted
  prompt();
  awaitCount(3);
  EXPECT_EQ(notes_.back(), "turn ended completed");
}

TEST_F(CodexClientTurn, TextThatWasStreamedIsNotRepeatedAndOtherTextComesOnce) {
  const std::string message = R"({"item":{"type":"agentMessage","id":")";
  open(
      CodexAgentScript()
          .openThread()
          .startTurn("u1")
          .notify("item/started", message + R"(m","text":""}})")
          .say("m", "streamed")
          .notify("item/completed", message + R"(m","text":"streamed"}})")
          .notify("item/completed", message + R"(n","text":"whole"}})")
          .notify("item/completed", R"({"item":{"type":"reasoning","id":"r","summary":["a","b"]}})")
          .endTurn("u1")
          .expectUsageRead()
          .startTurn("u2")
          .notify("item/completed", message + R"(m","text":"of the next turn"}})")
          .endTurn("u2")
          .hang());
  prompt();
  expectNotes(
      {"says m streamed", "says n whole", "thinks reasoning-r a\nb", "turn ended completed"});
  notes_.clear();
  prompt();
  expectNotes({"says m of the next turn", "turn ended completed"});
}

TEST_F(CodexClientTurn, ToolsAndThePlanAreUpdates) {
  open(CodexAgentScript()
           .openThread()
           .notify("item/started",
                   R"({"item":{"type":"webSearch","id":"w","query":"q","status":"inProgress"}})")
           .notify("turn/plan/updated", R"({"plan":[{"step":"one"}]})")
           .hang());
  expectNotes({R"({"sessionUpdate":"tool_call_update","toolCallId":"w","title":"Search the web",)"
               R"("status":"in_progress","rawInput":{"query":"q"}})",
               R"({"sessionUpdate":"plan","entries":[{"id":"codex-plan-0","content":"one",)"
               R"("status":"pending","priority":"medium"}]})"});
}

TEST_F(CodexClientTurn, FailedTurnsAndTheirWords) {
  const auto reported = [](const std::string& rest) {
    return CodexAgentScript().notify("error", R"({"turnId":"u1",)" + rest + "}").text();
  };
  struct Case {
    std::string before;
    std::string status;
    std::string rest;
    std::string expected;
  };
  const Case cases[] = {
      {"", "failed", "", "protocolError Codex turn failed."},
      {"", "interrupted", R"(,"error":null)", "protocolError Codex turn interrupted."},
      {"", "failed", R"(,"error":{"message":"own"})", "protocolError own"},
      {"", "failed", R"(,"error":{"message":"x","codexErrorInfo":"usageLimitExceeded"})",
       "usageLimit x"},
      {reported(R"("error":{"message":"told before","codexErrorInfo":"unauthorized"})"), "failed",
       R"(,"error":{"message":"own"})", "authentication told before"},
      {reported(R"("error":{"message":"first"})") + reported(R"("error":{"message":"last"})"),
       "failed", "", "protocolError last"},
      {reported(R"("message":"no error")"), "failed", R"(,"error":{"message":"own"})",
       "protocolError Codex turn failed."},
      {reported(R"("error":7)"), "failed", "", "protocolError Codex turn failed."},
      {reported(R"("willRetry":true,"error":{"message":"Reconnecting... 1/1"})"), "failed",
       R"(,"error":{"message":"own"})", "protocolError own"},
      {CodexAgentScript().notify("error", R"({"error":{"message":"of no turn"}})").text(), "failed",
       "", "protocolError Codex turn failed."},
      {CodexAgentScript()
           .notify("error", R"({"turnId":"other","error":{"message":"of another turn"}})")
           .text(),
       "failed", "", "protocolError Codex turn failed."},
  };
  for (const auto& [before, status, rest, expected] : cases) {
    notes_.clear();
    open(CodexAgentScript()
             .openThread()
             .startTurn("u1")
             .line(before)
             .endTurn("u1", status, rest)
             .hang());
    prompt();
    expectNotes({"turn failed: " + expected});
  }
}

TEST_F(CodexClientTurn, ErrorDoesNotEndTheTurn) {
  open(CodexAgentScript()
           .openThread()
           .startTurn("u1")
           .notify("error", R"({"turnId":"u1","error":{"message":"trouble"},"willRetry":false})")
           .say("m", "going on")
           .endTurn("u1")
           .hang());
  prompt();
  expectNotes({"says m going on", "turn ended completed"});
}

TEST_F(CodexClientTurn, TurnWithoutAnIdFails) {
  for (const std::string result :
       {"{}", R"({"turn":{}})", R"({"turn":{"id":7}})", R"({"turn":"u1"})"}) {
    notes_.clear();
    open(CodexAgentScript().openThread().expectPrompt().result(result).hang());
    prompt();
    expectNotes({"turn failed: protocolError Codex did not return a turn ID."});
  }
}

TEST_F(CodexClientTurn, PromptsThatRunIntoOneTurnBothEndWithIt) {
  open(CodexAgentScript()
           .openThread()
           .startTurn("u1")
           .startTurn("u1")
           .endTurn("u1")
           .endTurn("u1")
           .say("m", "end")
           .hang());
  prompt();
  prompt();
  expectNotes({"turn ended completed", "turn ended completed", "says m end"});
}

TEST_F(CodexClientTurn, WhatIsNoMessageIsDropped) {
  CodexAgentScript script;
  script.openThread();
  for (const std::string line :
       {"not json",
        "[1,2]",
        R"({"id":99,"result":{}})",
        R"({"id":true,"result":{}})",
        R"({"id":"3","result":{"thread":{"id":"t9"}}})",
        R"({"id":3,"result":{}})",
        R"({"jsonrpc":"2.0"})",
        R"({"id":5,"method":7})",
        R"({"method":"turn/completed"})",
        R"({"method":"turn/completed","params":{"turn":{"id":7}}})",
        R"({"method":"turn/completed","params":{"turn":[]}})",
        R"({"method":"turn/started","params":{"turn":{"id":"u1"}}})",
        R"({"method":"item/agentMessage/delta","params":{"itemId":"m"}})",
        R"({"method":"item/agentMessage/delta","params":{"delta":"x"}})",
        R"({"method":"item/agentMessage/delta","params":{"delta":7,"itemId":"m"}})",
        R"({"method":"item/agentMessage/delta","params":[]})",
        R"({"method":"item/started","params":{"item":7}})",
        R"({"method":"item/completed"})",
        R"({"method":"error","params":{"turnId":7}})",
        R"({"method":"account/rateLimits/updated","params":{"rateLimits":[]}})",
        R"({"method":"thread/status/changed","params":{}})",
        R"({"id":null,"method":"item/fileChange/requestApproval","params":{}})"}) {
    script.send(line);
  }
  open(script.line(R"(raw {"method":"\xFF"}\n)").say("m", "end").hang());
  expectNotes({"says m end"});
}

TEST_F(CodexClientTurn, ResponseIsTakenOnce) {
  open(CodexAgentScript()
           .openThread()
           .expectPrompt()
           .line(R"(send {"id":4.0,"result":{"turn":{"id":"u1"}}})")
           .line(R"(send {"id":4,"result":{"turn":{"id":"u2"}}})")
           .endTurn("u2")
           .endTurn("u1")
           .hang());
  prompt();
  expectNotes({"turn ended completed"});
}

TEST_F(CodexClientTurn, CancelInterruptsAndWithdrawsOpenQuestions) {
  open(CodexAgentScript()
           .openThread()
           .startTurn("u1")
           .request("0", "item/commandExecution/requestApproval", R"({"command":"a"})")
           .request(R"("p")", "item/permissions/requestApproval", R"({"permissions":{"x":1}})")
           .say("m", "both asked")
           .expectLine(R"({"jsonrpc":"2.0","id":5,"method":"turn/interrupt",)"
                       R"("params":{"threadId":"t1","turnId":"u1"}})")
           .expectLine(R"({"jsonrpc":"2.0","id":0,"result":{"decision":"cancel"}})")
           .expectLine(R"({"jsonrpc":"2.0","id":"p","result":{"permissions":{},"scope":"turn"}})")
           .request("1", "item/fileChange/requestApproval", R"({"reason":"crossed the stop"})")
           .expectLine(R"({"jsonrpc":"2.0","id":1,"result":{"decision":"cancel"}})")
           .line(R"(send {"id":5,"error":{"message":"no such turn"}})")
           .endTurn("u1", "interrupted")
           .expectUsageRead()
           .startTurn("u2")
           .hang());
  prompt();
  await("says m both asked");
  client_->cancel();
  await("turn failed: protocolError Codex turn interrupted.");
  EXPECT_EQ(questions_.size(), 1U);
  client_->respondToPermission(1, "codex-allow-once");
  client_->cancel();
  prompt();  // would not be what the counterpart expects if either had said anything
  main_.runReady();
}

TEST_F(CodexClientTurn, CancelWithoutATurnStillWithdrawsQuestions) {
  open(CodexAgentScript()
           .openThread()
           .request("8", "item/fileChange/requestApproval", "{}")
           .expectLine(R"({"jsonrpc":"2.0","id":8,"result":{"decision":"cancel"}})")
           .say("m", "withdrawn")
           .hang());
  await("asks 1 Edit files");
  client_->cancel();
  await("says m withdrawn");
}

// The real program refuses an interruption until it has said that the turn runs.
TEST_F(CodexClientTurn, CancelIsNotLostWhileTheTurnStarts) {
  const std::string interruption = R"("method":"turn/interrupt","params":{"threadId":"t1",)"
                                   R"("turnId":"u1"})";
  open(CodexAgentScript()
           .openThread()
           .expectPrompt()
           .say("m", "thinking")
           .expectUsageRead()  // by which the test knows that the cancellation went first
           .line(R"(send {"id":4,"result":{"turn":{"id":"u1"}}})")
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
           .say("m", "end")
           .hang());
  prompt();
  await("says m thinking");
  client_->cancel();
  codex().refreshUsage();
  await("turn failed: protocolError Codex turn interrupted.");
  prompt();
  await("says m end");
  EXPECT_EQ(std::ranges::count(notes_, "turn ended completed"), 1) << "the next turn runs";
}

TEST_F(CodexClientTurn, DeathWhileATurnStartsFailsIt) {
  open(CodexAgentScript().openThread().expectPrompt().say("m", "a").line("exit 3"));
  prompt();
  expectNotes({"says m a", "turn failed: disconnected Codex disconnected.",
               "terminated: Codex exited with status 3."});
}

TEST_F(CodexClientTurn, TurnsThatNobodyWaitsForAreForgotten) {
  CodexAgentScript script;
  script.openThread();
  for (int i = 0; i < 500; ++i) {
    const std::string turn = "u" + std::to_string(i);
    script.notify("error", R"({"turnId":")" + turn + R"(","error":{"message":"early"}})");
    script.endTurn(turn, "failed").expectUsageRead();
  }
  open(script.say("m", "ready").startTurn("u7").endTurn("u7", "failed").hang());
  await("says m ready");
  prompt();
  expectNotes({"says m ready", "turn failed: protocolError Codex turn failed."});
}

}  // namespace
}  // namespace vantrell
