#include <fmt/format.h>
#include <gtest/gtest.h>

#include "runtimes/codex_client_fixture.h"
#include "support/environment.h"

namespace vantrell {
namespace {

using tests::CodexAgentScript;
using CodexClientStart = tests::CodexClientTest;

const std::string initializeLine =
    R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"clientInfo":{"name":"vantrell",)"
    R"("title":"vantrell","version":")" VANTRELL_VERSION
    R"("},"capabilities":{"experimentalApi":true}}})";

TEST_F(CodexClientStart, NewThread) {
  configuration_.model = "gpt-5.5";
  configuration_.permissionMode = GrokPermissionMode::auto_;
  begin(
      CodexAgentScript()
          .expectLine(initializeLine)
          .result(R"({"userAgent":"codex"})")
          .expectLine(R"({"jsonrpc":"2.0","method":"initialized"})")
          .expectLine(R"({"jsonrpc":"2.0","id":2,"method":"account/rateLimits/read","params":{}})")
          .expectLine(
              R"({"jsonrpc":"2.0","id":3,"method":"thread/start","params":{"cwd":"${folder}",)"
              R"("approvalPolicy":"on-request","approvalsReviewer":"auto_review",)"
              R"("sandbox":"workspace-write","model":"gpt-5.5"}})")
          .result(CodexAgentScript::thread("t1")));
  expectNotes({"started t1"});
}

TEST_F(CodexClientStart, ResumedThread) {
  configuration_.permissionMode = GrokPermissionMode::fullAccess;
  begin(CodexAgentScript()
            .initialize()
            .expectLine(
                R"({"jsonrpc":"2.0","id":3,"method":"thread/resume","params":{"threadId":"old",)"
                R"("cwd":"${folder}","approvalPolicy":"never","approvalsReviewer":"user",)"
                R"("sandbox":"danger-full-access"}})")
            .result(CodexAgentScript::thread("old"))
            .expect(R"("approvalPolicy":"never","approvalsReviewer":"user",)"
                    R"("sandboxPolicy":{"type":"dangerFullAccess"}})")
            .say("m", "here"),
        "old");
  expectNotes({"started old replayed"});
  prompt();
  await("says m here");
}

TEST_F(CodexClientStart, ThreadThatIsLostBecomesANewOneWithoutAWord) {
  begin(CodexAgentScript()
            .initialize()
            .expect("thread/resume")
            .error("no rollout found for thread id old")
            .expect(R"("id":4,"method":"thread/start","params":{"cwd")")
            .result(CodexAgentScript::thread("t2")),
        "old");
  expectNotes({"started t2"});
}

TEST_F(CodexClientStart, FailuresAndTheirWords) {
  const std::string noThread = "not started: protocolError Codex did not return a thread ID.";
  const std::string unknown = "not started: protocolError Codex returned an unknown error.";
  const auto asked = [](const std::string& method) {
    return CodexAgentScript().initialize().expect(method);
  };
  const std::tuple<CodexAgentScript, std::optional<std::string>, std::string> cases[] = {
      {CodexAgentScript().expect("initialize").error("too old"),
       {},
       "not started: protocolError too old"},
      {asked("thread/start").error("Please login first"),
       {},
       "not started: authentication Please login first"},
      {asked("thread/start").result(R"({"thread":{"id":7}})"), {}, noThread},
      {asked("thread/resume").result(R"({"thread":"old"})"), "old", noThread},
      {asked("thread/start").line("exit 0"), {}, "not started: disconnected Codex disconnected."},
  };
  for (const auto& [script, session, expected] : cases) {
    begin(script, session);
    awaitCount(1);
    EXPECT_EQ(notes_[0], expected);
  }
}

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

using CodexClientRequests = tests::CodexClientTest;

TEST_F(CodexClientRequests, ApprovalGoesBackOnceUnderItsOwnId) {
  openTurn(CodexAgentScript()
               .ask("0", "commandExecution", R"({"command":"rm"})")
               .expectDecision("0", "accept")
               .ask(R"("text id")", "fileChange")
               .expectDecision(R"("text id")", "acceptForSession")
               .say("m", "done"));
  await("asks 1 Run command");
  client_->respondToPermission(0, "codex-reject");
  client_->respondToPermission(1, "codex-allow-once");
  client_->respondToPermission(1, "codex-reject");
  await("asks 2 Edit files");
  client_->respondToPermission(2, "codex-allow-session");
  await("says m done");
}

TEST_F(CodexClientRequests, QuestionAboutFilesShowsTheChangesOfItsItem) {
  const std::string item =
      R"({"item":{"type":"fileChange","id":"c","changes":[{"path":"/out","kind":{"type":"add"},)"
      R"("diff":"new\n"}]}})";
  const std::string patched = "item/fileChange/patchUpdated";
  const std::string asked = R"({"itemId":"c","reason":null})";
  openTurn(CodexAgentScript()
               .notify("item/started", item)
               .ask("0", "fileChange", asked)
               .notify(patched,
                       R"({"itemId":"c","changes":[{"path":"/more","kind":{"type":"delete"}}]})")
               .notify(patched, R"({"itemId":"unknown","changes":[]})")
               .ask("0", "fileChange", asked)
               .endTurn("u1")
               .expectUsageRead()
               .ask("0", "fileChange", asked)
               .say("m", "all asked"));
  await("says m all asked");
  for (std::int64_t id = 1; id <= 3; ++id) {
    await(fmt::format("asks {} Edit files", id));
    client_->respondToPermission(id, "codex-allow-once");
  }
  const std::string nothing = "Codex is requesting permission to continue.";
  EXPECT_EQ(questions_[0].detail, nothing + "\n\nadd /out\nnew");
  EXPECT_EQ(questions_[1].detail, nothing + "\n\ndelete /more") << "what the patch has become";
  EXPECT_EQ(questions_[2].detail, nothing) << "the turn has ended";
}

TEST_F(CodexClientRequests, QuestionComesBehindTheUpdatesBeforeIt) {
  const std::string delta =
      R"({"method":"item/agentMessage/delta","params":{"itemId":"m","delta":)";
  openTurn(CodexAgentScript().line(
      "raw " + delta + R"("a"}}\n{"id":1,"method":"item/fileChange/requestApproval"}\n)" + delta +
      R"("b"}}\n{"method":"account/rateLimits/updated","params":{"rateLimits":{}}}\n)"));
  expectNotes({"says m a", "asks 1 Edit files", "says m b", "usage"});
}

TEST_F(CodexClientRequests, QuestionThatIsResolvedElsewhereMakesRoomForTheNext) {
  openTurn(CodexAgentScript()
               .ask("0", "commandExecution", R"({"command":"rm"})")
               .ask(R"("0")", "fileChange")
               .notify("serverRequest/resolved", R"({"threadId":"t1","requestId":7})")
               .notify("serverRequest/resolved", R"({"threadId":"t1"})")
               .notify("serverRequest/resolved", R"({"threadId":"t1","requestId":0})")
               .expectDecision(R"("0")", "accept")
               .notify("serverRequest/resolved", R"({"threadId":"t1","requestId":"0"})")
               .say("m", "done"));
  await("asks 2 Edit files");
  client_->respondToPermission(1, "codex-allow-once");
  client_->respondToPermission(2, "codex-allow-once");
  expectNotes({"asks 1 Run command", "withdrawn 1", "asks 2 Edit files", "says m done"});
}

TEST_F(CodexClientRequests, ResetOfTheAllowance) {
  const std::string consume =
      R"("method":"account/rateLimitResetCredit/consume","params":{"idempotencyKey":")";
  open(CodexAgentScript()
           .expect(consume)
           .result(R"({"outcome":"reset"})")
           .expectUsageRead()
           .result(R"({"rateLimits":{}})")
           .expect(consume)
           .error("no network"));
  consumeReset();
  expectNotes({"reset reset", "usage"});
  notes_.clear();
  consumeReset();
  expectNotes({"reset protocolError no network"});
  client_->stop();
  notes_.clear();
  consumeReset();
  expectNotes({"reset disconnected Codex disconnected."});
}

}  // namespace
}  // namespace vantrell
