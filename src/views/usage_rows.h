// How much of each provider's allowance is used: as it is known now, and as it was reported last.
// Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/stores/usage_ledger.h"
#include "runtimes/wire/provider_usage.h"

namespace vantrell::views {

struct UsageRow {
  AgentProvider provider = AgentProvider::grok;
  std::string_view label;
  std::optional<ProviderUsage> now;
  std::optional<UsageLedgerEvent> last;  // of the ledger
  std::string nowWords;                  // "42% used", or why nothing is known
  std::string lastWords;                 // with its date; empty where nothing was ever reported
};
/// `now` is null where nothing is known; the ledger has the oldest report first.
UsageRow usageRow(AgentProvider provider, const ProviderUsage* now,
                  const std::vector<UsageLedgerEvent>& ledger, Date today);

/// "42% used, 10% of the longer window, 2 reset credits".
std::string wordsFor(const ProviderUsage& usage);

}  // namespace vantrell::views
