#include "views/session_rows.h"

#include <gmock/gmock.h>

#include "views/usage_rows.h"

namespace vantrell::views {
namespace {

using enum AgentProvider;

TEST(RoutingRows, ShowWhoTakesTheTurnAndWhy) {
  RoutingPreview preview{.provider = codex, .reason = "Selected for this turn", .candidates = {}};
  preview.candidates = {{codex, false, false, "Runtime unavailable", {}},
                        {grok, true, true, "Allowance reached", "100% used"},
                        {claude, true, false, "Ready fallback", {}}};
  const auto rows = routingRows(preview, claude);
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_TRUE(rows[2].isNext && rows[2].isReady);
  EXPECT_FALSE(rows[0].isReady || rows[0].isNext || rows[1].isReady);
  EXPECT_EQ(rows[1].allowance, "100% used");
  EXPECT_EQ(routingSentence(preview, codex),
            "The next turn goes to ChatGPT / Codex: Selected for this turn.");
  EXPECT_EQ(routingSentence(preview, claude),
            "The next turn goes to Claude. ChatGPT / Codex was chosen for it, but cannot be used "
            "now.");
  EXPECT_EQ(
      routingSentence({.provider = {}, .reason = "No provider is ready", .candidates = {}}, {}),
      "No provider is ready.");
}

TEST(OptionRows, MarkTheChoiceAndWhatIsRecommended) {
  const std::vector<ProviderEffortOption> efforts = {ProviderEffortOption::defaultOption(),
                                                     ProviderEffortOption::named("xhigh", "")};
  const std::vector<ProviderModelOption> models = {
      ProviderModelOption::defaultOption(efforts),
      {.id = "big", .label = "Big", .detail = "Slow.", .isDefault = true, .efforts = efforts}};
  auto rows = modelRows(models, {});
  EXPECT_TRUE(rows[0].isChosen && !rows[1].isChosen);
  EXPECT_EQ(rows[0].detail, "Use the provider's recommended model.");
  rows = modelRows(models, "big");
  EXPECT_TRUE(!rows[0].isChosen && rows[1].isChosen);
  EXPECT_EQ(rows[1].detail, "recommended; Slow.");
  EXPECT_EQ(rows[1].efforts, "xhigh");
  EXPECT_TRUE(effortRows(efforts, "xhigh")[1].isChosen);
}

TEST(OptionRows, TellWhereTheModelsComeFrom) {
  const auto none = LocalRuntimeStatus::checking();
  EXPECT_EQ(originOfModels(codex, true, none), "as ChatGPT / Codex reports them");
  EXPECT_TRUE(originOfModels(codex, false, none).contains("not installed"));
  EXPECT_EQ(originOfModels(local, false, LocalRuntimeStatus::unavailable("Nothing answers.")),
            "Nothing answers.");
  EXPECT_EQ(originOfModels(tasklet, false, none), "");
}

TEST(UsageRows, ShowWhatIsKnownNowAndWhatWasReportedLast) {
  ProviderUsage usage{.provider = codex, .primaryUsedPercent = 41.6, .secondaryUsedPercent = 9.4};
  EXPECT_EQ(wordsFor(usage), "42% used, 9% of the longer window");
  usage.exhausted = true;
  usage.manualResetCredits = 1;
  EXPECT_EQ(wordsFor(usage), "42% used, 9% of the longer window, nothing left, 1 reset credit");

  const std::vector<UsageLedgerEvent> ledger = {
      {.provider = codex, .usedPercent = 1, .recordedAt = Date(0)},
      {.provider = codex, .usedPercent = 12.5, .recordedAt = Date(60)},
      {.provider = claude, .exhausted = true, .recordedAt = Date(0)}};
  auto row = usageRow(codex, &usage, ledger, Date(180));
  EXPECT_EQ(row.nowWords, wordsFor(usage));
  EXPECT_EQ(row.lastWords, "13% used, 2 min ago (2001-01-01 00:01 UTC)");
  row = usageRow(claude, nullptr, ledger, Date(30));
  EXPECT_EQ(row.nowWords, "reported while it works");
  EXPECT_EQ(row.lastWords, "nothing left, just now (2001-01-01 00:00 UTC)");
  EXPECT_EQ(usageRow(local, nullptr, ledger, Date(0)).nowWords, "no allowance");
  EXPECT_FALSE(usageRow(grok, nullptr, ledger, Date(0)).last);
}

}  // namespace
}  // namespace vantrell::views
