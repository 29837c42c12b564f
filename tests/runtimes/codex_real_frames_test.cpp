// Frames that the real program sent (codex 0.169, a stand-in for its model), with the folders
// renamed. They hold what the dialect does not promise and what must not harm: no "jsonrpc", ids
// from 0, nulls for what is not said, keys and notifications that nobody here knows.
#include <gtest/gtest.h>

#include "runtimes/codex_client_fixture.h"

namespace vantrell {
namespace {

using tests::CodexAgentScript;
using CodexRealFrames = tests::CodexClientTest;

const std::string turn = "01a205da-58bd-7c31-b07d-005a2664c499";

/// Opens the thread "t1" as the real program does, with its notices in between.
CodexAgentScript opened() {
  return CodexAgentScript()
      .expect("initialize")
      .send(
          R"frame({"id":1,"result":{"userAgent":"vantrell/0.169.0 (Debian 12.0.0; x86_64) xterm (vantrell; 0.10.1)","codexHome":"/home/.codex","platformFamily":"unix","platformOs":"linux"}})frame")
      .expect("initialized")
      .expect("account/rateLimits/read")
      .send(
          R"({"method":"configWarning","params":{"summary":"Codex could not find bubblewrap on PATH.","details":null},"emittedAtMs":1795394474046})")
      .send(
          R"({"method":"remoteControl/status/changed","params":{"status":"disabled","serverName":"host","installationId":"00000000-0000-0000-0000-000000000000","environmentId":null},"emittedAtMs":1795394474046})")
      .expect("thread/start")
      .send(
          R"({"id":3,"result":{"thread":{"id":"t1","environments":[{"environmentId":"local","cwd":"/project","runtimeWorkspaceRoots":["/project"]}],"extra":null,"sessionId":"t1","forkedFromId":null,"preview":"","ephemeral":false,"historyMode":"paginated","modelProvider":"standin","model":"gpt-5.5","reasoningEffort":null,"status":{"type":"idle"}}}})");
}

/// Answers the prompt (id 4) and says that the turn runs.
CodexAgentScript& begun(CodexAgentScript& script) {
  return script.expectPrompt()
      .send(
          R"({"id":4,"result":{"turn":{"id":")" + turn + R"(","rootTurnId":")" + turn +
          R"(","items":[],"itemsView":"notLoaded","status":"inProgress","error":null,"startedAt":null,"completedAt":null,"durationMs":null}}})")
      .send(
          R"({"method":"thread/status/changed","params":{"threadId":"t1","status":{"type":"active","activeFlags":[]}},"emittedAtMs":1795394525400})")
      .send(R"({"method":"turn/started","params":{"threadId":"t1","turn":{"id":")" + turn +
            R"(","items":[],"status":"inProgress","error":null}},"emittedAtMs":1795394525400})")
      .send(
          R"({"method":"item/started","params":{"item":{"type":"userMessage","id":"01a205d9-91d0-7541-b8f8-4e24b8a433df","clientId":null,"content":[{"type":"text","text":"hello","text_elements":[]}]},"threadId":"t1","turnId":"u"},"emittedAtMs":1795394525410})");
}

std::string ended(const std::string& status, const std::string& error = "null") {
  return R"({"method":"turn/completed","params":{"threadId":"t1","turn":{"id":")" + turn +
         R"(","items":[],"itemsView":"notLoaded","status":")" + status + R"(","error":)" + error +
         R"(,"startedAt":1795394525,"completedAt":1795394525,"durationMs":75}},"emittedAtMs":1795394525963})";
}

TEST_F(CodexRealFrames, CommandThatIsRefused) {
  auto script = opened();
  begun(script)
      .send(
          R"({"method":"item/started","params":{"item":{"type":"commandExecution","id":"call_7d645e9746a84472","pluginId":null,"scriptPath":null,"command":"/bin/bash -lc 'touch y'","cwd":"/project","processId":null,"source":"agent","status":"inProgress","commandActions":[{"type":"unknown","command":"touch y"}],"aggregatedOutput":null,"exitCode":null,"durationMs":null},"threadId":"t1","turnId":"u"},"emittedAtMs":1795394475614})")
      .send(
          R"({"method":"item/commandExecution/requestApproval","id":0,"params":{"kind":"command","threadId":"t1","turnId":"u","itemId":"call_7d645e9746a84472","environmentId":"local","reason":"The stand-in model asks to run this.","command":"/bin/bash -lc 'touch y'","cwd":"/project","commandActions":[{"type":"unknown","command":"touch y"}],"proposedExecpolicyAmendment":["touch","y"],"availableDecisions":["accept",{"acceptWithExecpolicyAmendment":{"execpolicy_amendment":["touch","y"]}},"cancel"]}})")
      .expectLine(R"({"jsonrpc":"2.0","id":0,"result":{"decision":"decline"}})")
      .send(
          R"({"method":"serverRequest/resolved","params":{"threadId":"t1","requestId":0},"emittedAtMs":1795394475616})")
      .send(
          R"({"method":"item/completed","params":{"item":{"type":"commandExecution","id":"call_7d645e9746a84472","command":"/bin/bash -lc 'touch y'","cwd":"/project","status":"declined","aggregatedOutput":null,"exitCode":null}},"emittedAtMs":1795394475617})")
      .send(ended("completed"));
  openBy(script);
  prompt();
  await("asks 1 Run command");
  EXPECT_EQ(questions_[0].detail,
            "/bin/bash -lc 'touch y'\n\nThe stand-in model asks to run this.");
  client_->respondToPermission(1, "codex-reject");
  const std::string tool =
      R"({"sessionUpdate":"tool_call_update","toolCallId":"call_7d645e9746a84472",)"
      R"("title":"/bin/bash -lc 'touch y'","status":")";
  const std::string input =
      R"(","rawInput":{"command":"/bin/bash -lc 'touch y'","cwd":"/project","output":""}})";
  expectNotes({tool + "in_progress" + input, "asks 1 Run command", tool + "failed" + input,
               "turn ended completed"});
}

TEST_F(CodexRealFrames, FileChangeWhoseQuestionNamesNoFileAndATurnCancelledOverIt) {
  auto script = opened();
  begun(script)
      .send(
          R"({"method":"item/started","params":{"item":{"type":"fileChange","id":"call_e5e82564c3aa4ed9","changes":[{"path":"/outside/out3.txt","kind":{"type":"add"},"diff":"text\n"}],"status":"inProgress","startedAtMs":1795394525953,"completedAtMs":null},"threadId":"t1","turnId":"u"},"emittedAtMs":1795394525953})")
      .send(
          R"({"method":"item/fileChange/requestApproval","id":2,"params":{"threadId":"t1","turnId":"u","itemId":"call_e5e82564c3aa4ed9","startedAtMs":1795394525954,"reason":null,"grantRoot":null}})")
      .expect("turn/interrupt")
      .expectLine(R"({"jsonrpc":"2.0","id":2,"result":{"decision":"cancel"}})")
      .send(R"({"id":5,"result":{}})")
      .send(ended("interrupted"));
  openBy(script);
  prompt();
  await("asks 1 Edit files");
  EXPECT_EQ(questions_[0].detail,
            "Codex is requesting permission to continue.\n\nadd /outside/out3.txt\ntext");
  client_->cancel();
  await("turn failed: protocolError Codex turn interrupted.");
}

TEST_F(CodexRealFrames, PermissionsAreGrantedAsTheyWereAsked) {
  const std::string asked =
      R"({"network":{"enabled":true},"fileSystem":{"read":null,"write":["/outside"],"entries":[{"path":{"type":"path","path":"/outside"},"access":"write"}]}})";
  auto script = opened();
  begun(script)
      .send(
          R"({"method":"item/permissions/requestApproval","id":6,"params":{"threadId":"t1","turnId":"u","itemId":"call_b148cd2137e649df","environmentId":"local","startedAtMs":1795394526887,"cwd":"/project","reason":"why","permissions":)" +
          asked + "}}")
      .expectLine(R"({"jsonrpc":"2.0","id":6,"result":{"permissions":)" + asked +
                  R"(,"scope":"session"}})")
      .send(
          R"({"method":"item/tool/requestUserInput","id":7,"params":{"threadId":"t1","turnId":"u","itemId":"call_3ad11639aa8446e7","questions":[{"id":"q","header":"h","question":"which?","isOther":true,"isSecret":false,"options":[{"label":"A","description":"a"}]}],"isBlocking":false,"autoResolutionMs":null}})")
      .expect(R"("id":7,"error":{"code":-32601)")
      .send(ended("completed"));
  openBy(script);
  prompt();
  await("asks 1 Grant access");
  EXPECT_TRUE(questions_[0].detail.starts_with("why\n\n{"));
  EXPECT_TRUE(questions_[0].detail.contains("\"/outside\"")) << questions_[0].detail;
  client_->respondToPermission(1, "codex-allow-session");
  await("turn ended completed");
}

TEST_F(CodexRealFrames, AllowanceUsedUpInATurn) {
  const std::string error =
      R"({"message":"You’ve hit your usage limit. Upgrade to Pro or try again at 1:41 AM.","codexErrorInfo":"usageLimitExceeded","additionalDetails":null,"misalignment":null})";
  auto script = opened();
  script.send(
      R"({"id":2,"result":{"ordinaryUsageAllowed":null,"rateLimits":{"limitId":"codex","limitName":null,"normalModelSlug":null,"primary":{"usedPercent":13,"windowDurationMins":300,"resetsAt":1795398074},"secondary":{"usedPercent":40,"windowDurationMins":10080,"resetsAt":1795398074},"credits":{"hasCredits":false,"unlimited":false,"balance":"0"},"individualLimit":null,"spendControlReached":null,"planType":"plus","rateLimitReachedType":null},"rateLimitResetCredits":{"availableCount":1,"credits":[{"id":"credit-1","resetType":"codexRateLimits","status":"available","grantedAt":1767225600,"expiresAt":null,"title":"One reset","description":"A made-up reset."}]},"accountId":null,"rateLimitUpsell":null}})");
  begun(script)
      .send(
          R"({"method":"account/rateLimits/updated","params":{"rateLimits":{"limitId":"codex","limitName":null,"normalModelSlug":null,"primary":{"usedPercent":100,"windowDurationMins":300,"resetsAt":1795398076},"secondary":{"usedPercent":40,"windowDurationMins":10080,"resetsAt":1795398074},"credits":null,"individualLimit":null,"spendControlReached":null,"planType":null,"rateLimitReachedType":null}},"emittedAtMs":1795394476850})")
      .send(R"({"method":"error","params":{"error":)" + error +
            R"(,"willRetry":false,"threadId":"t1","turnId":")" + turn +
            R"("},"emittedAtMs":1795394476853})")
      .send(ended("failed", error));
  openBy(script);
  prompt();
  expectNotes(
      {"usage", "usage exhausted",
       "turn failed: usageLimit You’ve hit your usage limit. Upgrade to Pro or try again at "
       "1:41 AM."});
  EXPECT_FALSE(usages_[0].exhausted);
  EXPECT_TRUE(usages_[1].exhausted);
  EXPECT_EQ(usages_[1].planType, "plus");
  EXPECT_EQ(usages_[1].manualResetCreditID, "credit-1");
  EXPECT_EQ(usages_[1].resetsAt, Date::sinceUnixEpoch(1795398076));
}

TEST_F(CodexRealFrames, FailureThatWasRetriedIsToldOnce) {
  const std::string words =
      "We’re currently experiencing high demand, which may cause temporary errors.";
  auto script = opened();
  begun(script)
      .send(
          R"({"method":"error","params":{"error":{"message":"Reconnecting... 1/1","codexErrorInfo":{"responseStreamDisconnected":{"httpStatusCode":null}},"additionalDetails":")" +
          words + R"(","misalignment":null},"willRetry":true,"threadId":"t1","turnId":")" + turn +
          R"("},"emittedAtMs":1795394477175})")
      .send(
          R"({"method":"error","params":{"error":{"message":")" + words +
          R"(","codexErrorInfo":"internalServerError","additionalDetails":null,"misalignment":null},"willRetry":false,"threadId":"t1","turnId":")" +
          turn + R"("},"emittedAtMs":1795394477642})")
      .send(ended("failed"));
  openBy(script);
  prompt();
  expectNotes({"turn failed: protocolError " + words});
  EXPECT_EQ(waits_, Lines{"Codex is waiting: Reconnecting... 1/1"});
}

}  // namespace
}  // namespace vantrell
