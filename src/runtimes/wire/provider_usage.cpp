#include "runtimes/wire/provider_usage.h"

#include <cmath>
#include <fmt/format.h>

namespace vantrell {

ProviderUsage ProviderUsage::mergingMissingValues(const ProviderUsage& earlier) const {
  ProviderUsage merged = *this;
  if (!merged.manualResetCredits) merged.manualResetCredits = earlier.manualResetCredits;
  if (!merged.manualResetCreditID) merged.manualResetCreditID = earlier.manualResetCreditID;
  return merged;
}

std::string ProviderUsage::compactLabel() const {
  if (primaryUsedPercent) return fmt::format("{:.0f}% used", std::round(*primaryUsedPercent));
  return exhausted ? "Limit reached" : "Usage unavailable";
}

}  // namespace vantrell
