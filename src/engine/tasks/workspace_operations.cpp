#include "engine/tasks/workspace_operations.h"

#include <algorithm>

#include "platform/files/files.h"
#include "platform/queues/dispatch.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

std::unexpected<Refusal> refuseMissingProject() {
  return refuse("That project is no longer available.");
}

}  // namespace

/// Also where its turn has only begun and has no run yet.
bool WorkspaceOperations::isAtWork(const ThreadExecutionKey& key) const {
  const RunRecord* run = core_.tree.latestRun(key);
  return (run && isActive(run->status)) || core_.executions.isBusy(key);
}

bool WorkspaceOperations::isGeneral(const Uuid& workspaceID) const {
  const Workspace* general = generalWorkspace();
  return general && general->id == workspaceID;
}

ChatThread WorkspaceOperations::replacementFor(const Uuid& workspaceID) const {
  return ChatThread::make(std::string(isGeneral(workspaceID) ? newChatTitle : newTaskTitle),
                          core_.main.now());
}

Uuid WorkspaceOperations::visibleThread(const Uuid& workspaceID) {
  const auto& threads = core_.tree.workspace(workspaceID)->threads;
  const auto visible = std::ranges::find(threads, false, &ChatThread::isArchived);
  if (visible != threads.end()) return visible->id;
  ChatThread fresh = replacementFor(workspaceID);
  const Uuid id = fresh.id;
  core_.tree.addThread(std::move(fresh), workspaceID);
  return id;
}

void WorkspaceOperations::fillIfSelected(const Uuid& workspaceID) {
  if (core_.selection.workspaceID() == workspaceID) visibleThread(workspaceID);
}

void WorkspaceOperations::show(const Uuid& workspaceID, const Uuid& threadID,
                               std::optional<std::string> entryID) {
  visibleThread(workspaceID);  // the one to show may be an archived one
  core_.selection.select(workspaceID, threadID, std::move(entryID));
  core_.context.load();
  core_.git.refreshGitSnapshot();
}

void WorkspaceOperations::replaceShown(const Uuid& workspaceID, const Uuid& threadID) {
  if (core_.selection.workspaceID() != workspaceID) return show(workspaceID, threadID);
  // The project is the same; the folder that the task works in may be another.
  core_.selection.select(workspaceID, threadID);
  core_.git.refreshGitSnapshot();
}

void WorkspaceOperations::showInItsSection(const ThreadExecutionKey& key,
                                           std::optional<std::string> entryID) {
  core_.selection.setSection(isGeneral(key.workspaceID) ? AppSection::chat : AppSection::build);
  show(key.workspaceID, key.threadID, std::move(entryID));
}

void WorkspaceOperations::addAndSelect(ChatThread thread, const Uuid& workspaceID) {
  const Uuid id = thread.id;
  core_.tree.addThread(std::move(thread), workspaceID);
  replaceShown(workspaceID, id);
}

// ---- selection ----------------------------------------------------------------------------------

Result<> WorkspaceOperations::selectThread(const Uuid& id, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, id};
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  if (core_.selection.key() != key) show(workspaceID, id);
  return {};
}

Result<> WorkspaceOperations::selectWorkspace(const Uuid& id) {
  if (!core_.tree.workspace(id)) return refuseMissingProject();
  return selectThread(visibleThread(id), id);
}

Result<> WorkspaceOperations::selectActivity(const RunActivity& activity) {
  const ThreadExecutionKey key{activity.workspaceID, activity.threadID};
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  showInItsSection(key, std::nullopt);
  return {};
}

Result<> WorkspaceOperations::openSearchResult(const Uuid& workspaceID, const Uuid& threadID,
                                               std::string_view entryID) {
  const ThreadExecutionKey key{workspaceID, threadID};
  const ChatThread* found = core_.tree.thread(key);
  if (!found) return refuseMissingConversation();
  // Of a transcript that is still to be read, this is only known once it is shown.
  const bool isThere = !found->entries.isRead() || found->entries.find(entryID) != nullptr;
  showInItsSection(key, isThere ? std::optional<std::string>(entryID) : std::nullopt);
  return {};
}

void WorkspaceOperations::settleSelection() {
  const auto workspaceID = core_.selection.workspaceID();
  if (!workspaceID || !core_.tree.workspace(*workspaceID)) return;
  const auto& threads = core_.tree.workspace(*workspaceID)->threads;
  if (!std::ranges::all_of(threads, &ChatThread::isArchived)) return;
  core_.selection.select(workspaceID, visibleThread(*workspaceID));
}

std::vector<RecentTaskReference> WorkspaceOperations::recentTaskReferences() const {
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

void WorkspaceOperations::selectAdjacentRecentTask(int offset) {
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

std::optional<std::string> WorkspaceOperations::effectiveWorkspacePath() const {
  return core_.tree.executionPath(core_.selection.workspaceID(), core_.selection.threadID());
}

// ---- projects -----------------------------------------------------------------------------------

const Workspace* WorkspaceOperations::generalWorkspace() const {
  return core_.tree.workspaces().empty() ? nullptr : &core_.tree.workspaces().front();
}

void WorkspaceOperations::chooseProject() {
  core_.events.chooseFolder("Choose a project", "Open Project",
                            weakly(this, [](WorkspaceOperations& self, const std::string& path) {
                              const auto added = self.addWorkspace(path);
                              if (!added) self.core_.executions.showError(added.error().sentence);
                            }));
}

Result<> WorkspaceOperations::addWorkspace(std::string_view path) {
  const std::string folder = files::standardized(path);
  for (const auto& workspace : core_.tree.workspaces()) {
    if (files::standardized(workspace.path) == folder) return selectWorkspace(workspace.id);
  }
  // Records and protocols are JSON: such a path would be another one after a restart.
  if (!text::isValidUtf8(folder)) {
    return refuse(
        "The path of this folder is not valid UTF-8. Rename the folder, then open it again.");
  }
  Workspace workspace = Workspace::makeProject(folder, core_.main.now());
  const ThreadExecutionKey key{workspace.id, workspace.threads.front().id};
  core_.tree.addWorkspace(std::move(workspace));
  show(key.workspaceID, key.threadID);
  return {};
}

Result<> WorkspaceOperations::removeWorkspace(const Uuid& id) {
  const Workspace* workspace = core_.tree.workspace(id);
  if (!workspace) return refuseMissingProject();
  if (isGeneral(id)) return refuse("General cannot be removed.");
  for (const auto& thread : workspace->threads) core_.runs.forget({id, thread.id});
  core_.tree.removeWorkspace(id);
  if (core_.selection.workspaceID() == id) {
    const Uuid first = generalWorkspace()->id;
    show(first, visibleThread(first));
  }
  return {};
}

Result<> WorkspaceOperations::setWorkspacePinned(const Uuid& id, bool pinned) {
  if (!core_.tree.workspace(id)) return refuseMissingProject();
  if (isGeneral(id)) return refuse("General is always first.");
  core_.tree.setWorkspacePinned(id, pinned);
  return {};
}

Result<> WorkspaceOperations::archiveWorkspaceThreads(const Uuid& id) {
  const Workspace* workspace = core_.tree.workspace(id);
  if (!workspace) return refuseMissingProject();
  if (std::ranges::all_of(workspace->threads, &ChatThread::isArchived)) {
    return refuse("This project has no active conversations to archive.");
  }
  if (std::ranges::any_of(workspace->threads,
                          [&](const ChatThread& thread) { return isAtWork({id, thread.id}); })) {
    return refuse("Stop active tasks before archiving this project's conversations.");
  }
  std::vector<Uuid> ids;
  for (const auto& thread : workspace->threads) ids.push_back(thread.id);
  for (const auto& threadID : ids) {
    core_.tree.updateThread({id, threadID}, [](ChatThread& thread) {
      thread.isArchived = true;
      thread.isPinned = false;
    });
  }
  ChatThread fresh = replacementFor(id);
  if (core_.selection.workspaceID() == id) {
    addAndSelect(std::move(fresh), id);
  } else {
    core_.tree.addThread(std::move(fresh), id);
  }
  core_.changes.mark(topics::remoteSnapshot);
  return {};
}

// ---- conversations ------------------------------------------------------------------------------

Result<> WorkspaceOperations::newThread(std::optional<Uuid> workspaceID) {
  const Selection& selection = core_.selection;
  if (selection.section() == AppSection::imagine) setSection(AppSection::chat);
  if (!workspaceID && selection.section() == AppSection::chat) {
    workspaceID = generalWorkspace()->id;
  } else if (!workspaceID && selection.workspaceID() && !isGeneral(*selection.workspaceID())) {
    workspaceID = selection.workspaceID();
  } else if (!workspaceID && core_.tree.workspaces().size() > 1) {
    workspaceID = core_.tree.workspaces()[1].id;  // the first that is not General
  }
  if (!workspaceID) {
    chooseProject();
    return {};
  }
  if (!core_.tree.workspace(*workspaceID)) return refuseMissingProject();
  const bool isTask = !isGeneral(*workspaceID) && selection.section() != AppSection::chat;
  addAndSelect(
      ChatThread::make(std::string(isTask ? newTaskTitle : newChatTitle), core_.main.now()),
      *workspaceID);
  return {};
}

Result<> WorkspaceOperations::renameThread(const Uuid& id, const Uuid& workspaceID,
                                           std::string_view title) {
  const std::string trimmed(text::trimmed(title));
  const ThreadExecutionKey key{workspaceID, id};
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  if (trimmed.empty()) return refuse("A title needs at least one visible character.");
  core_.tree.updateThread(key, [&](ChatThread& thread) {
    thread.title = trimmed;
    thread.updatedAt = core_.main.now();
  });
  return {};
}

Result<> WorkspaceOperations::deleteThread(const Uuid& id, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, id};
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  const bool wasSelected = core_.selection.key() == key;
  core_.runs.forget(key);
  core_.tree.removeThread(key);
  if (core_.tree.workspace(workspaceID)->threads.empty()) {
    core_.tree.addThread(replacementFor(workspaceID), workspaceID);
  }
  if (wasSelected) replaceShown(workspaceID, visibleThread(workspaceID));
  fillIfSelected(workspaceID);
  return {};
}

Result<> WorkspaceOperations::moveThread(const Uuid& id, const Uuid& from, const Uuid& to) {
  const ThreadExecutionKey key{from, id};
  if (isAtWork(key)) {
    return refuse("Stop this conversation before moving it to another project.");
  }
  const Workspace* destination = core_.tree.workspace(to);
  if (!core_.tree.thread(key) || !destination) {
    return refuse("That conversation or destination project is no longer available.");
  }
  if (from == to) return {};
  const bool wasSelected = core_.selection.key() == key;
  // Its client, if it still has one, works in the old folder.
  core_.runs.forget(key);

  core_.tree.moveThread(key, to);
  if (core_.tree.workspace(from)->threads.empty()) {
    core_.tree.addThread(replacementFor(from), from);
  }
  if (wasSelected) show(to, id);
  fillIfSelected(from);
  core_.changes.mark(topics::remoteSnapshot);
  return {};
}

Result<> WorkspaceOperations::toggleThreadPin(const Uuid& id, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, id};
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  core_.tree.updateThread(key, [](ChatThread& thread) { thread.isPinned = !thread.isPinned; });
  return {};
}

Result<> WorkspaceOperations::setThreadArchived(const Uuid& id, const Uuid& workspaceID,
                                                bool archived) {
  const ThreadExecutionKey key{workspaceID, id};
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  if (archived && isAtWork(key)) return refuse("Stop this conversation before archiving it.");
  core_.tree.updateThread(key, [&](ChatThread& thread) {
    thread.isArchived = archived;
    if (archived) thread.isPinned = false;
  });
  if (archived && core_.selection.key() == key) {
    replaceShown(workspaceID, visibleThread(workspaceID));
  }
  fillIfSelected(workspaceID);
  return {};
}

// ---- drafts -------------------------------------------------------------------------------------

Result<> WorkspaceOperations::saveComposerDraft(std::string_view text,
                                                const std::vector<ChatAttachment>& attachments,
                                                const Uuid& threadID, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, threadID};
  const ChatThread* found = core_.tree.thread(key);
  if (!found) return refuseMissingConversation();
  if (found->draftText.value_or("") == text && found->draftAttachments == attachments) return {};
  core_.tree.updateThread(key, [&](ChatThread& thread) {
    thread.draftText = text.empty() ? std::nullopt : std::optional<std::string>(text);
    thread.draftAttachments = attachments;
  });
  return {};
}

std::string WorkspaceOperations::composerDraft(const Uuid& threadID,
                                               const Uuid& workspaceID) const {
  const ChatThread* found = core_.tree.thread({workspaceID, threadID});
  return found ? found->draftText.value_or("") : "";
}

std::vector<ChatAttachment> WorkspaceOperations::composerDraftAttachments(
    const Uuid& threadID, const Uuid& workspaceID) const {
  const ChatThread* found = core_.tree.thread({workspaceID, threadID});
  return found ? found->draftAttachments : std::vector<ChatAttachment>();
}

}  // namespace vantrell
