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

}  // namespace
}  // namespace vantrell
