#include "runtimes/claude/claude_messages.h"

#include <gtest/gtest.h>

#include "support/claude_frames.h"

namespace vantrell {
namespace {

namespace frames = tests::claude_frames;
using Kind = AgentRuntimeError::Kind;

JsonObject parsed(std::string_view text) {
  auto object = json::parseObject(text);
  EXPECT_TRUE(object) << text;
  return object.value_or(JsonObject{});
}

TEST(ClaudeMessages, FailureIsClassedByStatusAndWords) {
  using Said = std::pair<const char*, std::optional<std::int64_t>>;
  const std::pair<Kind, std::vector<Said>> cases[] = {
      {Kind::usageLimit,
       {{"Try later", 429},
        {"Please login", 429},
        {"RATE LIMIT reached", {}},
        {"Usage limit", 500},
        {"Quota used up", 401}}},
      {Kind::authentication,
       {{"No", 401},
        {"No", 403},
        {"Run /Login first", {}},
        {"Authentication failed", 500},
        {"UNAUTHORIZED", {}}}},
      {Kind::protocolError,
       {{"Limits of the rate", 400},
        {"", {}},
        {"API Error: Server is temporarily limiting requests (not your usage limit)", 429}}},
  };
  for (const auto& [kind, said] : cases) {
    for (const auto& [message, status] : said) {
      EXPECT_EQ(claude::errorKind(message, status), kind) << message;
    }
  }
}

TEST(ClaudeMessages, FailureIsToldInClaudeCodesWords) {
  struct Case {
    const char* result;
    const char* message;  // null: the turn went well
    Kind kind = Kind::protocolError;
  };
  for (const Case& each : {
           Case{R"({"is_error":false,"errors":["x"],"result":"r"})", nullptr},
           Case{R"({"is_error":true,"errors":["a","b"],"result":"r","subtype":"s"})", "a; b"},
           Case{R"({"is_error":true,"errors":["a",1],"result":"r","subtype":"s"})", "r"},
           Case{R"({"is_error":true})", "Claude Code could not complete the turn."},
           Case{R"({"is_error":true,"result":"x","api_error_status":"429"})", "x"},
           Case{frames::turnResult, nullptr},
           Case{frames::limitResult, "You've hit your session limit · resets 1:40am (UTC)",
                Kind::usageLimit},
           Case{frames::loginResult, "Failed to authenticate. API Error: 401 Invalid bearer token",
                Kind::authentication},
       }) {
    const auto failure = claude::failureOf(parsed(each.result));
    ASSERT_EQ(failure.has_value(), each.message != nullptr) << each.result;
    if (!failure) continue;
    EXPECT_EQ(failure->message, each.message);
    EXPECT_EQ(failure->kind, each.kind) << each.result;
    EXPECT_EQ(failure->provider, AgentProvider::claude);
  }
}

// As version 2.1 answers "initialize".
TEST(ClaudeMessages, ModelsAreThoseOfTheIntroductionThatTheSubscriptionCovers) {
  const auto options = claude::modelOptions(parsed(
      R"j({"models":[{"value":"default","displayName":"Default (recommended)",)j"
      R"("supportedEffortLevels":["low","xhigh"]},{"value":"sonnet","displayName":"Sonnet",)"
      R"("description":"Sonnet 5 · Efficient","supportedEffortLevels":["high"]},{"value":""},)"
      R"({"value":"opus[1m]","description":"Draws from usage credits · $5/$25 per Mtok"},)"
      R"({"value":"haiku"}]})"));
  ASSERT_EQ(options.size(), 3U);
  EXPECT_EQ(options[0].id, "default");
  EXPECT_EQ(options[0].efforts.back().label, "Extra high");
  EXPECT_EQ(options[1].detail, "Sonnet 5 · Efficient");
  EXPECT_TRUE(options[1].isDefault);
  EXPECT_EQ(options[2].label, "haiku");
  EXPECT_EQ(options[2].efforts.size(), 1U);
  EXPECT_TRUE(claude::modelOptions({}).empty());
}

TEST(ClaudeMessages, UsageIsReadInBothSpellings) {
  struct Case {
    const char* info;
    std::optional<double> percent, resetsAt;
    std::optional<std::string> plan;
    bool exhausted;
  };
  for (const Case& each : {
           Case{R"({"utilization":0.5,"resets_at":1700000000,"rate_limit_type":"five_hour",)"
                R"("status":"rejected","resetsAt":1,"rateLimitType":"x"})",
                50.0, 1700000000.0, "five_hour", true},
           Case{R"({"utilization":1,"resetsAt":1700000000.5,"rateLimitType":"seven_day",)"
                R"("status":"allowed"})",
                100.0, 1700000000.5, "seven_day", false},
           Case{R"({"status":"rejected"})", {}, {}, {}, true},
           // Only what is beyond the plan is used up.
           Case{R"({"status":"allowed","overageStatus":"rejected"})", {}, {}, {}, false},
           // The server is busy for everybody.
           Case{R"({"status":"rejected","isUsingOverage":false})", {}, {}, {}, false},
       }) {
    const ProviderUsage usage = claude::usage(parsed(each.info));
    EXPECT_EQ(usage.provider, AgentProvider::claude);
    EXPECT_EQ(usage.primaryUsedPercent, each.percent) << each.info;
    EXPECT_FALSE(usage.secondaryUsedPercent);
    EXPECT_EQ(usage.resetsAt.has_value(), each.resetsAt.has_value()) << each.info;
    if (usage.resetsAt) {
      EXPECT_DOUBLE_EQ(usage.resetsAt->secondsSinceUnixEpoch(), *each.resetsAt);
    }
    EXPECT_EQ(usage.planType, each.plan) << each.info;
    EXPECT_EQ(usage.exhausted, each.exhausted) << each.info;
    EXPECT_FALSE(usage.manualResetCredits || usage.manualResetCreditID);
  }
}

}  // namespace
}  // namespace vantrell
