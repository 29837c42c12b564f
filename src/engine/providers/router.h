// Decides which provider takes a turn: the user's choice for the task, else the route, past whom
// allowance, guard or missing programs keep out. Only an exhausted allowance hands a task on, and
// only on an automatic route. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/providers/provider_setup.h"
#include "engine/providers/usage_tracker.h"
#include "records/values/routing.h"

namespace vantrell {

class Router : public std::enable_shared_from_this<Router> {
 public:
  using Providers = std::set<AgentProvider>;

  struct Dependencies {
    Settings& settings;
    WorkspaceTree& tree;
    ExecutionTable& executions;
    RunLifecycle& runs;
    ProviderSetup& setup;
    UsageTracker& usage;
  };
  explicit Router(Dependencies dependencies);

  // Guards.

  /// False for a provider that is billed per use while the user's guard is on.
  bool providerAllowed(AgentProvider provider) const;
  /// Allowed, and a client could be made now.
  bool providerAvailable(AgentProvider provider) const;
  bool providerAvailable(AgentProvider provider, const ThreadExecutionKey& key) const;
  bool isExhausted(AgentProvider provider) { return core_.usage.isExhausted(provider); }
  /// A turn has failed because the allowance is used up.
  void markExhausted(AgentProvider provider) { core_.usage.markExhausted(provider); }
  /// Some provider of the route is available; without a key: to a new conversation.
  bool hasRunnableProvider(const std::optional<ThreadExecutionKey>& key) const;
  /// Whether an exhausted allowance may hand a task on by itself.
  bool allowsAutomaticHandoff() const;

  // Decisions.

  /// Whether a model server answers and a webhook is stored is only known once it was asked for.
  /// Asks what the next decision depends on, and nothing more: at once where that is nothing.
  /// Without a key: for a conversation that is still to be made.
  void probeForNextTurn(const Providers& excluded, const std::optional<ThreadExecutionKey>& key,
                        std::function<void()> done);
  void probeForHandoff(AgentProvider after, const Providers& attempted,
                       const ThreadExecutionKey& key, std::function<void()> done);

  /// The provider that takes the turn, and why.
  struct Decision {
    AgentProvider provider;
    std::string reason;
  };
  /// Nullopt when none can. A choice for one message is used up by it.
  std::optional<Decision> decideNextTurn(const Providers& excluded, const ThreadExecutionKey& key);
  std::optional<AgentProvider> providerForNextTurn(const Providers& excluded,
                                                   const ThreadExecutionKey& key);
  /// The same decision, with nothing used up.
  std::optional<AgentProvider> expectedProvider(const Providers& excluded,
                                                const std::optional<ThreadExecutionKey>& key);
  /// The provider that goes on with the task after an exhausted allowance; nullopt when none is
  /// left.
  std::optional<AgentProvider> nextAutomaticProvider(AgentProvider after,
                                                     const Providers& attempted,
                                                     const ThreadExecutionKey& key);

  // Previews.

  /// For an interface; without a key: of a new conversation.
  RoutingPreview routingPreview(const std::optional<ThreadExecutionKey>& key) const;
  /// For the reason of a run.
  RoutingPreview routingPreviewFor(const ThreadExecutionKey& key) const;

  // The user's choices.

  /// Refused when the provider is not available for the task.
  Result<> handoff(AgentProvider to, ProviderHandoffScope scope, const ThreadExecutionKey& key);
  /// Idle clients are ended: the next turn starts a new one. Refused while a turn of the
  /// conversation that the user looks at runs, or a question is open there.
  Result<> setRoutingMode(ProviderRoutingMode mode,
                          const std::optional<ThreadExecutionKey>& selected);
  /// Clients of providers that are not allowed any more are ended.
  Result<> setNoMeteredAPIs(bool value);
  /// A front end's choice for all turns of this process, stronger than any of a task: a fixed
  /// route that is not stored and never hands on.
  void fixForThisProcess(AgentProvider provider) { fixed_ = provider; }

 private:
  class AvailabilityCheck;

  std::optional<Decision> decide(const Providers& excluded,
                                 const std::optional<ThreadExecutionKey>& key);
  RoutingPreview previewFor(const std::optional<ThreadExecutionKey>& key) const;
  std::optional<AgentProvider> activeProvider(const std::optional<ThreadExecutionKey>& key) const;
  std::vector<AgentProvider> order(std::optional<AgentProvider> active) const;
  std::vector<AgentProvider> orderFor(const std::optional<ThreadExecutionKey>& key) const;
  std::optional<AgentProvider> choiceOf(const std::optional<ThreadExecutionKey>& key) const;
  bool isMarkedExhausted(AgentProvider provider) const;
  void probe(std::vector<AgentProvider> order, const std::optional<ThreadExecutionKey>& key,
             std::function<void()> done);

  const Dependencies core_;
  std::optional<AgentProvider> fixed_;
};

}  // namespace vantrell
