#include "engine/workspace_tree.h"

#include "platform/dispatch.h"
#include "platform/files.h"
#include "records/workspace_store.h"

namespace vantrell {

WorkspaceTree::WorkspaceTree(MainQueue& main, WorkspaceStore& store, Changes& changes)
    : main_(main), store_(store), changes_(changes) {}

void WorkspaceTree::load() {
  workspaces_ = store_.load(main_.now());
}

void WorkspaceTree::save() {
  if (!saveHold_.expired()) {
    saveIsDue_ = true;
    return;
  }
  if (store_.save(workspaces_)) return;
  changes_.announce({.kind = Change::Kind::saveFailed, .text = store_.lastError()});
}

std::shared_ptr<void> WorkspaceTree::holdSaves() {
  if (auto present = saveHold_.lock()) return present;
  std::shared_ptr<void> hold(nullptr, [this](void*) {
    saveHold_.reset();
    if (std::exchange(saveIsDue_, false)) save();
  });
  saveHold_ = hold;
  return hold;
}

void WorkspaceTree::settleRunsLeftOpen() {
  const Date now = main_.now();
  bool anyWasOpen = false;
  for (auto& workspace : workspaces_) {
    for (auto& thread : workspace.threads) {
      for (auto& run : thread.runs) {
        if (!isActive(run.status)) continue;
        run.status = RunRecordStatus::interrupted;
        run.statusMessage = "vantrell restarted before this run reported completion.";
        run.updatedAt = now;
        run.completedAt = now;
        anyWasOpen = true;
      }
    }
  }
  if (anyWasOpen) save();
}

const Workspace* WorkspaceTree::workspace(const Uuid& id) const {
  const auto found = std::ranges::find(workspaces_, id, &Workspace::id);
  return found == workspaces_.end() ? nullptr : &*found;
}

const ChatThread* WorkspaceTree::thread(const ThreadExecutionKey& key) const {
  if (lastWorkspace_ < workspaces_.size()) {
    const auto& threads = workspaces_[lastWorkspace_].threads;
    if (workspaces_[lastWorkspace_].id == key.workspaceID && lastThread_ < threads.size() &&
        threads[lastThread_].id == key.threadID) {
      return &threads[lastThread_];
    }
  }
  const Workspace* owner = workspace(key.workspaceID);
  const ChatThread* found = owner ? owner->thread(key.threadID) : nullptr;
  if (found) {
    lastWorkspace_ = static_cast<std::size_t>(owner - workspaces_.data());
    lastThread_ = static_cast<std::size_t>(found - owner->threads.data());
  }
  return found;
}

ChatThread* WorkspaceTree::find(const ThreadExecutionKey& key) {
  return const_cast<ChatThread*>(thread(key));
}

std::optional<std::string> WorkspaceTree::executionPath(const ThreadExecutionKey& key) const {
  const ChatThread* found = thread(key);
  if (!found) return std::nullopt;
  if (found->workspaceMode == TaskWorkspaceMode::isolated && found->isolatedWorkspacePath &&
      files::isFolder(*found->isolatedWorkspacePath)) {
    return found->isolatedWorkspacePath;
  }
  return workspace(key.workspaceID)->path;
}

void WorkspaceTree::addWorkspace(Workspace workspace) {
  workspaces_.push_back(std::move(workspace));
  changes_.announce({.kind = Change::Kind::workspacesChanged});
}

void WorkspaceTree::addThread(ChatThread thread, const Uuid& workspaceID) {
  const auto owner = std::ranges::find(workspaces_, workspaceID, &Workspace::id);
  if (owner == workspaces_.end()) return;
  owner->threads.insert(owner->threads.begin(), std::move(thread));
  changes_.announce({.kind = Change::Kind::workspacesChanged});
}

std::optional<ChatThread> WorkspaceTree::takeThread(const ThreadExecutionKey& key) {
  ChatThread* found = find(key);
  if (!found) return std::nullopt;
  auto& threads = std::ranges::find(workspaces_, key.workspaceID, &Workspace::id)->threads;
  std::optional<ChatThread> taken = std::move(*found);
  threads.erase(threads.begin() + (found - threads.data()));
  changes_.announce({.kind = Change::Kind::workspacesChanged});
  return taken;
}

void WorkspaceTree::removeWorkspace(const Uuid& id) {
  std::erase_if(workspaces_, [&id](const Workspace& each) { return each.id == id; });
  changes_.announce({.kind = Change::Kind::workspacesChanged});
}

void WorkspaceTree::setWorkspacePinned(const Uuid& id, bool pinned) {
  const auto found = std::ranges::find(workspaces_, id, &Workspace::id);
  if (found == workspaces_.end()) return;
  found->isPinned = pinned;
  changes_.announce({.kind = Change::Kind::workspacesChanged});
}

void WorkspaceTree::updateThread(const ThreadExecutionKey& key,
                                 const std::function<void(ChatThread&)>& mutate) {
  ChatThread* found = find(key);
  if (!found) return;
  mutate(*found);
  changed(Change::Kind::threadChanged, key);
}

void WorkspaceTree::updateThreadTitleIfNeeded(std::string_view prompt,
                                              const ThreadExecutionKey& key) {
  updateThread(key, [prompt](ChatThread& thread) { thread.nameAfterPrompt(prompt); });
}

void WorkspaceTree::appendEntry(ChatEntry entry, const ThreadExecutionKey& key) {
  ChatThread* found = find(key);
  if (!found) return;
  found->updatedAt = main_.now();
  const std::string id = entry.id;
  found->entries.append(std::move(entry));
  changed(Change::Kind::entryAdded, key, id);
}

void WorkspaceTree::appendSystemEntry(std::string text, const ThreadExecutionKey& key) {
  if (!thread(key)) return;
  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = ChatEntryKind::system;
  entry.text = std::move(text);
  entry.createdAt = main_.now();
  appendEntry(std::move(entry), key);
  save();
}

bool WorkspaceTree::appendText(std::string_view chunk, std::string_view entryID,
                               const ThreadExecutionKey& key) {
  ChatThread* found = find(key);
  ChatEntry* entry = found ? found->entries.find(entryID) : nullptr;
  if (!entry) return false;
  entry->text.append(chunk);
  found->updatedAt = main_.now();
  changed(Change::Kind::textAdded, key, entryID, chunk);
  return true;
}

bool WorkspaceTree::updateEntry(std::string_view entryID, const ThreadExecutionKey& key,
                                const std::function<void(ChatEntry&)>& mutate) {
  ChatThread* found = find(key);
  ChatEntry* entry = found ? found->entries.find(entryID) : nullptr;
  if (!entry) return false;
  mutate(*entry);
  found->updatedAt = main_.now();
  changed(Change::Kind::entryReplaced, key, entryID);
  return true;
}

void WorkspaceTree::replaceTranscript(Transcript entries, const ThreadExecutionKey& key) {
  ChatThread* found = find(key);
  if (!found) return;
  found->entries = std::move(entries);
  changed(Change::Kind::transcriptReplaced, key);
}

Uuid WorkspaceTree::beginRun(std::string prompt, const ThreadExecutionKey& key) {
  RunRecord run;
  run.id = Uuid::random();
  run.prompt = std::move(prompt);
  run.startedAt = main_.now();
  run.updatedAt = run.startedAt;
  const Uuid id = run.id;
  if (ChatThread* found = find(key)) {
    found->runs.push_back(std::move(run));
    changed(Change::Kind::runChanged, key, {}, {}, id);
    save();
  }
  return id;
}

const RunRecord* WorkspaceTree::run(const std::optional<Uuid>& runID,
                                    const ThreadExecutionKey& key) const {
  const ChatThread* found = runID ? thread(key) : nullptr;
  if (!found) return nullptr;
  // From the back: the run that is asked for is nearly always the last one.
  const auto run = std::find_if(found->runs.rbegin(), found->runs.rend(),
                                [&](const RunRecord& each) { return each.id == *runID; });
  return run == found->runs.rend() ? nullptr : &*run;
}

void WorkspaceTree::updateRun(const std::optional<Uuid>& runID, const ThreadExecutionKey& key,
                              const std::function<void(RunRecord&)>& mutate) {
  auto* const found = const_cast<RunRecord*>(run(runID, key));
  if (!found) return;
  mutate(*found);
  found->updatedAt = main_.now();
  changed(Change::Kind::runChanged, key, {}, {}, runID);
  save();
}

const RunRecord* WorkspaceTree::latestRun(const ThreadExecutionKey& key) const {
  const ChatThread* found = thread(key);
  return found ? found->latestRun() : nullptr;
}

void WorkspaceTree::changed(Change::Kind kind, const ThreadExecutionKey& key,
                            std::string_view entryID, std::string_view text,
                            std::optional<Uuid> runID) {
  changes_.announce({kind, key, entryID, text, runID});
}

}  // namespace vantrell
