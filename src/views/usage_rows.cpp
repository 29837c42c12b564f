#include "views/usage_rows.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "runtimes/catalog/provider_registry.h"
#include "views/run_rows.h"

namespace vantrell::views {

namespace {

/// Why nothing is known at this moment.
std::string_view whyUnknown(AgentProvider provider) {
  if (!ProviderRegistry::descriptor(provider).capabilities.usageReporting) return "no allowance";
  if (provider == AgentProvider::codex) return "not reported, or not installed";
  if (provider == AgentProvider::claude) return "reported while it works";
  return "reported only when nothing is left";
}

std::string wordsFor(const UsageLedgerEvent& event, Date today) {
  const std::string used = event.usedPercent
                               ? fmt::format("{:.0f}% used", std::round(*event.usedPercent))
                               : std::string(event.exhausted ? "nothing left" : "in use");
  return fmt::format("{}, {} ({})", used, ago(event.recordedAt, today), minuteOf(event.recordedAt));
}

}  // namespace

UsageRow usageRow(AgentProvider provider, const ProviderUsage* now,
                  const std::vector<UsageLedgerEvent>& ledger, Date today) {
  UsageRow row{.provider = provider, .label = ProviderRegistry::descriptor(provider).label};
  if (now) row.now = *now;
  row.nowWords = now ? wordsFor(*now) : std::string(whyUnknown(provider));
  const auto found =
      std::ranges::find(ledger.rbegin(), ledger.rend(), provider, &UsageLedgerEvent::provider);
  if (found != ledger.rend()) {
    row.last = *found;
    row.lastWords = wordsFor(*found, today);
  }
  return row;
}

std::string wordsFor(const ProviderUsage& usage) {
  std::string words = usage.compactLabel();
  if (usage.secondaryUsedPercent) {
    words += fmt::format(", {:.0f}% of the longer window", std::round(*usage.secondaryUsedPercent));
  }
  if (usage.exhausted && usage.primaryUsedPercent) words += ", nothing left";
  if (usage.manualResetCredits) {
    words += fmt::format(", {} reset credit{}", *usage.manualResetCredits,
                         *usage.manualResetCredits == 1 ? "" : "s");
  }
  return words;
}

}  // namespace vantrell::views
