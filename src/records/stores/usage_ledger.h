// What providers have reported of their allowances over time: the records of "usage-ledger.json",
// oldest first. UsageTracker adds to it; after a restart it is all that is known. Plain values.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "platform/files/files.h"
#include "platform/values/date.h"
#include "platform/values/uuid.h"
#include "records/values/agent_provider.h"

namespace vantrell {

class OrchestrationStore;

struct UsageLedgerEvent {
  Uuid id;
  AgentProvider provider = AgentProvider::grok;
  std::optional<double> usedPercent;  // of the shorter window, 0 to 100
  bool exhausted = false;
  std::optional<Date> resetAt;
  Date recordedAt;

  bool operator==(const UsageLedgerEvent&) const = default;
};

namespace UsageLedger {

/// More than these are cut from the front.
inline constexpr std::size_t mostEvents = 1000;

/// Empty where nothing is stored, or nothing that can be read. Main queue, as the store.
std::vector<UsageLedgerEvent> load(OrchestrationStore& store);
/// What is answered writes it, on any thread: those in their order.
std::function<files::Result<>()> prepareSave(const std::vector<UsageLedgerEvent>& events,
                                             OrchestrationStore& store);

}  // namespace UsageLedger
}  // namespace vantrell
