#include "records/stores/usage_ledger.h"

#include "records/stores/orchestration_store.h"

namespace vantrell {

static constexpr auto fieldsOf(const UsageLedgerEvent*) {
  return fields(field("id", &UsageLedgerEvent::id), field("provider", &UsageLedgerEvent::provider),
                field("usedPercent", &UsageLedgerEvent::usedPercent),
                field("exhausted", &UsageLedgerEvent::exhausted),
                field("resetAt", &UsageLedgerEvent::resetAt),
                field("recordedAt", &UsageLedgerEvent::recordedAt));
}

namespace {
constexpr std::string_view fileName = "usage-ledger.json";
}

std::vector<UsageLedgerEvent> UsageLedger::load(OrchestrationStore& store) {
  return store.load(fileName, std::vector<UsageLedgerEvent>());
}

std::function<files::Result<>()> UsageLedger::prepareSave(
    const std::vector<UsageLedgerEvent>& events, OrchestrationStore& store) {
  return store.prepareSave(events, fileName);
}

}  // namespace vantrell
