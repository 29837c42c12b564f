#include <gtest/gtest.h>

#include "runtimes/acp_client_fixture.h"

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

}  // namespace
}  // namespace vantrell
