// What Codex asks of the client, and what the client asks of it beside turns.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "runtimes/codex_client_fixture.h"

namespace vantrell {
namespace {

using tests::CodexAgentScript;
using CodexClientRequests = tests::CodexClientTest;

TEST_F(CodexClientRequests, ApprovalOfEachKindGoesBackUnderItsOwnId) {
  openTurn(CodexAgentScript()
               .ask("0", "commandExecution", R"({"command":"rm"})")
               .expectDecision("0", "accept")
               .ask(R"("text id")", "fileChange")
               .expectDecision(R"("text id")", "acceptForSession")
               .ask(R"("0")", "permissions",
                    R"({"permissions":{"network":{"enabled":true},"fileSystem":null}})")
               .expectAnswer(R"("0")", R"({"permissions":{"network":{"enabled":true},)"
                                       R"("fileSystem":null},"scope":"session"})")
               .ask("7", "fileChange")
               .expectDecision("7", "decline")
               .say("m", "done"));
  await("asks 1 Run command");
  client_->respondToPermission(0, "codex-reject");
  client_->respondToPermission(1, "codex-allow-once");
  client_->respondToPermission(1, "codex-reject");
  await("asks 2 Edit files");
  client_->respondToPermission(2, "codex-allow-session");
  await("asks 3 Grant access");
  client_->respondToPermission(3, "codex-allow-session");
  await("asks 4 Edit files");
  client_->respondToPermission(4, "codex-reject");
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
