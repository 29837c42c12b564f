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
  make(CodexAgentScript()
           .expectLine(initializeLine)
           .result(R"({"userAgent":"codex"})")
           .expectLine(R"({"jsonrpc":"2.0","method":"initialized"})")
           .expectLine(R"({"jsonrpc":"2.0","id":2,"method":"account/rateLimits/read","params":{}})")
           .expectLine(
               R"({"jsonrpc":"2.0","id":3,"method":"thread/start","params":{"cwd":"${folder}",)"
               R"("approvalPolicy":"on-request","approvalsReviewer":"user",)"
               R"("sandbox":"workspace-write","model":"gpt-5.5"}})")
           .result(CodexAgentScript::thread("t1"))
           .hang());
  listen();
  start();
  expectNotes({"started t1"});
}

TEST_F(CodexClientStart, ResumedThread) {
  configuration_.permissionMode = GrokPermissionMode::fullAccess;
  make(CodexAgentScript()
           .initialize()
           .expectLine(
               R"({"jsonrpc":"2.0","id":3,"method":"thread/resume","params":{"threadId":"old",)"
               R"("cwd":"${folder}","approvalPolicy":"never","approvalsReviewer":"user",)"
               R"("sandbox":"danger-full-access"}})")
           .result(CodexAgentScript::thread("old"))
           .expect(R"("method":"turn/start","params":{"threadId":"old")")
           .hang());
  listen();
  start("old");
  expectNotes({"started old replayed"});
  prompt();
}

TEST_F(CodexClientStart, ThreadThatIsLostBecomesANewOneWithoutAWord) {
  make(CodexAgentScript()
           .initialize()
           .expect("thread/resume")
           .error("no rollout found for thread id old")
           .expect(R"("id":4,"method":"thread/start","params":{"cwd")")
           .result(CodexAgentScript::thread("t2"))
           .hang());
  listen();
  start("old");
  expectNotes({"started t2"});
}

TEST_F(CodexClientStart, AllowanceIsAskedForAndNotWaitedFor) {
  make(CodexAgentScript()
           .openThread()
           .send(R"({"id":2,"result":{"rateLimits":{"primary":{"usedPercent":13}}}})")
           .hang());
  listen();
  start();
  expectNotes({"started t1", "usage"});
  EXPECT_EQ(usages_[0].primaryUsedPercent, 13);
}

TEST_F(CodexClientStart, AllowanceThatCannotBeReadIsNotMissed) {
  make(CodexAgentScript()
           .initialize()
           .send(R"({"id":2,"error":{"message":"usage limit"}})")
           .expect("thread/start")
           .result(CodexAgentScript::thread("t1"))
           .hang());
  listen();
  start();
  expectNotes({"started t1"});
}

TEST_F(CodexClientStart, FailuresAndTheirWords) {
  const std::string noThread = "not started: protocolError Codex did not return a thread ID.";
  const std::tuple<CodexAgentScript, std::optional<std::string>, std::string> cases[] = {
      {CodexAgentScript().expect("initialize").error("too old").hang(),
       {},
       "not started: protocolError too old"},
      {CodexAgentScript().expect("initialize").send(R"({"id":1,"error":{}})").hang(),
       {},
       "not started: protocolError Codex returned an unknown error."},
      {CodexAgentScript().initialize().expect("thread/start").error("Please login first").hang(),
       {},
       "not started: authentication Please login first"},
      {CodexAgentScript().initialize().expect("thread/start").error("Usage limit.").hang(),
       {},
       "not started: usageLimit Usage limit."},
      {CodexAgentScript().initialize().expect("thread/start").result("{}").hang(), {}, noThread},
      {CodexAgentScript().initialize().expect("thread/start").result("[]").hang(), {}, noThread},
      {CodexAgentScript()
           .initialize()
           .expect("thread/start")
           .result(R"({"thread":{"id":7}})")
           .hang(),
       {},
       noThread},
      {CodexAgentScript().initialize().expect("thread/resume").result(R"({"thread":"old"})").hang(),
       "old", noThread},
      {CodexAgentScript().initialize().expect("thread/start").line("exit 0"),
       {},
       "not started: disconnected Codex disconnected."},
  };
  for (const auto& [script, session, expected] : cases) {
    notes_.clear();
    make(script);
    listen();
    start(session);
    awaitCount(1);
    EXPECT_EQ(notes_[0], expected);
  }
}

TEST_F(CodexClientStart, EnvironmentIsTheGivenOneAndNothingElse) {
  tests::Environment environment;
  environment.set("OPENAI_API_KEY", "key");
  configuration_.processEnvironment = {{"ONLY", "this one"}};
  // It takes the first request: an end before that is another failure.
  configuration_.executable =
      program("env", "read -r request\n/usr/bin/env >&2\necho \"$@\" >&2\n");
  client_ = CodexAppServerClient::make(configuration_, main_, pool_);
  listen();
  start();
  await("not started: disconnected Codex disconnected.");
  EXPECT_TRUE(main_.runUntil([this] { return log_.ends_with("app-server\n"); })) << log_;
  EXPECT_TRUE(log_.contains("ONLY=this one\n")) << log_;
  EXPECT_FALSE(log_.contains("OPENAI_API_KEY")) << log_;
}

}  // namespace
}  // namespace vantrell
