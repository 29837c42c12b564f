#include "runtimes/codex/codex_messages.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

using enum GrokPermissionMode;
using Kind = AgentRuntimeError::Kind;

AgentConfiguration configuration(GrokPermissionMode mode) {
  AgentConfiguration made;
  made.workspacePath = "/w \"x\"";
  made.permissionMode = mode;
  return made;
}

TEST(CodexMessages, ThreadAndTurnSayWhatTheModeAllows) {
  struct Case {
    GrokPermissionMode mode;
    std::string thread, turn;
  };
  const std::string inWorkspace =
      R"({"type":"workspaceWrite","writableRoots":["/w \"x\""],"networkAccess":false})";
  const Case cases[] = {
      {ask,
       R"("approvalPolicy":"on-request","approvalsReviewer":"user","sandbox":"workspace-write")",
       R"("approvalPolicy":"on-request","approvalsReviewer":"user","sandboxPolicy":)" +
           inWorkspace},
      {auto_,
       R"("approvalPolicy":"on-request","approvalsReviewer":"auto_review",)"
       R"("sandbox":"workspace-write")",
       R"("approvalPolicy":"on-request","approvalsReviewer":"auto_review","sandboxPolicy":)" +
           inWorkspace},
      {fullAccess,
       R"("approvalPolicy":"never","approvalsReviewer":"user","sandbox":"danger-full-access")",
       R"("approvalPolicy":"never","approvalsReviewer":"user",)"
       R"("sandboxPolicy":{"type":"dangerFullAccess"})"},
  };
  for (const auto& [mode, thread, turn] : cases) {
    const auto made = configuration(mode);
    EXPECT_EQ(json::write(codex::threadParams(made, std::nullopt)),
              R"({"cwd":"/w \"x\"",)" + thread + "}");
    EXPECT_EQ(json::write(codex::threadParams(made, "t")),
              R"({"threadId":"t","cwd":"/w \"x\"",)" + thread + "}");
    EXPECT_EQ(json::write(codex::turnStartParams(made, "t", "do\nit")),
              R"({"threadId":"t","input":[{"type":"text","text":"do\nit"}],)" + turn + "}");
  }
}

TEST(CodexMessages, FailuresAreClassifiedByTheirInfoAndElseByTheirWords) {
  struct Case {
    std::string error;
    Kind kind;
    std::string message;
  };
  const Case cases[] = {
      {"{}", Kind::protocolError, "fallback"},
      {R"({"message":"boom"})", Kind::protocolError, "boom"},
      {R"({"error":{"message":"inner"}})", Kind::protocolError, "inner"},
      {R"({"message":"x","codexErrorInfo":"usageLimitExceeded"})", Kind::usageLimit, "x"},
      {R"({"message":"You hit your Usage LIMIT."})", Kind::usageLimit, "You hit your Usage LIMIT."},
      // The words of a limit count for more than a word about the account.
      {R"({"message":"401 Unauthorized"})", Kind::authentication, "401 Unauthorized"},
      {R"({"message":"Please LOGIN"})", Kind::authentication, "Please LOGIN"},
      {R"({"message":"rate limit and quota","codexErrorInfo":"rateLimitExceeded"})",
       Kind::protocolError, "rate limit and quota"},
      {R"({"message":"x","codexErrorInfo":{"usageLimitExceeded":{}}})", Kind::protocolError, "x"},
      {R"({"message":"x","codexErrorInfo":{},"error":{"codexErrorInfo":"unauthorized"}})",
       Kind::authentication, "x"},
      {R"({"message":"exceeded retry limit, last status: 429 Too Many Requests"})",
       Kind::usageLimit, "exceeded retry limit, last status: 429 Too Many Requests"},
      {R"({"message":"exceeded retry limit, last status: 500"})", Kind::protocolError,
       "exceeded retry limit, last status: 500"},
  };
  for (const auto& [text, kind, message] : cases) {
    const auto error = codex::runtimeError(*json::parseObject(text), "fallback");
    EXPECT_EQ(error.provider, AgentProvider::codex);
    EXPECT_EQ(error.kind, kind) << text;
    EXPECT_EQ(error.message, message) << text;
  }
}

}  // namespace
}  // namespace vantrell
