#include "engine/providers/router.h"

#include <fmt/format.h>

#include "platform/queues/weakly.h"
#include "runtimes/catalog/provider_registry.h"

namespace vantrell {

Router::Router(Dependencies dependencies) : core_(dependencies) {}

/// Who is available to a conversation. What is the same for all providers is collected once.
class Router::AvailabilityCheck {
 public:
  /// Without a key: in general, with the choices of the selected conversation.
  AvailabilityCheck(const Router& router, const std::optional<ThreadExecutionKey>& key)
      : router_(router),
        key_(key),
        context_(key ? router.core_.setup.connectorContext(AgentProvider::grok, *key)
                     : router.core_.setup.connectorContext(AgentProvider::grok)) {}

  bool isAvailable(AgentProvider provider) {
    if (!context_ || !router_.providerAllowed(provider)) return false;
    router_.core_.setup.setChoices(*context_, provider, key_);
    return router_.core_.setup.connector(provider).isAvailable(*context_);
  }

 private:
  const Router& router_;
  const std::optional<ThreadExecutionKey> key_;
  std::optional<ProviderConnectorContext> context_;
};

// ---- guards -------------------------------------------------------------------------------------

bool Router::providerAllowed(AgentProvider provider) const {
  return !core_.settings.noMeteredAPIs() || !core_.setup.connector(provider).isMetered();
}

bool Router::providerAvailable(AgentProvider provider) const {
  return AvailabilityCheck(*this, std::nullopt).isAvailable(provider);
}

bool Router::providerAvailable(AgentProvider provider, const ThreadExecutionKey& key) const {
  return AvailabilityCheck(*this, key).isAvailable(provider);
}

bool Router::hasRunnableProvider(const std::optional<ThreadExecutionKey>& key) const {
  AvailabilityCheck check(*this, key);
  return std::ranges::any_of(order(activeProvider(key)),
                             [&](AgentProvider each) { return check.isAvailable(each); });
}

bool Router::allowsAutomaticHandoff() const {
  return !fixed_ && vantrell::allowsAutomaticHandoff(core_.settings.routingMode());
}

/// As the provider has told it, whatever the time.
bool Router::isMarkedExhausted(AgentProvider provider) const {
  const ProviderUsage* known = core_.usage.usage(provider);
  return known && known->exhausted;
}

// ---- orders -------------------------------------------------------------------------------------

std::vector<AgentProvider> Router::order(std::optional<AgentProvider> active) const {
  if (fixed_) return {*fixed_};
  return ProviderRegistry::routingOrder(core_.settings.routingMode(), active);
}

std::optional<AgentProvider> Router::choiceOf(const std::optional<ThreadExecutionKey>& key) const {
  const ChatThread* thread = key ? core_.tree.thread(*key) : nullptr;
  if (!thread || fixed_) return std::nullopt;
  return thread->nextMessageProvider ? thread->nextMessageProvider : thread->preferredProvider;
}

std::optional<AgentProvider> Router::activeProvider(
    const std::optional<ThreadExecutionKey>& key) const {
  const auto* execution = key ? core_.executions.find(*key) : nullptr;
  if (execution && execution->activeProvider) return execution->activeProvider;
  // After a restart the provider that worked last goes on: another one would get a capsule in place
  // of the session.
  const ChatThread* thread = key ? core_.tree.thread(*key) : nullptr;
  return thread ? thread->lastProvider : std::nullopt;
}

std::vector<AgentProvider> Router::orderFor(const std::optional<ThreadExecutionKey>& key) const {
  auto providers = order(activeProvider(key));
  if (const auto choice = choiceOf(key)) {
    std::erase(providers, *choice);
    providers.insert(providers.begin(), *choice);
  }
  return providers;
}

// ---- decisions ----------------------------------------------------------------------------------

void Router::probe(std::vector<AgentProvider> order, const std::optional<ThreadExecutionKey>& key,
                   std::function<void()> done) {
  for (auto each = order.begin(); each != order.end(); ++each) {
    const auto category = ProviderRegistry::descriptor(*each).category;
    if (category != ProviderCategory::subscription && !core_.setup.services().isKnown(*each)) {
      return core_.setup.services().prepare(
          *each, weakly(this, [order = std::vector(each, order.end()), key,
                               done = std::move(done)](Router& self) mutable {
            // What has just been asked for is looked at again, and known now
            // at the latest.
            self.probe(std::move(order), key, std::move(done));
          }));
    }
    if (AvailabilityCheck(*this, key).isAvailable(*each) && !isExhausted(*each)) break;
  }
  done();
}

void Router::probeForNextTurn(const Providers& excluded,
                              const std::optional<ThreadExecutionKey>& key,
                              std::function<void()> done) {
  auto providers = orderFor(key);
  std::erase_if(providers, [&](AgentProvider each) { return excluded.contains(each); });
  probe(std::move(providers), key, std::move(done));
}

void Router::probeForHandoff(AgentProvider after, const Providers& attempted,
                             const ThreadExecutionKey& key, std::function<void()> done) {
  auto providers = order(after);
  std::erase_if(providers,
                [&](AgentProvider each) { return each == after || attempted.contains(each); });
  probe(std::move(providers), key, std::move(done));
}

std::optional<Router::Decision> Router::decide(const Providers& excluded,
                                               const std::optional<ThreadExecutionKey>& key) {
  // Marks whose time has come are forgotten first, so that the reasons do not speak of them.
  for (const auto each : orderFor(key)) isExhausted(each);
  const RoutingPreview preview = previewFor(key);
  const auto first = [&](bool evenExhausted) -> std::optional<Decision> {
    for (const auto& each : preview.candidates) {
      if (!excluded.contains(each.provider) && each.available &&
          (evenExhausted || !each.exhausted)) {
        return Decision{each.provider, each.reason};
      }
    }
    return std::nullopt;
  };
  const auto ready = first(false);
  // The mark of a pinned provider may be out of date: it answers for itself.
  return ready || allowsAutomaticHandoff() ? ready : first(true);
}

std::optional<AgentProvider> Router::expectedProvider(
    const Providers& excluded, const std::optional<ThreadExecutionKey>& key) {
  const auto decision = decide(excluded, key);
  return decision ? std::optional(decision->provider) : std::nullopt;
}

std::optional<Router::Decision> Router::decideNextTurn(const Providers& excluded,
                                                       const ThreadExecutionKey& key) {
  auto decision = decide(excluded, key);
  const ChatThread* thread = core_.tree.thread(key);
  // Only the provider that takes it uses it up: a choice that is not ready keeps for a later turn.
  if (decision && thread && thread->nextMessageProvider == decision->provider && !fixed_) {
    core_.tree.updateThread(key, [](ChatThread& changed) { changed.nextMessageProvider.reset(); });
  }
  return decision;
}

std::optional<AgentProvider> Router::providerForNextTurn(const Providers& excluded,
                                                         const ThreadExecutionKey& key) {
  const auto decision = decideNextTurn(excluded, key);
  return decision ? std::optional(decision->provider) : std::nullopt;
}

namespace {

/// Whether the other half of the conversation's comparison was given to the provider, which is not
/// to do both unasked.
bool hasOtherHalf(const WorkspaceTree& tree, const ThreadExecutionKey& key,
                  AgentProvider provider) {
  const ChatThread* thread = tree.thread(key);
  if (!thread || !thread->comparisonGroupID) return false;
  return std::ranges::any_of(tree.workspace(key.workspaceID)->threads, [&](const ChatThread& each) {
    return each.id != thread->id && each.comparisonGroupID == thread->comparisonGroupID &&
           each.preferredProvider == provider;
  });
}

}  // namespace

std::optional<AgentProvider> Router::nextAutomaticProvider(AgentProvider after,
                                                           const Providers& attempted,
                                                           const ThreadExecutionKey& key) {
  AvailabilityCheck check(*this, key);
  for (const auto each : order(after)) {
    if (each == after || attempted.contains(each) || !check.isAvailable(each)) continue;
    if (!isExhausted(each) && !hasOtherHalf(core_.tree, key, each)) return each;
  }
  return std::nullopt;
}

// ---- previews -----------------------------------------------------------------------------------

namespace {

constexpr std::string_view unavailable = "Runtime unavailable";
constexpr std::string_view reached = "Allowance reached";
constexpr std::string_view fallback = "Ready fallback";

bool isReady(const RoutingCandidate& candidate) {
  return candidate.available && !candidate.exhausted;
}

}  // namespace

RoutingPreview Router::routingPreviewFor(const ThreadExecutionKey& key) const {
  return previewFor(key);
}

RoutingPreview Router::previewFor(const std::optional<ThreadExecutionKey>& key) const {
  RoutingPreview preview;
  AvailabilityCheck check(*this, key);
  for (const auto each : orderFor(key)) {
    RoutingCandidate candidate{each, check.isAvailable(each), isMarkedExhausted(each), {}, {}};
    candidate.reason = !candidate.available         ? unavailable
                       : candidate.exhausted        ? reached
                       : preview.candidates.empty() ? "Selected for this turn"
                                                    : fallback;
    if (const auto* known = core_.usage.usage(each)) candidate.usageLabel = known->compactLabel();
    preview.candidates.push_back(std::move(candidate));
  }
  const auto selected = std::ranges::find_if(preview.candidates, isReady);
  const bool isFound = selected != preview.candidates.end();
  if (isFound) preview.provider = selected->provider;
  preview.reason = isFound ? selected->reason : "No provider is ready";
  return preview;
}

RoutingPreview Router::routingPreview(const std::optional<ThreadExecutionKey>& key) const {
  const auto* execution = key ? core_.executions.find(*key) : nullptr;
  const auto active = execution ? execution->activeProvider : std::nullopt;
  const auto preferred = fixed_.value_or(firstChoice(core_.settings.routingMode()));
  AvailabilityCheck check(*this, std::nullopt);
  const auto candidateOf = [&](AgentProvider each) {
    RoutingCandidate candidate{each, check.isAvailable(each), isMarkedExhausted(each), {}, {}};
    const ProviderUsage* known = core_.usage.usage(each);
    if (known) candidate.usageLabel = known->compactLabel();
    if (!candidate.available) {
      candidate.reason = unavailable;
    } else if (candidate.exhausted) {
      candidate.reason = reached;
      if (known->resetsAt) {
        candidate.reason += fmt::format(" · resets {}", mediumDateAndTime(*known->resetsAt));
      }
    } else if (each == active) {
      candidate.reason = "Continue the active session";
    } else {
      candidate.reason = each == preferred ? "Preferred by this route" : fallback;
    }
    return candidate;
  };

  RoutingPreview preview;
  for (const auto each : order(activeProvider(key))) {
    preview.candidates.push_back(candidateOf(each));
  }
  if (const auto choice = choiceOf(key)) {
    const auto* listed = preview.find(*choice);
    preview.provider = choice;
    preview.reason = listed ? listed->reason : candidateOf(*choice).reason;
    return preview;
  }
  auto selected = std::ranges::find_if(preview.candidates, isReady);
  if (selected == preview.candidates.end()) {
    selected = std::ranges::find(preview.candidates, true, &RoutingCandidate::available);
  }
  const bool isFound = selected != preview.candidates.end();
  if (isFound) preview.provider = selected->provider;
  preview.reason = isFound ? selected->reason : "No provider is currently ready";
  return preview;
}

// ---- the user's choices -------------------------------------------------------------------------

Result<> Router::handoff(AgentProvider to, ProviderHandoffScope scope,
                         const ThreadExecutionKey& key) {
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  if (!providerAvailable(to, key)) {
    return refuse(fmt::format("{} is not available for this task.", shortLabel(to)));
  }
  core_.tree.updateThread(key, [&](ChatThread& thread) {
    if (scope == ProviderHandoffScope::continueTask) {
      thread.preferredProvider = to;
      thread.nextMessageProvider.reset();
    } else {
      thread.nextMessageProvider = to;
    }
  });
  core_.tree.appendSystemEntry(
      fmt::format("Next turn will continue with {} · {}.", shortLabel(to), label(scope)), key);
  return {};
}

Result<> Router::setRoutingMode(ProviderRoutingMode mode,
                                const std::optional<ThreadExecutionKey>& selected) {
  if (mode == core_.settings.routingMode()) return {};
  if (!core_.executions.canChangeSession(selected)) {
    return refuse("Wait until the turn has ended, or stop it, before you change the route.");
  }
  auto stored = core_.settings.recordRoutingMode(mode);
  if (selected) core_.runs.resetConnection(*selected);
  return stored;
}

Result<> Router::setNoMeteredAPIs(bool value) {
  if (value == core_.settings.noMeteredAPIs()) return {};
  auto stored = core_.settings.recordNoMeteredAPIs(value);
  for (const auto& key : core_.executions.keys()) {
    const auto active = activeProvider(key);
    if (active && !providerAllowed(*active)) core_.runs.resetConnection(key);
  }
  return stored;
}

}  // namespace vantrell
