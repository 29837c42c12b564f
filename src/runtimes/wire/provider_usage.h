// How much of a provider's allowance is used, as far as the provider says.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/values/date.h"
#include "records/values/agent_provider.h"

namespace vantrell {

struct ProviderUsage {
  AgentProvider provider = AgentProvider::grok;
  std::optional<double> primaryUsedPercent;    // of the shorter window, 0 to 100
  std::optional<double> secondaryUsedPercent;  // of the longer window
  std::optional<Date> resetsAt;                // of the limiting window
  std::optional<std::string> planType;         // as the runtime names it
  bool exhausted = false;                      // the provider has said that nothing is left
  std::optional<std::int64_t> manualResetCredits;
  std::optional<std::string> manualResetCreditID;

  /// This, with the manual reset credits of `earlier` where it does not tell any: a runtime names
  /// them in some of its reports only.
  ProviderUsage mergingMissingValues(const ProviderUsage& earlier) const;
  /// "42% used", or what else is known in two words.
  std::string compactLabel() const;

  bool operator==(const ProviderUsage&) const = default;
};

}  // namespace vantrell
