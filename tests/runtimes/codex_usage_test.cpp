#include "runtimes/codex/codex_usage.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace vantrell {
namespace {

std::string told(const ProviderUsage& usage) {
  EXPECT_EQ(usage.provider, AgentProvider::codex);
  const auto number = [](const auto& value) { return value ? fmt::format("{}", *value) : "-"; };
  return fmt::format(
      "{} {} {} {} {} {} {}", number(usage.primaryUsedPercent), number(usage.secondaryUsedPercent),
      usage.resetsAt ? fmt::format("@{}", usage.resetsAt->secondsSinceUnixEpoch()) : "-",
      usage.exhausted ? "exhausted" : "left", usage.planType.value_or("-"),
      number(usage.manualResetCredits), usage.manualResetCreditID.value_or("-"));
}

JsonObject object(const std::string& text) {
  return *json::parseObject(text);
}

std::string windows(const std::string& primary, const std::string& secondary,
                    const std::string& rest = "") {
  return R"({"rateLimits":{"primary":)" + primary + R"(,"secondary":)" + secondary + rest + "}}";
}

std::string window(double used, int reset) {
  return fmt::format(R"({{"usedPercent":{},"resetsAt":{}}})", used, reset);
}

TEST(CodexUsage, ReadsWhateverIsThere) {
  const std::pair<std::string, std::string> cases[] = {
      {windows(window(12.5, 100), window(40, 200), R"(,"planType":"plus")"),
       "12.5 40 @100 left plus - -"},
      {windows("null", window(40, 200)), "- 40 @200 left - - -"},
      // The limits alone.
      {R"({"primary":{"usedPercent":3,"resetsAt":7.5},"planType":"pro"})", "3 - @7.5 left pro - -"},
      // 100 counts as used up, not only what is above it.
      {windows(window(100, 100), window(40, 200)), "100 40 @100 exhausted - - -"},
      {windows(window(99.99, 100), window(40, 200)), "99.99 40 @100 left - - -"},
      {windows(window(100, 200), window(100, 300)), "100 100 @300 exhausted - - -"},
      {windows(R"({"usedPercent":100})", window(40, 200)), "100 40 @200 exhausted - - -"},
      // The provider's word counts for more than the percentages.
      {windows(window(99.9, 100), window(40, 200), R"(,"rateLimitReachedType":"weekly")"),
       "99.9 40 @200 exhausted - - -"},
      {windows(window(9, 300), window(40, 200), R"(,"spendControlReached":true)"),
       "9 40 @300 exhausted - - -"},
      {windows(window(9, 100), window(40, 200),
               R"(,"spendControlReached":false,"rateLimitReachedType":null)"),
       "9 40 @100 left - - -"},
      {windows(R"({"usedPercent":"9"})", "[]", R"(,"planType":7)"), "- - - left - - -"},
      // The credits for a reset stand beside the limits, not in them.
      {R"({"rateLimits":{},"rateLimitResetCredits":{"availableCount":2,"credits":[)"
       R"({"id":"a","status":"used"},{"id":"b","status":"available"},)"
       R"({"id":"c","status":"available"}]}})",
       "- - - left - 2 b"},
      {R"({"rateLimitResetCredits":{"credits":[7,{"status":"available"},)"
       R"({"id":"c","status":"available"}]}})",
       "- - - left - - -"},
      {R"({"rateLimits":{"rateLimitResetCredits":{"availableCount":2}}})", "- - - left - - -"},
  };
  for (const auto& [reading, expected] : cases) {
    EXPECT_EQ(told(codex::parseRateLimits(object(reading))), expected) << reading;
  }
}

// The update that the real program sends within a turn: it knows neither the plan nor the credits.
const std::string sparse =
    R"({"rateLimits":{"limitId":"codex","limitName":null,"normalModelSlug":null,)"
    R"("primary":{"usedPercent":20,"windowDurationMins":300,"resetsAt":150},"secondary":null,)"
    R"("credits":null,"individualLimit":null,"spendControlReached":null,"planType":null,)"
    R"("rateLimitReachedType":null}})";
const std::string full =
    R"({"rateLimits":{"limitId":"codex","primary":{"usedPercent":13,"resetsAt":100},)"
    R"("secondary":{"usedPercent":40,"resetsAt":200},"planType":"plus"},)"
    R"("rateLimitResetCredits":{"availableCount":1,)"
    R"("credits":[{"id":"credit-1","status":"available"}]}})";

TEST(CodexAllowance, UpdateChangesOnlyWhatItNames) {
  codex::CodexAllowance allowance;
  EXPECT_EQ(told(allowance.update(object(sparse))), "20 - @150 left - - -");
  EXPECT_EQ(told(allowance.read(object(full))), "13 40 @100 left plus 1 credit-1");
  EXPECT_EQ(told(allowance.update(object(sparse))), "20 40 @150 left plus 1 credit-1");
  EXPECT_EQ(told(allowance.update(object(R"({"rateLimits":{"secondary":{"usedPercent":100}}})"))),
            "20 100 @200 exhausted plus 1 credit-1")
      << "on top of the last update";
  EXPECT_EQ(told(allowance.update(object(
                R"({"rateLimits":{"secondary":{"usedPercent":4},"rateLimitReachedType":"x"}})"))),
            "20 4 @200 exhausted plus 1 credit-1");
  EXPECT_EQ(told(allowance.update(object(sparse))), "20 4 @150 left plus 1 credit-1")
      << "a limit that it does not repeat is lifted";
  EXPECT_EQ(told(allowance.read(object(R"({"rateLimits":{}})"))), "- - - left - - -")
      << "a reading is all there is";
}

TEST(CodexAllowance, AnotherLimitLeavesTheKnownOneAsItWas) {
  codex::CodexAllowance allowance;
  allowance.read(object(full));
  EXPECT_EQ(told(allowance.update(
                object(R"({"rateLimits":{"limitId":"other","primary":{"usedPercent":90}}})"))),
            "90 - - left - 1 credit-1");
  EXPECT_EQ(told(allowance.update(object(sparse))), "20 40 @150 left plus 1 credit-1");
}

}  // namespace
}  // namespace vantrell
