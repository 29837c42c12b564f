#include <gtest/gtest.h>

#include "runtimes/acp_client_fixture.h"
#include "runtimes/wire/line_buffer.h"

namespace vantrell {
namespace {

using tests::ACPAgentScript;
using ACPClientStart = tests::ACPClientTest;

const std::string handshake =
    R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":1,)"
    R"("clientCapabilities":{"fs":{"readTextFile":true,"writeTextFile":true},"terminal":true},)"
    R"("clientInfo":{"name":"vantrell","version":")" VANTRELL_VERSION R"("}}})";
ACPAgentScript introduced(const std::string& answer) {
  return ACPAgentScript().expectLine(handshake).result(answer);
}
const std::string canLoad = R"({"agentCapabilities":{"loadSession":true}})";
const std::string models = R"("configOptions":[{"id":"model","options":[{"value":"a"}]}])";

TEST_F(ACPClientStart, OpensANewSessionInTheProjectFolder) {
  begin(introduced("{}")
            .expectLine(
                R"({"jsonrpc":"2.0","id":2,"method":"session/new","params":{"cwd":"${folder}",)"
                R"("mcpServers":[]}})")
            .result(R"({"sessionId":"s1"})")
            .say("in ${folder}"));
  expectNotes({"started s1", "says in " + configuration_.workspacePath});
  EXPECT_EQ(client_->provider(), AgentProvider::grok);
}

TEST_F(ACPClientStart, SessionIsToldWhatTheModeAllows) {
  const std::pair<GrokPermissionMode, std::string> modes[] = {
      {GrokPermissionMode::auto_, R"({"autoMode":true})"},
      {GrokPermissionMode::fullAccess, R"({"yoloMode":true})"}};
  for (const auto& [mode, meta] : modes) {
    configuration_.permissionMode = mode;
    begin(introduced("{}").expect(R"("mcpServers":[],"_meta":)" + meta).error("end"));
    expectNotes({"not started: end"});
  }
}

TEST_F(ACPClientStart, ReplaysAStoredSessionBeforeItCompletes) {
  begin(introduced(canLoad)
            .expectLine(
                R"({"jsonrpc":"2.0","id":2,"method":"session/load","params":{"sessionId":"old",)"
                R"("cwd":"${folder}","mcpServers":[]}})")
            .say("one")
            .say("two")
            .result("{}"),
        "old");
  expectNotes({"replay started", "says one", "says two", "started old replayed"});
}

TEST_F(ACPClientStart, FailedReplayGoesOnToANewSession) {
  begin(introduced(canLoad)
            .expect("session/load")
            .say("half")
            .error("no such session")
            .expect("session/new")
            .result(R"({"sessionId":"s2"})"),
        "old");
  expectNotes({"replay started", "says half", "replay failed", "started s2"});
}

TEST_F(ACPClientStart, RuntimeThatCannotLoadGetsANewSessionAndNoReplay) {
  for (const std::string capabilities :
       {"{}", R"({"agentCapabilities":{"loadSession":1}})", R"({"agentCapabilities":[true]})"}) {
    begin(introduced(capabilities).expect("session/new").result(R"({"sessionId":"s1"})"), "old");
    expectNotes({"started s1"});
  }
}

TEST_F(ACPClientStart, ErrorAnswersFailIt) {
  const std::pair<ACPAgentScript, std::string> cases[] = {
      {ACPAgentScript().expectLine(handshake).error("Please sign in"), "Please sign in"},
      {ACPAgentScript().expectLine(handshake).send(R"({"id":${id},"error":{"message":1}})"),
       "Grok returned an unknown error."},
      {introduced("{}").expect("session/new").error("Quota"), "Quota"},
      {introduced("[]").expect("session/new").result(R"({"sessionId":5})"),
       "Grok did not return a session ID."},
  };
  for (const auto& [script, expected] : cases) {
    begin(ACPAgentScript(script));
    expectNotes({"not started: " + expected});
    // The process stays up; there is no session, or the one that could not be opened.
    prompt();
    awaitCount(2);
    EXPECT_EQ(notes_[1], "turn failed: The model runtime disconnected.");
  }
}

// ---- Kimi and OpenCode --------------------------------------------------------------------------

ACPAgentScript optionScript(const std::string& sessionResult) {
  return introduced("{" + models + "}").expect("session/new").result(sessionResult);
}
std::string optionLine(int id, const std::string& option, const std::string& value) {
  return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) +
         R"(,"method":"session/set_config_option","params":{"sessionId":"s1","configId":")" +
         option + R"(","value":")" + value + R"("}})";
}

TEST_F(ACPClientStart, KimiIsToldModeAndModelAndForgivesBoth) {
  configuration_.provider = AgentProvider::kimi;
  configuration_.permissionMode = GrokPermissionMode::fullAccess;
  configuration_.model = "k2";
  for (const bool fails : {false, true}) {
    auto script = optionScript(R"({"sessionId":"s1","session":{)" + models + "}}")
                      .expectLine(optionLine(3, "mode", "yolo"));
    fails ? script.error("no mode") : script.result("{}");
    script.expectLine(optionLine(4, "model", "k2"));
    fails ? script.error("no model") : script.result("{}");
    begin(script);
    expectNotes({"models default a", "models default a",
                 fails ? "started s1; Grok did not take the permission mode that is set (no mode). "
                         "It works under its own rules. Grok did not take the chosen model k2 (no "
                         "model). It works with another one."
                       : "started s1"});
  }
}

// As Kimi Code 2.1 answers. A session that has run unasked must not go on so in silence.
TEST_F(ACPClientStart, ModeThatKimiDoesNotKnowIsSetByItsOwnWordOrTold) {
  configuration_.provider = AgentProvider::kimi;
  const std::string told =
      "; Kimi did not take the permission mode that is set (Unknown modeId: default). It works "
      "under its own rules, and may act without asking.";
  for (const bool knowsDefault : {true, false}) {
    configuration_.runtimeName = "Kimi";
    auto script = optionScript(R"({"sessionId":"s1"})")
                      .expectLine(optionLine(3, "mode", "manual"))
                      .error("Unknown modeId: manual")
                      .expectLine(optionLine(4, "mode", "default"));
    knowsDefault ? script.result("{}") : script.error("Unknown modeId: default");
    begin(script);
    expectNotes({"models default a", "started s1" + (knowsDefault ? "" : told)});
    EXPECT_EQ(log_.contains("permission mode"), !knowsDefault);
  }
}

TEST_F(ACPClientStart, ModelOfOpenCodeMustBeAccepted) {
  configuration_.provider = AgentProvider::glm;
  configuration_.permissionMode = GrokPermissionMode::auto_;
  configuration_.model = "zai-coding-plan/glm-4.7";
  for (const bool fails : {false, true}) {
    auto script = optionScript(R"({"sessionId":"s1"})")
                      .expectLine(optionLine(3, "model", "zai-coding-plan/glm-4.7"));
    fails ? script.error("no such model") : script.result("{}");
    begin(script);
    expectNotes({"models default a", fails ? "not started: no such model" : "started s1"});
  }
}

TEST_F(ACPClientStart, RuntimeThatDiesInAReplayFailsTheStartOnce) {
  begin(introduced(canLoad).expect("session/load").line("exit 4"), "old");
  expectNotes({"replay started", "replay failed", "not started: The model runtime disconnected.",
               "terminated: Grok exited with status 4."});
}

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
