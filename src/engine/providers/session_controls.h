// What a conversation has chosen of a provider's models and efforts: the controls that show it, and
// the choice. Main queue.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "engine/core/engine_core.h"
#include "engine/providers/model_catalog.h"
#include "engine/turns/approvals.h"

namespace vantrell {

class SessionControls {
 public:
  using ModelOptions = std::vector<ProviderModelOption>;
  using EffortOptions = std::vector<ProviderEffortOption>;

  SessionControls(EngineCore& core, Approvals& approvals, ModelCatalog& catalog);

  // The controls of the selected conversation.

  /// The provider that they are about: on an automatic route the one at work, else the last, else
  /// the route's first choice; on a fixed route its provider.
  AgentProvider sessionConfigurationProvider() const;
  ModelOptions sessionModelOptions() const;
  EffortOptions sessionEffortOptions() const;
  /// Of what is chosen, "default" where nothing is; the ID itself where that is not offered.
  std::string sessionModelLabel() const;
  std::string sessionEffortLabel() const;

  /// A choice that is not among the options is ignored, and so is any while a turn runs. The next
  /// turn starts a new client, in the stored session. An effort that the model does not have is
  /// forgotten.
  void setSessionModel(const std::string& id);
  void setSessionEffort(const std::string& id);
  /// Asks the conversation's own Codex for its allowance, then every runtime that can tell for its
  /// models.
  void refreshSessionUsage();

  // The same for any provider and conversation.

  /// False where it is ignored.
  bool chooseModel(AgentProvider provider, const ThreadExecutionKey& key, const std::string& id);
  bool chooseEffort(AgentProvider provider, const ThreadExecutionKey& key, const std::string& id);

 private:
  const ChatThread* selectedThread() const;
  bool mayChange(const ThreadExecutionKey& key);
  void choose(const ThreadExecutionKey& key, const std::function<void(ChatThread&)>& change);

  MainQueue& main_;
  Settings& settings_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
  Approvals& approvals_;
  ModelCatalog& catalog_;
};

}  // namespace vantrell
