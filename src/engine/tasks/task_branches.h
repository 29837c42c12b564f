// New conversations out of old ones: a fork, a branch that sends a prompt anew, and two forks that
// give one prompt to two providers. A branch works in a worktree of its own where it can, those of
// a comparison do or get no prompt. The source is never changed. Main queue.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/projects/task_safety.h"
#include "engine/providers/router.h"
#include "engine/turns/composer.h"

namespace vantrell {

class TaskBranches : public std::enable_shared_from_this<TaskBranches>, public PromptGate {
 public:
  struct Dependencies {
    MainQueue& main;
    WorkspaceTree& tree;
    ExecutionTable& executions;
    Router& router;
    Composer& composer;
    TaskSafety& safety;
  };
  explicit TaskBranches(Dependencies dependencies) : core_(dependencies) {}

  /// A copy of the conversation through that entry, or of all of it where there is no such entry.
  /// It begins sessions of its own, whose first prompt gets the visible context. Where the source
  /// is still to be read, the copy gets its entries once it is; prompts wait until then.
  Result<ThreadExecutionKey> forkThread(const ThreadExecutionKey& source,
                                        const std::optional<std::string>& throughEntryID);
  /// Sends the prompt in place of the user's entry that the given one is or follows, in a new
  /// conversation that has what came before. Without a provider, the source's choice holds. Where
  /// the source is still to be read, the entry is looked for after that; if there is none, the
  /// branch says so and keeps the prompt as its draft.
  Result<ThreadExecutionKey> branchAndSend(const ThreadExecutionKey& source,
                                           std::string_view fromEntryID, std::string_view prompt,
                                           std::optional<AgentProvider> provider = std::nullopt);
  /// The same with the latest user's entry and its words.
  Result<ThreadExecutionKey> retry(const ThreadExecutionKey& source,
                                   std::optional<AgentProvider> provider = std::nullopt);
  /// Work that needs all that was said in a task, when it is in memory; a front end that names an
  /// entry to branch from looks for it then. The key is where the task is by then.
  void whenRead(const ThreadExecutionKey& source,
                std::function<void(const ThreadExecutionKey&)> work) {
    core_.tree.whenRead(source, std::move(work));
  }
  /// Sends the prompt to the first two of the providers that are available, each in a fork and a
  /// worktree of its own.
  Result<std::vector<ThreadExecutionKey>> compareNextPrompt(
      const ThreadExecutionKey& source, std::string_view prompt,
      const std::vector<AgentProvider>& providers);

  /// The conversation's entries are being read, or its worktree made; its prompt goes out after
  /// that.
  bool isPreparing(const ThreadExecutionKey& key) const override {
    return unsent_.contains(key) || unfilled_.contains(key);
  }
  /// Why the branch works in the project's own folder; absent where it does not.
  std::optional<std::string> whyShared(const ThreadExecutionKey& branch) const;
  /// For the end of the program: prompts that have not gone out become drafts, or wait in the queue
  /// where the user has begun another one.
  void keepUnsent();

 private:
  struct Unsent {
    std::string prompt;
    std::vector<ChatAttachment> attachments;
    bool needsWorktree = false;
    int stopCount = 0;  // of the conversation when it was begun
  };

  /// The user's entry that a branch replaces: the latest, or the one that this is or follows.
  struct BranchPoint {
    std::optional<std::string> entryID;
    std::optional<std::string> words;  // instead of the entry's
  };

  static std::optional<std::size_t> promptAt(const Transcript& entries, const BranchPoint& point);
  static Unsent unsentAt(const Transcript& entries, std::size_t place, BranchPoint point);
  static std::string_view noPrompt(const BranchPoint& point);
  Result<ThreadExecutionKey> branch(const ThreadExecutionKey& source, BranchPoint point,
                                    std::optional<AgentProvider> provider);
  void fillBranch(const ThreadExecutionKey& branch, const ThreadExecutionKey& source,
                  const BranchPoint& point);
  ChatThread offshoot(const ChatThread& source, std::string_view suffix) const;
  void fill(const ThreadExecutionKey& fork, const ThreadExecutionKey& source, std::size_t count,
            const std::optional<std::string>& throughEntryID);
  std::optional<ThreadExecutionKey> present(const ThreadExecutionKey& begun) const;
  void prepare(const ThreadExecutionKey& key, Unsent unsent);
  void prepared(const ThreadExecutionKey& key,
                TaskSafetyResult<TaskSafetyService::Worktree> worktree);
  void keepForUser(const ThreadExecutionKey& begun, Unsent unsent);

  const Dependencies core_;
  std::map<ThreadExecutionKey, Unsent> unsent_;  // while their worktrees are made
  /// Forks and branches whose source is being read, with what is to be sent in them then.
  std::map<ThreadExecutionKey, std::optional<Unsent>> unfilled_;
  std::map<ThreadExecutionKey, std::string> whyShared_;
};

}  // namespace vantrell
