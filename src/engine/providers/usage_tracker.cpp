#include "engine/providers/usage_tracker.h"

#include <chrono>

namespace vantrell {

namespace {
/// Codex reports many times a turn, and a save is synced: no more than one in this time.
constexpr std::chrono::seconds pauseBetweenSaves{1};
}  // namespace

UsageTracker::UsageTracker(MainQueue& main, Changes& changes, OrchestrationStore& store,
                           Executor* writer)
    : main_(main), changes_(changes), store_(store), writer_(writer) {}

UsageTracker::~UsageTracker() {
  flush();
}

void UsageTracker::load() {
  ledger_ = UsageLedger::load(store_);
}

const ProviderUsage* UsageTracker::usage(AgentProvider provider) const {
  const auto found = usage_.find(provider);
  return found == usage_.end() ? nullptr : &found->second;
}

bool UsageTracker::isExhausted(AgentProvider provider) {
  const ProviderUsage* known = usage(provider);
  if (!known || !known->exhausted) return false;
  if (!known->resetsAt || *known->resetsAt > main_.now()) return true;
  usage_.erase(provider);
  changes_.mark(topics::usage);
  return false;
}

void UsageTracker::reported(const ProviderUsage& usage) {
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

void UsageTracker::discovered(const ProviderUsage& usage) {
  take(usage);
}

void UsageTracker::markExhausted(AgentProvider provider) {
  ProviderUsage& known = usage_[provider];
  known.provider = provider;
  known.exhausted = true;
  changes_.mark(topics::usage);
}

void UsageTracker::take(const ProviderUsage& usage) {
  ProviderUsage& known = usage_[usage.provider];
  known = usage.mergingMissingValues(known);
  changes_.mark(topics::usage);
}

void UsageTracker::save() {
  hasUnsaved_ = true;
  if (!pause_.isActive()) write();
}

bool UsageTracker::isWriting() const {
  return written_.valid() && written_.wait_for(Duration::zero()) != std::future_status::ready;
}

void UsageTracker::write() {
  if (!hasUnsaved_) return;
  pause_ = main_.after(pauseBetweenSaves, [this] { write(); });
  // A disk that is slow gets the newest state when it has the last one.
  if (isWriting()) return;
  hasUnsaved_ = false;
  // The ledger in memory stands when this fails, and the next save writes all of it.
  const auto write = std::make_shared<std::packaged_task<void()>>(
      [write = UsageLedger::prepareSave(ledger_, store_)] { static_cast<void>(write()); });
  written_ = write->get_future();
  if (!writer_) return (*write)();
  writer_->post([write] { (*write)(); });
}

void UsageTracker::flush() {
  if (written_.valid()) written_.wait();
  write();
  if (written_.valid()) written_.wait();
}

}  // namespace vantrell
