#include <gtest/gtest.h>

#include "runtimes/acp_client_fixture.h"
#include "runtimes/wire/line_buffer.h"

namespace vantrell {
namespace {

using tests::ACPAgentScript;
using ACPClientTurn = tests::ACPClientTest;

TEST_F(ACPClientTurn, EndsAfterItsLastUpdate) {
  open(ACPAgentScript()
           .expectLine(
               R"({"jsonrpc":"2.0","id":3,"method":"session/prompt","params":{"sessionId":"s1",)"
               R"("prompt":[{"type":"text","text":"line one\nline \"two\""}]}})")
           .say("a")
           .send(R"({"jsonrpc":"2.0","method":"session/update","params":)"
                 R"({"update":{"z":[1,{"a":null}],"sessionUpdate":"future"}}})")
           .endTurn()
           .expectPrompt()
           .error("Usage limit reached"));
  prompt("line one\nline \"two\"");
  expectNotes({"says a", R"(says {"z":[1,{"a":null}],"sessionUpdate":"future"})",
               R"(turn ended {"stopReason":"end_turn"})"});
  notes_.clear();
  prompt();
  expectNotes({"turn failed: Usage limit reached"});
}

TEST_F(ACPClientTurn, UnsupportedMethodIsRefused) {
  open(ACPAgentScript()
           .request(40, "fs/delete", "{}")
           .expectLine(R"({"jsonrpc":"2.0","id":40,"error":{"code":-32601,)"
                       R"("message":"Unsupported ACP method: fs/delete"}})")
           .say("refused"));
  expectNotes({"says refused"});
}

// Both have the same number, and each must be answered.
TEST_F(ACPClientTurn, TwoQuestionsWithOneIdAreBothAnswered) {
  openTurn(ACPAgentScript()
               .ask(7, "A")
               .ask(7, "B")
               .say("both asked")
               .expectChoice(7, "y")
               .expectChoice(7, "n")
               .ask(8, "C")
               .expectChoice(8, "made up")
               .say("done"));
  await("says both asked");
  EXPECT_EQ(questions_.size(), 1U) << "the second waits, so that it does not hide the first";
  EXPECT_EQ(questions_[0].detail, "Grok is requesting permission to continue.");
  client_->respondToPermission(6, "y");  // unknown
  client_->respondToPermission(7, "y");
  await("asks 7 B");
  client_->respondToPermission(7, "n");
  await("asks 8 C");
  client_->respondToPermission(8, "made up");
  client_->respondToPermission(8, "y");
  await("says done");
}

TEST_F(ACPClientTurn, CancelTellsTheRuntimeAndWithdrawsOpenQuestions) {
  const std::string cancelled = R"({"outcome":{"outcome":"cancelled"}})";
  const std::string cancel =
      R"({"jsonrpc":"2.0","method":"session/cancel","params":{"sessionId":"s1"}})";
  openTurn(ACPAgentScript()
               .ask(81, "A")
               .ask(80, "B")
               .say("both asked")
               .expectLine(cancel)
               .expectAnswer(80, cancelled)
               .expectAnswer(81, cancelled)
               .ask(82, "crossed the stop")
               .expectAnswer(82, cancelled)
               .send(R"({"id":3,"result":{"stopReason":"cancelled"}})")
               .expectLine(cancel)
               .say("cancelled again"));
  await("says both asked");
  client_->cancel();
  await(R"(turn ended {"stopReason":"cancelled"})");
  client_->respondToPermission(80, "y");
  client_->cancel();
  await("says cancelled again");
}

TEST_F(ACPClientTurn, FullAccessOfOpenCodeIsGivenHere) {
  configuration_.provider = AgentProvider::glm;
  configuration_.permissionMode = GrokPermissionMode::fullAccess;
  ACPAgentScript script;
  const auto ask = [&script](int id, const std::string& first, const std::string& second,
                             const std::string& chosen) {
    script
        .request(id, "session/request_permission",
                 R"({"options":[{"optionId":"1","name":"a","kind":")" + first +
                     R"("},{"optionId":"2","name":"b","kind":")" + second + R"("}]})")
        .expectChoice(id, chosen);
  };
  ask(10, "allow_once", "allow_always", "2");
  ask(11, "reject_once", "allow_once", "2");
  ask(12, "reject_once", "reject_always", "1");
  open(script.say("done"));
  await("asks 12 Run a tool");
  client_->respondToPermission(12, "1");
  expectNotes({"asks 12 Run a tool", "says done"});
}

TEST_F(ACPClientTurn, HostServicesAnswerOverThePipes) {
  const std::string file = folder_.file("project/a.txt", "one\ntwo\nthree");
  const std::string exit = R"({"exitCode":5,"signal":null})";
  open(ACPAgentScript()
           .request(20, "fs/read_text_file", R"({"path":")" + file + R"(","line":2,"limit":1})")
           .expectAnswer(20, R"({"content":"two"})")
           .request(21, "fs/read_text_file", "{}")
           .expectLine(R"({"jsonrpc":"2.0","id":21,"error":{"code":-32603,)"
                       R"("message":"fs/read_text_file is missing path"}})")
           .request(22, "terminal/create", R"({"command":"sh","args":["-c","echo out; exit 5"]})")
           .expect(R"("id":22,"result":{"terminalId":")")
           .request(23, "terminal/wait_for_exit", R"({"terminalId":"${terminalId}"})")
           .expectAnswer(23, exit)
           .request(24, "terminal/output", R"({"terminalId":"${terminalId}"})")
           .expectAnswer(24, R"({"output":"out\n","truncated":false,"exitStatus":)" + exit + "}")
           .say("served"));
  expectNotes({"says served"});
}

TEST_F(ACPClientTurn, EndlessLineEndsTheRuntime) {
  openTurn(ACPAgentScript()
               .line("bytes " + std::to_string(LineBuffer::longestLine + (1 << 20)))
               .line("hang"));
  await("terminated: The runtime sent a line of more than 256 MB, and was ended.");
}

// ---- the end ------------------------------------------------------------------------------------

TEST_F(ACPClientTurn, ErrorTextIsLoggedAsItComesAndBytesThatAreNoTextAreNot) {
  open(ACPAgentScript()
           .line(R"(error caf\xC3)")
           .say("half")
           .expectPrompt()
           .line(R"(error \xA9 )")
           .expectPrompt()
           .line(R"(error \xFF\xFE)")
           .line("exit 1"));
  await("says half");
  prompt();
  // Standard error is another pipe than that of the messages, and is waited for by itself.
  EXPECT_TRUE(main_.runUntil([this] { return log_ == "caf\xC3\xA9 "; })) << log_;
  prompt();
  await("terminated: caf\xC3\xA9");
  EXPECT_EQ(log_, "caf\xC3\xA9 ");
}

}  // namespace
}  // namespace vantrell
