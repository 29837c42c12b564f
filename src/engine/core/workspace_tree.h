// The tree of workspaces and conversations, and the operations through which everything changes a
// conversation. An operation on an id that no longer exists does nothing. Saving follows by itself:
// what changed is handed to the writer at the end of the main queue's turn; the text, tools and
// signs of life of a stream within `streamInterval`. A hand-over costs as much as what changed.
// Main queue.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/changes.h"
#include "platform/queues/dispatch.h"
#include "records/values/chat_thread.h"
#include "records/values/tree_changes.h"

namespace vantrell {

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

  /// How long what a stream says may wait for the disk, and how often it is written at most.
  static constexpr std::chrono::seconds streamInterval{15};

  void load();
  /// Hands over what changed and waits until it is on the disk; false when some of it could not be
  /// written. It blocks: for the end of the process.
  bool flush();
  /// Marks every run that an earlier process left open as interrupted, and the tools of its task
  /// that were under way as failed, as soon as its transcript is read.
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
  void removeThread(const ThreadExecutionKey& key);
  /// To the front of another workspace, which puts an entry into it.
  void moveThread(const ThreadExecutionKey& key, const Uuid& workspaceID);
  void removeWorkspace(const Uuid& id);
  void setWorkspacePinned(const Uuid& id, bool pinned);

  // One conversation.

  /// Changes anything but entries and runs.
  void updateThread(const ThreadExecutionKey& key, const std::function<void(ChatThread&)>& mutate);
  /// The session that the conversation was imported from is still known. Not worth a save: it goes
  /// to the disk with the next change.
  void noteImportedSessionSeen(const ThreadExecutionKey& key, Date now);
  /// A thread with a default title gets one from its first prompt.
  void updateThreadTitleIfNeeded(std::string_view prompt, const ThreadExecutionKey& key);
  /// Appends, and sets the thread's `updatedAt`. What an agent writes is part of a stream.
  void appendEntry(ChatEntry entry, const ThreadExecutionKey& key);
  void appendSystemEntry(std::string text, const ThreadExecutionKey& key);
  /// Adds text to the end of an entry, as a stream does; false when the thread has no such entry.
  bool appendText(std::string_view chunk, std::string_view entryID, const ThreadExecutionKey& key);
  /// Changes an entry in place, as a stream does; false when the thread has no such entry.
  bool updateEntry(std::string_view entryID, const ThreadExecutionKey& key,
                   const std::function<void(ChatEntry&)>& mutate);
  /// What is equal in both is not written again.
  void replaceTranscript(Transcript entries, const ThreadExecutionKey& key);
  /// Keeps the first `count` entries.
  void truncateTranscript(std::size_t count, const ThreadExecutionKey& key);

  // Transcripts that are still on the disk. A look at what is not in memory blocks the main queue:
  // whatever may wait asks for it first.

  /// Reads the transcript off the main queue, the last entries first, and calls `then` on the main
  /// queue when all of it is in memory, or the conversation has gone. Each part is announced; until
  /// the last one `Transcript::isRead()` is false.
  void loadTranscript(const ThreadExecutionKey& key, std::function<void()> then = {});
  /// For what must be done to the transcript: does it when all of it is in memory (within this call
  /// where it is), at the latest in flush() or when the conversation is removed, which then read
  /// it. The key is that of the conversation by then: it may have moved.
  using TranscriptWork = std::function<void(const ThreadExecutionKey&)>;
  void whenRead(const ThreadExecutionKey& key, TranscriptWork work);
  /// Hands over what changed and calls `then` on the main queue once it is written: for a reader of
  /// the store.
  void afterWriting(std::function<void()> then);

  // Runs.

  /// Appends a new run with status `starting` and returns its id. The prompt and its run are handed
  /// to the writer at once, before a runtime hears of them.
  Uuid beginRun(std::string prompt, const ThreadExecutionKey& key);
  /// Sets the run's `lastActivityAt`, as part of a stream and without an announcement.
  void noteActivity(const std::optional<Uuid>& runID, const ThreadExecutionKey& key);
  /// Changes the run and sets its `updatedAt`. An absent id does nothing.
  void updateRun(const std::optional<Uuid>& runID, const ThreadExecutionKey& key,
                 const std::function<void(RunRecord&)>& mutate);
  const RunRecord* latestRun(const ThreadExecutionKey& key) const;
  /// Null for an absent or unknown id.
  const RunRecord* run(const std::optional<Uuid>& runID, const ThreadExecutionKey& key) const;

 private:
  struct Write;
  enum class Urgency { turnEnd, stream };

  ChatThread* find(const ThreadExecutionKey& key);
  /// Marks for the next save, and sees to it that there is one.
  TreeChanges::Thread& touch(const ThreadExecutionKey& key, Urgency urgency = Urgency::turnEnd);
  void structureChanged();
  void saveSoon(Urgency urgency);
  void save();
  void handOver();
  void finishLoading(const ThreadExecutionKey& key);
  void doPendingWork(const ThreadExecutionKey& key);
  void loaded(const ThreadExecutionKey& key);
  void finished(const std::shared_ptr<Write>& write);

  MainQueue& main_;
  WorkspaceStore& store_;
  Changes& changes_;
  std::vector<Workspace> workspaces_;
  Executor* const writer_;
  TreeChanges unsaved_;
  std::deque<std::shared_ptr<Write>> writes_;  // handed over, oldest first
  bool lastWriteFailed_ = false;
  bool savesAll_ = false;  // the file was mended: what it lost may be in memory
  std::shared_ptr<void> life_ = std::make_shared<int>();  // what the writer posts ends with us
  bool saveIsPosted_ = false;
  bool saveWaitsForWriter_ = false;
  Timer streamTimer_;
  Duration lastHandOver_{};  // uptime
  std::map<ThreadExecutionKey, std::vector<std::function<void()>>> loading_;
  std::map<ThreadExecutionKey, std::vector<TranscriptWork>> pendingWork_;  // of whenRead()
  // Where the last look-up found its thread: streams look the same one up thousands of times.
  mutable std::size_t lastWorkspace_ = 0;
  mutable std::size_t lastThread_ = 0;
};

/// Ends a run that a process has left open as interrupted. False when it had ended.
bool interruptIfOpen(RunRecord& run, Date now);

}  // namespace vantrell
