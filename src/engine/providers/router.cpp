#include "engine/providers/router.h"

#include <fmt/format.h>

#include "platform/queues/weakly.h"
#include "runtimes/catalog/provider_registry.h"

namespace vantrell {

Router::Router(EngineCore& core, Approvals& approvals, ProviderSetup& setup, UsageTracker& usage)
    : main_(core.main),
      settings_(core.settings),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      approvals_(approvals),
      setup_(setup),
      usage_(usage),
      ports_(core.ports) {}

/// Who is available to a conversation. What is the same for all providers is collected once.
class Router::Look {
 public:
  /// Without a key: in general, with the choices of the selected conversation.
  Look(const Router& router, const std::optional<ThreadExecutionKey>& key)
      : router_(router),
        thread_(threadOf(router, key)),
        context_(key ? router.setup_.connectorContext(AgentProvider::grok, *key)
                     : router.setup_.connectorContext(AgentProvider::grok)) {}

  bool isAvailable(AgentProvider provider) {
    if (!context_ || !router_.providerAllowed(provider)) return false;
    context_->selectedModel = thread_ ? thread_->modelID(provider) : std::nullopt;
    context_->selectedEffort = thread_ ? thread_->effort(provider) : std::nullopt;
    return router_.setup_.connector(provider).isAvailable(*context_);
  }

 private:
  static const ChatThread* threadOf(const Router& router, std::optional<ThreadExecutionKey> key) {
    if (!key) key = router.selection_.key();
    return key ? router.tree_.thread(*key) : nullptr;
  }

  const Router& router_;
  const ChatThread* const thread_;
  std::optional<ProviderConnectorContext> context_;
};

// ---- guards -------------------------------------------------------------------------------------

bool Router::providerAllowed(AgentProvider provider) const {
  return !settings_.noMeteredAPIs() || !setup_.connector(provider).isMetered();
}

bool Router::providerAvailable(AgentProvider provider) const {
  return Look(*this, std::nullopt).isAvailable(provider);
}

bool Router::providerAvailable(AgentProvider provider, const ThreadExecutionKey& key) const {
  return Look(*this, key).isAvailable(provider);
}

bool Router::hasRunnableProvider() const {
  Look look(*this, std::nullopt);
  return std::ranges::any_of(order(executions_.mirror().activeProvider),
                             [&](AgentProvider each) { return look.isAvailable(each); });
}

bool Router::allowsAutomaticHandoff() const {
  return !fixed_ && vantrell::allowsAutomaticHandoff(settings_.routingMode());
}

/// As the provider has told it, whatever the time.
bool Router::hasFlag(AgentProvider provider) const {
  const ProviderUsage* known = usage_.usage(provider);
  return known && known->exhausted;
}

// ---- orders -------------------------------------------------------------------------------------

std::vector<AgentProvider> Router::order(std::optional<AgentProvider> active) const {
  if (fixed_) return {*fixed_};
  return ProviderRegistry::routingOrder(settings_.routingMode(), active);
}

std::optional<AgentProvider> Router::choiceOf(const std::optional<ThreadExecutionKey>& key) const {
  const ChatThread* thread = key ? tree_.thread(*key) : nullptr;
  if (!thread || fixed_) return std::nullopt;
  return thread->nextMessageProvider ? thread->nextMessageProvider : thread->preferredProvider;
}

std::vector<AgentProvider> Router::orderFor(const std::optional<ThreadExecutionKey>& key) const {
  const auto* execution = key ? executions_.find(*key) : nullptr;
  auto providers = order(execution ? execution->activeProvider : std::nullopt);
  if (const auto choice = choiceOf(key)) {
    std::erase(providers, *choice);
    providers.insert(providers.begin(), *choice);
  }
  return providers;
}

// ---- decisions ----------------------------------------------------------------------------------

void Router::findOut(std::vector<AgentProvider> order, const std::optional<ThreadExecutionKey>& key,
                     std::function<void()> done) {
  for (auto each = order.begin(); each != order.end(); ++each) {
    const auto category = ProviderRegistry::descriptor(*each).category;
    if (category != ProviderCategory::subscription && !ports_.isSetupKnown(*each)) {
      return ports_.findOutSetup(*each,
                                 weakly(this, [order = std::vector(each, order.end()), key,
                                               done = std::move(done)](Router& self) mutable {
                                   // What has just been asked for is looked at again, and known now
                                   // at the latest.
                                   self.findOut(std::move(order), key, std::move(done));
                                 }));
    }
    if (Look(*this, key).isAvailable(*each) && !isExhausted(*each)) break;
  }
  done();
}

void Router::findOutForNextTurn(const Providers& excluded,
                                const std::optional<ThreadExecutionKey>& key,
                                std::function<void()> done) {
  auto providers = orderFor(key);
  std::erase_if(providers, [&](AgentProvider each) { return excluded.contains(each); });
  findOut(std::move(providers), key, std::move(done));
}

void Router::findOutForHandoff(AgentProvider after, const Providers& attempted,
                               const ThreadExecutionKey& key, std::function<void()> done) {
  auto providers = order(after);
  std::erase_if(providers,
                [&](AgentProvider each) { return each == after || attempted.contains(each); });
  findOut(std::move(providers), key, std::move(done));
}

std::optional<AgentProvider> Router::expectedProvider(
    const Providers& excluded, const std::optional<ThreadExecutionKey>& key) {
  const auto providers = orderFor(key);
  Look look(*this, key);
  const auto first = [&](bool evenExhausted) -> std::optional<AgentProvider> {
    for (const auto each : providers) {
      if (!excluded.contains(each) && look.isAvailable(each) &&
          (evenExhausted || !isExhausted(each))) {
        return each;
      }
    }
    return std::nullopt;
  };
  const auto ready = first(false);
  // The mark of a pinned provider may be out of date: it answers for itself.
  return ready || allowsAutomaticHandoff() ? ready : first(true);
}

std::optional<AgentProvider> Router::providerForNextTurn(const Providers& excluded,
                                                         const ThreadExecutionKey& key) {
  const auto provider = expectedProvider(excluded, key);
  const ChatThread* thread = tree_.thread(key);
  // Only who takes it uses it up: a choice that is not ready keeps for a later turn.
  if (provider && thread && thread->nextMessageProvider == provider && !fixed_) {
    tree_.updateThread(key, [](ChatThread& changed) { changed.nextMessageProvider.reset(); });
  }
  return provider;
}

std::optional<AgentProvider> Router::nextAutomaticProvider(AgentProvider after,
                                                           const Providers& attempted,
                                                           const ThreadExecutionKey& key) {
  Look look(*this, key);
  for (const auto each : order(after)) {
    if (each == after || attempted.contains(each) || !look.isAvailable(each)) continue;
    if (!isExhausted(each)) return each;
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
  RoutingPreview preview;
  Look look(*this, key);
  for (const auto each : orderFor(key)) {
    RoutingCandidate candidate{each, look.isAvailable(each), hasFlag(each), {}, {}};
    candidate.reason = !candidate.available         ? unavailable
                       : candidate.exhausted        ? reached
                       : preview.candidates.empty() ? "Selected for this turn"
                                                    : fallback;
    if (const auto* known = usage_.usage(each)) candidate.usageLabel = known->compactLabel();
    preview.candidates.push_back(std::move(candidate));
  }
  const auto selected = std::ranges::find_if(preview.candidates, isReady);
  const bool isFound = selected != preview.candidates.end();
  if (isFound) preview.provider = selected->provider;
  preview.reason = isFound ? selected->reason : "No provider is ready";
  return preview;
}

RoutingPreview Router::routingPreview() const {
  const auto active = executions_.mirror().activeProvider;
  const auto preferred = fixed_.value_or(firstChoice(settings_.routingMode()));
  Look look(*this, std::nullopt);
  const auto candidateOf = [&](AgentProvider each) {
    RoutingCandidate candidate{each, look.isAvailable(each), hasFlag(each), {}, {}};
    const ProviderUsage* known = usage_.usage(each);
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
  for (const auto each : order(active)) preview.candidates.push_back(candidateOf(each));
  if (const auto choice = choiceOf(selection_.key())) {
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

void Router::handoff(AgentProvider to, ProviderHandoffScope scope, const ThreadExecutionKey& key) {
  if (!providerAvailable(to, key)) return;
  tree_.updateThread(key, [&](ChatThread& thread) {
    if (scope == ProviderHandoffScope::continueTask) {
      thread.preferredProvider = to;
      thread.nextMessageProvider.reset();
    } else {
      thread.nextMessageProvider = to;
    }
    thread.updatedAt = main_.now();
  });
  tree_.appendSystemEntry(
      fmt::format("Next turn will continue with {} · {}.", shortLabel(to), label(scope)), key);
}

void Router::handoff(AgentProvider to, ProviderHandoffScope scope) {
  if (const auto key = selection_.key()) handoff(to, scope, *key);
}

void Router::setRoutingMode(ProviderRoutingMode mode) {
  if (!approvals_.canChangePermissionMode() || mode == settings_.routingMode()) return;
  settings_.recordRoutingMode(mode);
  executions_.resetConnection();
}

void Router::setNoMeteredAPIs(bool value) {
  if (value == settings_.noMeteredAPIs()) return;
  settings_.recordNoMeteredAPIs(value);
  const auto active = executions_.mirror().activeProvider;
  if (active && !providerAllowed(*active)) executions_.resetConnection();
}

}  // namespace vantrell
