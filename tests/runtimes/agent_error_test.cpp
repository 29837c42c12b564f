#include "runtimes/wire/agent_error.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

TEST(AgentError, UsageLimitIsToldByTheWordsOfAnUnclassifiedError) {
  const std::pair<bool, std::vector<std::string>> cases[] = {
      {true,
       {"You hit your Usage Limit.", "429: RATE LIMIT reached", "insufficient_quota",
        "Quota exceeded", "allowance reached", "Your allowance is EXHAUSTED",
        "It is exhausting to compute an allowance"}},
      {false,
       {"allowance", "limit reached", "exhausted", "usage  limit", "usage-limit",
        "connection reset", ""}},
  };
  for (const auto& [expected, texts] : cases) {
    for (const auto& text : texts) {
      EXPECT_EQ(isUsageLimitFailure(AgentError(text)), expected) << text;
      EXPECT_FALSE(isUsageLimitFailure(AgentError::transport(text))) << "the name of a server";
      EXPECT_FALSE(isUsageLimitFailure(AgentError::disconnection(text))) << "a crash's last words";
    }
  }
}

TEST(AgentError, ClassifiedErrorAnswersByItsKindWhateverItSays) {
  using Kind = AgentRuntimeError::Kind;
  for (const auto kind : {Kind::usageLimit, Kind::authentication, Kind::protocolError}) {
    const AgentError error = AgentRuntimeError{AgentProvider::codex, kind, "quota"};
    EXPECT_EQ(isUsageLimitFailure(error), kind == Kind::usageLimit);
  }
}

}  // namespace
}  // namespace vantrell
