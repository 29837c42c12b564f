// Decides which provider takes a turn: the user's choice for the task, else the route, past whom
// allowance, guard or missing programs keep out. Only an exhausted allowance hands a task on, and
// only on an automatic route. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "engine/core/engine_core.h"
#include "engine/providers/provider_setup.h"
#include "engine/providers/usage_tracker.h"
#include "engine/turns/approvals.h"
#include "records/values/routing.h"

namespace vantrell {

class Router : public std::enable_shared_from_this<Router> {
 public:
  using Providers = std::set<AgentProvider>;

  Router(EngineCore& core, Approvals& approvals, ProviderSetup& setup, UsageTracker& usage);

  // Guards.

  /// False for a provider that is billed per use while the user's guard is on.
  bool providerAllowed(AgentProvider provider) const;
  /// Allowed, and a client could be made now.
  bool providerAvailable(AgentProvider provider) const;
  bool providerAvailable(AgentProvider provider, const ThreadExecutionKey& key) const;
  bool isExhausted(AgentProvider provider) { return usage_.isExhausted(provider); }
  /// Someone of the route is available.
  bool hasRunnableProvider() const;
  /// Whether an exhausted allowance may hand a task on by itself.
  bool allowsAutomaticHandoff() const;

  // Decisions.

  /// Whether a model server answers and a webhook is stored is only known once it was asked for.
  /// Asks what the next decision depends on, and nothing more: at once where that is nothing.
  /// Without a key: for a conversation that is still to be made.
  void findOutForNextTurn(const Providers& excluded, const std::optional<ThreadExecutionKey>& key,
                          std::function<void()> done);
  void findOutForHandoff(AgentProvider after, const Providers& attempted,
                         const ThreadExecutionKey& key, std::function<void()> done);

  /// Who takes the turn; absent when nobody can. A choice for one message is used up by it.
  std::optional<AgentProvider> providerForNextTurn(const Providers& excluded,
                                                   const ThreadExecutionKey& key);
  /// The same decision, with nothing used up.
  std::optional<AgentProvider> expectedProvider(const Providers& excluded,
                                                const std::optional<ThreadExecutionKey>& key);
  /// Who goes on with the task after an exhausted allowance; absent when nobody is left.
  std::optional<AgentProvider> nextAutomaticProvider(AgentProvider after,
                                                     const Providers& attempted,
                                                     const ThreadExecutionKey& key);

  // Previews.

  /// Of the selected conversation, for an interface.
  RoutingPreview routingPreview() const;
  /// For the reason of a run.
  RoutingPreview routingPreviewFor(const ThreadExecutionKey& key) const;

  // The user's choices.

  /// Nothing happens when the provider is not available for the task.
  void handoff(AgentProvider to, ProviderHandoffScope scope, const ThreadExecutionKey& key);
  void handoff(AgentProvider to, ProviderHandoffScope scope);
  /// The next turn starts a new client. Ignored while a turn runs or a question is open.
  void setRoutingMode(ProviderRoutingMode mode);
  void setNoMeteredAPIs(bool value);
  /// A front door's choice for all turns of this process, stronger than any of a task: a fixed
  /// route that is not stored and never hands on.
  void fixForThisProcess(AgentProvider provider) { fixed_ = provider; }

 private:
  class Look;

  std::vector<AgentProvider> order(std::optional<AgentProvider> active) const;
  std::vector<AgentProvider> orderFor(const std::optional<ThreadExecutionKey>& key) const;
  std::optional<AgentProvider> choiceOf(const std::optional<ThreadExecutionKey>& key) const;
  bool hasFlag(AgentProvider provider) const;
  void findOut(std::vector<AgentProvider> order, const std::optional<ThreadExecutionKey>& key,
               std::function<void()> done);

  MainQueue& main_;
  Settings& settings_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
  Approvals& approvals_;
  ProviderSetup& setup_;
  UsageTracker& usage_;
  const EnginePorts& ports_;
  std::optional<AgentProvider> fixed_;
};

}  // namespace vantrell
