// The tree of workspaces and conversations, and the operations through which everything changes a
// conversation. Every change that matters is saved when it is made. An operation on an id that no
// longer exists does nothing. A save collects here what changed, which costs as much as the change;
// the writer makes it durable. Main queue.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/changes.h"
#include "records/values/chat_thread.h"
#include "records/values/tree_changes.h"

namespace vantrell {

class Executor;
class MainQueue;
class WorkspaceStore;

class WorkspaceTree {
 public:
  /// Saves are written on `writer`, a thread of their own; without one, on the main queue at once.
  /// What is given must outlive the tree.
  WorkspaceTree(MainQueue& main, WorkspaceStore& store, Changes& changes,
                Executor* writer = nullptr);
  /// flush().
  ~WorkspaceTree();
  WorkspaceTree(const WorkspaceTree&) = delete;
  WorkspaceTree& operator=(const WorkspaceTree&) = delete;

  void load();
  /// Hands what changed to the writer. A failure is announced when it is known; what could not be
  /// written goes with the next save.
  void save();
  /// Waits until all that was saved is on the disk; false when some of it could not be written. For
  /// the end of the process: it blocks. What saves are held back for waits for its end.
  bool flush();
  /// Marks every run that an earlier process left open as interrupted, the tools of its task that
  /// were under way as failed, and saves if there was one.
  void settleRunsLeftOpen();

  const std::vector<Workspace>& workspaces() const { return workspaces_; }
  const Workspace* workspace(const Uuid& id) const;
  const ChatThread* thread(const ThreadExecutionKey& key) const;
  /// Where the conversation's agent works: its own worktree when it has one, else the project
  /// folder. Absent when the conversation has gone.
  std::optional<std::string> executionPath(const ThreadExecutionKey& key) const;
  /// The same for what may be selected: without a conversation the workspace's folder, without
  /// either absent.
  std::optional<std::string> executionPath(const std::optional<Uuid>& workspaceID,
                                           const std::optional<Uuid>& threadID) const;

  // Structure.

  void addWorkspace(Workspace workspace);
  /// A new conversation in front of the workspace's others. Ids are unique in the whole tree.
  void addThread(ChatThread thread, const Uuid& workspaceID);
  /// Takes a conversation out of its workspace; absent when it has gone.
  std::optional<ChatThread> takeThread(const ThreadExecutionKey& key);
  void removeWorkspace(const Uuid& id);
  void setWorkspacePinned(const Uuid& id, bool pinned);

  // One conversation. None of these saves, but for those that say so.

  void updateThread(const ThreadExecutionKey& key, const std::function<void(ChatThread&)>& mutate);
  /// A thread with a default title gets one from its first prompt.
  void updateThreadTitleIfNeeded(std::string_view prompt, const ThreadExecutionKey& key);
  /// Appends and touches the thread.
  void appendEntry(ChatEntry entry, const ThreadExecutionKey& key);
  /// Appends a system entry with this text, and saves.
  void appendSystemEntry(std::string text, const ThreadExecutionKey& key);
  /// Adds text to the end of an entry; false when the thread has no such entry.
  bool appendText(std::string_view chunk, std::string_view entryID, const ThreadExecutionKey& key);
  /// Changes an entry in place; false when the thread has no such entry.
  bool updateEntry(std::string_view entryID, const ThreadExecutionKey& key,
                   const std::function<void(ChatEntry&)>& mutate);
  void replaceTranscript(Transcript entries, const ThreadExecutionKey& key);
  /// Takes the entries away, to be brought back or replaced by replaceTranscript(); nobody is told
  /// before that. Empty when the conversation has gone.
  Transcript takeTranscript(const ThreadExecutionKey& key);

  // Runs.

  /// Appends a new run with status `starting`, saves, and answers its id.
  Uuid beginRun(std::string prompt, const ThreadExecutionKey& key);
  /// Changes the run, sets its `updatedAt`, and saves. An absent id does nothing.
  void updateRun(const std::optional<Uuid>& runID, const ThreadExecutionKey& key,
                 const std::function<void(RunRecord&)>& mutate);
  const RunRecord* latestRun(const ThreadExecutionKey& key) const;
  /// Null for an absent or unknown id.
  const RunRecord* run(const std::optional<Uuid>& runID, const ThreadExecutionKey& key) const;

  /// While the returned object lives, nothing is written; the end of the last one writes what was
  /// asked for meanwhile. A replay holds: until it ends, the transcript in memory is less than the
  /// one on disk. The tree must outlive it.
  [[nodiscard]] std::shared_ptr<void> holdSaves();

 private:
  struct Write;

  ChatThread* find(const ThreadExecutionKey& key);
  /// Marks for the next save.
  TreeChanges::Thread& touch(const ThreadExecutionKey& key) { return unsaved_.threads[key]; }
  void structureChanged();
  void handOver();
  void finished(const std::shared_ptr<Write>& write);

  MainQueue& main_;
  WorkspaceStore& store_;
  Changes& changes_;
  std::vector<Workspace> workspaces_;
  Executor* const writer_;
  TreeChanges unsaved_;
  std::deque<std::shared_ptr<Write>> writes_;  // handed over, oldest first
  bool lastWriteFailed_ = false;
  std::shared_ptr<void> life_ = std::make_shared<int>();  // what the writer posts ends with us
  std::weak_ptr<void> saveHold_;
  bool saveIsDue_ = false;
  // Where the last look-up found its thread: streams look the same one up thousands of times.
  mutable std::size_t lastWorkspace_ = 0;
  mutable std::size_t lastThread_ = 0;
};

}  // namespace vantrell
