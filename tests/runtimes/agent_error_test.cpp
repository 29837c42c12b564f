#include "runtimes/agent_error.h"

#include <gtest/gtest.h>

#include "runtimes/acp/acp_client_error.h"

namespace vantrell {
namespace {

TEST(AgentError, UsageLimitIsToldByTheWordsOfAnUnclassifiedError) {
  const std::pair<std::string, bool> cases[] = {
      {"You hit your Usage Limit.", true},
      {"429: RATE LIMIT reached", true},
      {"insufficient_quota", true},
      {"Quota exceeded", true},
      {"allowance reached", true},
      {"Your allowance is EXHAUSTED", true},
      {"It is exhausting to compute an allowance", true},
      {"allowance", false},
      {"limit reached", false},
      {"exhausted", false},
      {"usage  limit", false},
      {"usage-limit", false},
      {"connection reset", false},
      {"", false},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(isUsageLimitFailure(AgentError(text)), expected) << text;
    EXPECT_EQ(isUsageLimitFailure(ACPClientError::invalidResponse(text)), expected) << text;
    EXPECT_FALSE(isUsageLimitFailure(AgentError::transport(text))) << "the name of a server";
    EXPECT_FALSE(isUsageLimitFailure(AgentError::disconnection(text))) << "last words of a crash";
  }
}

TEST(AgentError, ClassifiedErrorAnswersByItsKindWhateverItSays) {
  using Kind = AgentRuntimeError::Kind;
  for (const auto& [kind, expected] :
       {std::pair{Kind::usageLimit, true}, std::pair{Kind::authentication, false},
        std::pair{Kind::disconnected, false}, std::pair{Kind::protocolError, false}}) {
    for (const std::string text : {"quota", "all is well"}) {
      const AgentError error = AgentRuntimeError{AgentProvider::codex, kind, text};
      EXPECT_EQ(isUsageLimitFailure(error), expected) << text;
      EXPECT_EQ(error.localizedDescription(), text);
    }
  }
}

TEST(ACPClientError, SaysWhatPeopleRead) {
  EXPECT_EQ(ACPClientError::executableMissing("Kimi").localizedDescription(),
            "The Kimi CLI is not installed.");
  EXPECT_EQ(ACPClientError::disconnected().localizedDescription(),
            "The model runtime disconnected.");
  EXPECT_FALSE(isUsageLimitFailure(ACPClientError::disconnected()));
}

}  // namespace
}  // namespace vantrell
