#include "engine/usage_desk.h"

#include <chrono>

namespace vantrell {

namespace {
/// Codex reports many times a turn, and a save is synced: no more than one in this time.
constexpr std::chrono::seconds pauseBetweenSaves{1};
}  // namespace

UsageDesk::UsageDesk(EngineCore& core)
    : main_(core.main), changes_(core.changes), store_(*core.orchestration) {}

UsageDesk::~UsageDesk() {
  flush();
}

void UsageDesk::load() {
  ledger_ = UsageLedger::load(store_);
}

const ProviderUsage* UsageDesk::usage(AgentProvider provider) const {
  const auto found = usage_.find(provider);
  return found == usage_.end() ? nullptr : &found->second;
}

bool UsageDesk::isExhausted(AgentProvider provider) {
  const ProviderUsage* known = usage(provider);
  if (!known || !known->exhausted) return false;
  if (!known->resetsAt || *known->resetsAt > main_.now()) return true;
  usage_.erase(provider);
  changes_.announce({.kind = Change::Kind::usageChanged});
  return false;
}

void UsageDesk::reported(const ProviderUsage& usage) {
  ledger_.push_back({.id = Uuid::random(),
                     .provider = usage.provider,
                     .usedPercent = usage.primaryUsedPercent,
                     .exhausted = usage.exhausted,
                     .resetAt = usage.resetsAt,
                     .recordedAt = main_.now()});
  if (ledger_.size() > UsageLedger::mostEvents) {
    ledger_.erase(ledger_.begin(),
                  ledger_.end() - static_cast<std::ptrdiff_t>(UsageLedger::mostEvents));
  }
  take(usage);
  save();
}

void UsageDesk::discovered(const ProviderUsage& usage) {
  take(usage);
}

void UsageDesk::markExhausted(AgentProvider provider) {
  ProviderUsage& known = usage_[provider];
  known.provider = provider;
  known.exhausted = true;
  changes_.announce({.kind = Change::Kind::usageChanged});
}

void UsageDesk::take(const ProviderUsage& usage) {
  ProviderUsage& known = usage_[usage.provider];
  known = usage.mergingMissingValues(known);
  changes_.announce({.kind = Change::Kind::usageChanged});
}

void UsageDesk::save() {
  hasUnsaved_ = true;
  if (pause_.isActive()) return;
  flush();
  pause_ = main_.after(pauseBetweenSaves, [this] { flush(); });
}

void UsageDesk::flush() {
  if (!std::exchange(hasUnsaved_, false)) return;
  // The ledger in memory stands, and the next save writes all of it.
  static_cast<void>(UsageLedger::save(ledger_, store_));
}

}  // namespace vantrell
