#include "runtimes/codex/codex_messages.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

using Kind = AgentRuntimeError::Kind;

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
