#include <gtest/gtest.h>
#include <signal.h>

#include "runtimes/acp_client_fixture.h"

namespace vantrell {
namespace {

using tests::ACPAgentScript;
using ACPClientTurn = tests::ACPClientTest;

const std::string twoOptions =
    R"([{"optionId":"y","name":"Yes"},{"optionId":"n","name":"No","kind":"reject_once"}])";

std::string question(const std::string& title) {
  return R"({"toolCall":{"title":")" + title + R"("},"options":)" + twoOptions + "}";
}

TEST_F(ACPClientTurn, EndsAfterItsLastUpdate) {
  open(ACPAgentScript()
           .openSession()
           .expectLine(
               R"({"jsonrpc":"2.0","id":3,"method":"session/prompt","params":{"sessionId":"s1",)"
               R"("prompt":[{"type":"text","text":"line one\nline \"two\""}]}})")
           .say("a")
           .say("b")
           .endTurn()
           .expectPrompt()
           .error("Usage limit reached")
           .line("hang"));
  prompt("line one\nline \"two\"");
  expectNotes({"says a", "says b", R"(turn ended {"stopReason":"end_turn"})"});
  notes_.clear();
  prompt();
  expectNotes({"turn failed: Usage limit reached"});
}

TEST_F(ACPClientTurn, UpdateArrivesAsItWasSent) {
  open(ACPAgentScript()
           .openSession()
           .line(R"(send {"jsonrpc":"2.0","method":"session/update","params":)"
                 R"({"update":{"z":[1,{"a":null}],"sessionUpdate":"future"}}})")
           .line("hang"));
  expectNotes({R"(says {"z":[1,{"a":null}],"sessionUpdate":"future"})"});
}

TEST_F(ACPClientTurn, OneReadMayHoldManyMessagesAndOneMessageManyReads) {
  open(
      ACPAgentScript()
          .openSession()
          .expectPrompt()
          .line(R"(raw {"id":${id},"re)")
          .line(R"(error x)")
          .line(
              R"(raw sult":{"n":1}}\n\n \n{"method":"session/update","params":{"update":{"content":{"text":"a"}}}}\n{"method":"session/update","params":{"update":{"content":{"text":"b"}}}}\n)")
          .line("hang"));
  prompt();
  expectNotes({R"(turn ended {"n":1})", "says a", "says b"});
}

TEST_F(ACPClientTurn, WhatIsNoMessageIsDropped) {
  open(
      ACPAgentScript()
          .openSession()
          .line("send not json")
          .line("send [1,2]")
          .line(
              R"(raw {"method":"session/update","params":{"update":{"content":{"text":"\xFF"}}}}\n)")
          .line(R"(send {"id":99,"result":{}})")
          .line(R"(send {"id":true,"result":{}})")
          .line(R"(send {"jsonrpc":"2.0"})")
          .line(R"(send {"method":"session/update","params":[]})")
          .line(R"(send {"method":"session/update","params":{"update":"x"}})")
          .line(R"(send {"method":"session/other","params":{"update":{}}})")
          .line(R"(send {"id":"text","method":"fs/read_text_file","params":{}})")
          .line(R"(send {"id":5,"method":7})")
          .say("end")
          .line("hang"));
  expectNotes({"says end"});
}

TEST_F(ACPClientTurn, ResponseIsTakenOnceAndByItsNumber) {
  open(ACPAgentScript()
           .openSession()
           .expectPrompt()
           .line(R"(send {"id":3.0,"result":{"first":true}})")
           .line(R"(send {"id":3,"result":{"second":true}})")
           .say("end")
           .line("hang"));
  prompt();
  expectNotes({R"(turn ended {"first":true})", "says end"});
}

TEST_F(ACPClientTurn, UnsupportedMethodIsRefused) {
  open(ACPAgentScript()
           .openSession()
           .request(40, "fs/delete", "{}")
           .expectLine(R"({"jsonrpc":"2.0","id":40,"error":{"code":-32601,)"
                       R"("message":"Unsupported ACP method: fs/delete"}})")
           .say("refused")
           .line("hang"));
  expectNotes({"says refused"});
}

TEST_F(ACPClientTurn, PermissionIsAnsweredOnce) {
  open(ACPAgentScript()
           .openSession()
           .expectPrompt()
           .request(70, "session/request_permission", question("Write"))
           .expectLine(R"({"jsonrpc":"2.0","id":70,"result":{"outcome":{"outcome":"selected",)"
                       R"("optionId":"y"}}})")
           .request(71, "session/request_permission", question("Run"))
           .expectLine(R"({"jsonrpc":"2.0","id":71,"result":{"outcome":{"outcome":"selected",)"
                       R"("optionId":"made up"}}})")
           .say("done")
           .line("hang"));
  prompt();
  await("asks 70 Write");
  ASSERT_EQ(questions_[0].options.size(), 2U);
  EXPECT_EQ(questions_[0].detail, "Grok is requesting permission to continue.");
  client_->respondToPermission(69, "y");
  client_->respondToPermission(70, "y");
  client_->respondToPermission(70, "n");
  await("asks 71 Run");
  client_->respondToPermission(71, "made up");
  await("says done");
}

TEST_F(ACPClientTurn, QuestionsAtOnceAreAskedOneAfterTheOther) {
  const auto selected = [](int id) {
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) +
           R"(,"result":{"outcome":{"outcome":"selected","optionId":"y"}}})";
  };
  open(ACPAgentScript()
           .openSession()
           .expectPrompt()
           .request(90, "session/request_permission", question("A"))
           .request(91, "session/request_permission", question("B"))
           .say("both asked")
           .expectLine(selected(90))
           .expectLine(selected(91))
           .say("both answered")
           .line("hang"));
  prompt();
  await("says both asked");
  EXPECT_EQ(questions_.size(), 1U) << "the second waits, so that it does not hide the first";
  client_->respondToPermission(90, "y");
  await("asks 91 B");
  client_->respondToPermission(91, "y");
  await("says both answered");
}

TEST_F(ACPClientTurn, CancelTellsTheRuntimeAndWithdrawsOpenQuestions) {
  const std::string withdrawn = R"(,"result":{"outcome":{"outcome":"cancelled"}}})";
  open(ACPAgentScript()
           .openSession()
           .expectPrompt()
           .request(81, "session/request_permission", question("A"))
           .request(80, "session/request_permission", question("B"))
           .say("both asked")
           .expectLine(R"({"jsonrpc":"2.0","method":"session/cancel","params":{"sessionId":"s1"}})")
           .expectLine(R"({"jsonrpc":"2.0","id":80)" + withdrawn)
           .expectLine(R"({"jsonrpc":"2.0","id":81)" + withdrawn)
           .request(82, "session/request_permission", question("crossed the stop"))
           .expectLine(R"({"jsonrpc":"2.0","id":82)" + withdrawn)
           .line(R"(send {"id":3,"result":{"stopReason":"cancelled"}})")
           .expectLine(R"({"jsonrpc":"2.0","method":"session/cancel","params":{"sessionId":"s1"}})")
           .say("cancelled again")
           .line("hang"));
  prompt();
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
  const auto ask = [](const std::string& first, const std::string& second) {
    return R"({"options":[{"optionId":"1","name":"a","kind":")" + first +
           R"("},{"optionId":"2","name":"b","kind":")" + second + R"("}]})";
  };
  const auto selected = [](int id, const std::string& option) {
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) +
           R"(,"result":{"outcome":{"outcome":"selected","optionId":")" + option + R"("}}})";
  };
  open(ACPAgentScript()
           .openSession()
           .request(10, "session/request_permission", ask("allow_once", "allow_always"))
           .expectLine(selected(10, "2"))
           .request(11, "session/request_permission", ask("reject_once", "allow_once"))
           .expectLine(selected(11, "2"))
           .request(12, "session/request_permission", ask("reject_once", "reject_always"))
           .expectLine(selected(12, "1"))
           .say("done")
           .line("hang"));
  await("asks 12 Run a tool");
  client_->respondToPermission(12, "1");
  expectNotes({"asks 12 Run a tool", "says done"});
}

TEST_F(ACPClientTurn, FullAccessOfTheOthersIsTheirOwn) {
  configuration_.permissionMode = GrokPermissionMode::fullAccess;
  open(ACPAgentScript()
           .openSession()
           .request(10, "session/request_permission", question("A"))
           .line("hang"));
  expectNotes({"asks 10 A"});
}

TEST_F(ACPClientTurn, HostServicesAnswerOverThePipes) {
  const std::string file = folder_.file("project/a.txt", "one\ntwo\nthree");
  open(ACPAgentScript()
           .openSession()
           .request(20, "fs/read_text_file", R"({"path":")" + file + R"(","line":2,"limit":1})")
           .expectLine(R"({"jsonrpc":"2.0","id":20,"result":{"content":"two"}})")
           .request(21, "fs/read_text_file", "{}")
           .expectLine(R"({"jsonrpc":"2.0","id":21,"error":{"code":-32603,)"
                       R"("message":"fs/read_text_file is missing path"}})")
           .request(22, "terminal/create", R"({"command":"sh","args":["-c","echo out; exit 5"]})")
           .expect(R"("id":22,"result":{"terminalId":")")
           .request(23, "terminal/wait_for_exit", R"({"terminalId":"${terminalId}"})")
           .expectLine(R"({"jsonrpc":"2.0","id":23,"result":{"exitCode":5,"signal":null}})")
           .request(24, "terminal/output", R"({"terminalId":"${terminalId}"})")
           .expectLine(R"({"jsonrpc":"2.0","id":24,"result":{"output":"out\n","truncated":false,)"
                       R"("exitStatus":{"exitCode":5,"signal":null}}})")
           .say("served")
           .line("hang"));
  expectNotes({"says served"});
}

// ---- the end ------------------------------------------------------------------------------------

TEST_F(ACPClientTurn, StopInAReplayFailsTheStart) {
  make(ACPAgentScript()
           .expect("initialize")
           .result(R"({"agentCapabilities":{"loadSession":true}})")
           .expect("session/load")
           .say("x")
           .line("hang"));
  listen();
  start("old");
  await("says x");
  client_->stop();
  await("not started: The model runtime disconnected.");
}

TEST_F(ACPClientTurn, NothingOfARuntimeIsLeftBehind) {
  open(ACPAgentScript()
           .openSession()
           .request(1, "terminal/create",
                    R"({"command":"sh","args":["-c","sleep 1000 & sleep 1000"]})")
           .expect("terminalId")
           .say("${pid}")
           .line("hang")
           .line("hang"));
  awaitCount(1);
  const pid_t agent = std::stoi(notes_[0].substr(5));
  EXPECT_EQ(kill(agent, 0), 0);
  client_->stop();
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  EXPECT_NE(kill(agent, 0), 0);
}

TEST_F(ACPClientTurn, TerminalsOfADeadRuntimeEnd) {
  open(ACPAgentScript()
           .openSession()
           .request(1, "terminal/create", R"({"command":"sleep","args":["1000"]})")
           .expect("terminalId")
           .line("exit 1"));
  await("terminated: Grok exited with status 1.");
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
}

TEST_F(ACPClientTurn, ErrorTextIsLoggedAsItComesAndBytesThatAreNoTextAreNot) {
  open(ACPAgentScript()
           .openSession()
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
