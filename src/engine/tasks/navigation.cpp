#include "engine/tasks/navigation.h"

#include <algorithm>

namespace vantrell {

bool Navigation::isGeneral(const Uuid& workspaceID) const {
  const Workspace* general = generalWorkspace();
  return general && general->id == workspaceID;
}

ChatThread Navigation::replacementFor(const Uuid& workspaceID) const {
  return ChatThread::make(std::string(isGeneral(workspaceID) ? newChatTitle : newTaskTitle),
                          core_.main.now());
}

Uuid Navigation::visibleThread(const Uuid& workspaceID) {
  const auto& threads = core_.tree.workspace(workspaceID)->threads;
  const auto visible = std::ranges::find(threads, false, &ChatThread::isArchived);
  if (visible != threads.end()) return visible->id;
  ChatThread fresh = replacementFor(workspaceID);
  const Uuid id = fresh.id;
  core_.tree.addThread(std::move(fresh), workspaceID);
  return id;
}

void Navigation::fillIfSelected(const Uuid& workspaceID) {
  if (core_.selection.workspaceID() == workspaceID) visibleThread(workspaceID);
}

void Navigation::show(const Uuid& workspaceID, const Uuid& threadID,
                      std::optional<std::string> entryID) {
  visibleThread(workspaceID);  // the one to show may be an archived one
  core_.selection.select(workspaceID, threadID, std::move(entryID));
  core_.context.load();
  core_.git.refreshGitSnapshot();
}

void Navigation::replaceShown(const Uuid& workspaceID, const Uuid& threadID) {
  if (core_.selection.workspaceID() != workspaceID) return show(workspaceID, threadID);
  // The project is the same; the folder that the task works in may be another.
  core_.selection.select(workspaceID, threadID);
  core_.git.refreshGitSnapshot();
}

void Navigation::showInItsSection(const ThreadExecutionKey& key,
                                  std::optional<std::string> entryID) {
  core_.selection.setSection(isGeneral(key.workspaceID) ? AppSection::chat : AppSection::build);
  show(key.workspaceID, key.threadID, std::move(entryID));
}

void Navigation::addAndSelect(ChatThread thread, const Uuid& workspaceID) {
  const Uuid id = thread.id;
  core_.tree.addThread(std::move(thread), workspaceID);
  replaceShown(workspaceID, id);
}

Result<> Navigation::selectThread(const Uuid& id, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, id};
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  if (core_.selection.key() != key) show(workspaceID, id);
  return {};
}

Result<> Navigation::selectWorkspace(const Uuid& id) {
  if (!core_.tree.workspace(id)) return refuse("That project is no longer available.");
  return selectThread(visibleThread(id), id);
}

Result<> Navigation::selectActivity(const RunActivity& activity) {
  const ThreadExecutionKey key{activity.workspaceID, activity.threadID};
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  showInItsSection(key, std::nullopt);
  return {};
}

Result<> Navigation::openSearchResult(const Uuid& workspaceID, const Uuid& threadID,
                                      std::string_view entryID) {
  const ThreadExecutionKey key{workspaceID, threadID};
  const ChatThread* found = core_.tree.thread(key);
  if (!found) return refuseMissingConversation();
  // Of a transcript that is still to be read, this is only known once it is shown.
  const bool isThere = !found->entries.isRead() || found->entries.find(entryID) != nullptr;
  showInItsSection(key, isThere ? std::optional<std::string>(entryID) : std::nullopt);
  return {};
}

void Navigation::settleSelection() {
  const auto workspaceID = core_.selection.workspaceID();
  if (!workspaceID || !core_.tree.workspace(*workspaceID)) return;
  const auto& threads = core_.tree.workspace(*workspaceID)->threads;
  if (!std::ranges::all_of(threads, &ChatThread::isArchived)) return;
  core_.selection.select(workspaceID, visibleThread(*workspaceID));
}

std::vector<RecentTaskReference> Navigation::recentTaskReferences() const {
  const bool wantsGeneral = core_.selection.section() == AppSection::chat;
  std::vector<RecentTaskReference> references;
  for (const auto& workspace : core_.tree.workspaces()) {
    if (isGeneral(workspace.id) != wantsGeneral) continue;
    for (const auto& thread : workspace.threads) {
      if (!thread.isArchived) references.push_back({{workspace.id, thread.id}, thread.updatedAt});
    }
  }
  std::ranges::stable_sort(references, std::greater(), &RecentTaskReference::updatedAt);
  return references;
}

void Navigation::selectAdjacentRecentTask(int offset) {
  const auto references = recentTaskReferences();
  const auto count = static_cast<std::int64_t>(references.size());
  if (count < 2 || offset == 0) return;
  const auto selected = core_.selection.key();
  const auto found = std::ranges::find_if(
      references, [&](const auto& each) { return selected && each.key == *selected; });
  std::int64_t position = found - references.begin();
  // From outside the list, one step forward leads to its first, one step back to its last.
  if (found == references.end()) position = offset > 0 ? -1 : 0;
  const std::int64_t next = ((position + offset) % count + count) % count;
  const auto& key = references[static_cast<std::size_t>(next)].key;
  static_cast<void>(selectThread(key.threadID, key.workspaceID));
}

std::optional<std::string> Navigation::effectiveWorkspacePath() const {
  return core_.tree.executionPath(core_.selection.workspaceID(), core_.selection.threadID());
}

const Workspace* Navigation::generalWorkspace() const {
  return core_.tree.workspaces().empty() ? nullptr : &core_.tree.workspaces().front();
}

}  // namespace vantrell
