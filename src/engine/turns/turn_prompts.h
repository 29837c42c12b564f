// The text that a turn sends: the user's words with attachments, mode and project context, or the
// hand-off capsule where the provider does not know the conversation. Reading what belongs to it
// takes a while, so each comes later; not at all where the conversation has gone. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/core/execution_table.h"
#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/project_context_service.h"
#include "engine/turns/turn.h"

namespace vantrell {

class TurnPrompts : public std::enable_shared_from_this<TurnPrompts> {
 public:
  struct Dependencies {
    const Settings& settings;
    WorkspaceTree& tree;
    ExecutionTable& executions;
    ProjectContextService& context;
    ProjectServices& project;
  };
  explicit TurnPrompts(Dependencies dependencies) : core_(dependencies) {}

  using Then = std::function<void(std::string prompt)>;

  /// For the work mode that is set now.
  void assemble(const ThreadExecutionKey& key, std::string text,
                std::vector<ChatAttachment> attachments, Then then);
  /// What the provider gets as the first one of the turn: the prompt as assembled, or a capsule. A
  /// switch of the provider is said in the transcript, where the turn still is at its run then.
  void forFirstProvider(const Turn& turn, AgentProvider provider, Then then);
  void capsule(const Turn& turn, AgentProvider from, AgentProvider to, Then then);

 private:
  bool needsCapsule(const Turn& turn, AgentProvider provider) const;

  const Dependencies core_;
};

}  // namespace vantrell
