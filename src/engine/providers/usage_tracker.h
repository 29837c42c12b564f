// How much of each provider's allowance is used, as far as providers and failures have told in this
// process, and the ledger that outlives it. One account serves all conversations, so one that is
// exhausted is so for all of them. Main queue.
#pragma once

#include <future>
#include <map>
#include <vector>

#include "engine/core/changes.h"
#include "platform/queues/dispatch.h"
#include "records/stores/usage_ledger.h"
#include "runtimes/wire/provider_usage.h"

namespace vantrell {

class UsageTracker {
 public:
  /// The ledger is written on `writer`, which runs its work in order; without one, on the main
  /// queue.
  UsageTracker(MainQueue& main, Changes& changes, OrchestrationStore& store, Executor* writer);
  /// flush().
  ~UsageTracker();
  UsageTracker(const UsageTracker&) = delete;
  UsageTracker& operator=(const UsageTracker&) = delete;

  /// Reads the ledger. Usage itself is not stored: a restart forgets every exhausted mark.
  void load();

  const std::map<AgentProvider, ProviderUsage>& providerUsage() const { return usage_; }
  /// Null where nothing is known.
  const ProviderUsage* usage(AgentProvider provider) const;
  /// Nothing is left now. An allowance comes back by itself: at its reset time what is known of it
  /// is forgotten.
  bool isExhausted(AgentProvider provider);

  /// A client's report: taken over and written to the ledger.
  void reported(const ProviderUsage& usage);
  /// What was found out without a turn: taken over, with no entry in the ledger.
  void discovered(const ProviderUsage& usage);
  /// A turn has failed on the allowance.
  void markExhausted(AgentProvider provider);

  /// Oldest first.
  const std::vector<UsageLedgerEvent>& ledger() const { return ledger_; }
  /// Writes what is not written yet, and waits for it. A failure is not told: the ledger in memory
  /// stands.
  void flush();

 private:
  void take(const ProviderUsage& usage);
  void save();
  void write();
  bool isWriting() const;

  MainQueue& main_;
  Changes& changes_;
  OrchestrationStore& store_;
  std::map<AgentProvider, ProviderUsage> usage_;
  std::vector<UsageLedgerEvent> ledger_;
  Executor* const writer_;
  std::future<void> written_;  // of the last that the writer got
  bool hasUnsaved_ = false;
  Timer pause_;  // while it runs, reports gather
};

}  // namespace vantrell
