// New conversations out of old ones: a fork, a branch that sends a prompt anew, and two forks that
// give one prompt to two providers. A branch works in a worktree of its own where it can, those of
// a comparison do or get no prompt. The source is never changed. Main queue.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/providers/router.h"
#include "engine/tasks/task_safety.h"
#include "engine/tasks/workspace_operations.h"
#include "engine/turns/composer.h"

namespace vantrell {

class TaskBranches : public std::enable_shared_from_this<TaskBranches> {
 public:
  TaskBranches(EngineCore& core, WorkspaceOperations& operations, Router& router, Composer& driver,
               TaskSafety& safety);

  /// A copy of the conversation through that entry, or of all of it where there is no such entry.
  /// It begins sessions of its own. One that is selected is ready to be typed in. Answers its id;
  /// absent where there is no such conversation.
  std::optional<Uuid> forkThread(const Uuid& threadID, const Uuid& workspaceID,
                                 const std::optional<std::string>& throughEntryID, bool select);

  // These act on the selected conversation.

  /// Sends the prompt in place of the user's entry that the given one is or follows, in a new
  /// conversation that has what came before, and selects that. Without a provider, the source's
  /// choice holds.
  void branchAndSend(std::string_view fromEntryID, std::string_view prompt,
                     std::optional<AgentProvider> provider = std::nullopt);
  /// The same with the latest user's entry and its words.
  void retry(std::optional<AgentProvider> provider = std::nullopt);
  /// Sends the prompt to the first two of the providers that are available, each in a fork and a
  /// worktree of its own, and selects the first fork. With fewer than two, the interface's error
  /// message says so.
  void compareNextPrompt(std::string_view prompt, const std::vector<AgentProvider>& providers);

  /// The conversation's worktree is being made; its prompt goes out after that.
  bool isPreparing(const ThreadExecutionKey& key) const { return unsent_.contains(key); }
  /// Why the latest branch works in the project's own folder; absent where it does not.
  const std::optional<std::string>& whyShared() const { return whyShared_; }
  /// For the end of the program: prompts that have not gone out become drafts, or wait in the queue
  /// where the user has begun another one.
  void keepUnsent();

 private:
  struct Unsent {
    std::string prompt;
    std::vector<ChatAttachment> attachments;
    bool needsWorktree = false;
  };

  ChatThread offshoot(const ChatThread& source, std::string_view suffix) const;
  void prepare(const ThreadExecutionKey& key, Unsent unsent);
  void prepared(const ThreadExecutionKey& key,
                TaskSafetyResult<TaskSafetyService::Worktree> worktree);
  void keepForUser(const ThreadExecutionKey& begun, Unsent unsent);

  MainQueue& main_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
  Changes& changes_;
  WorkspaceOperations& operations_;
  Router& router_;
  Composer& driver_;
  TaskSafety& safety_;
  std::map<ThreadExecutionKey, Unsent> unsent_;  // while their worktrees are made
  std::optional<std::string> whyShared_;
};

}  // namespace vantrell
