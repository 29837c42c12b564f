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

// ---- projects -----------------------------------------------------------------------------------

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
    if (files::standardized(workspace.path) == folder)
      return core_.navigation.selectWorkspace(workspace.id);
  }
  // Records and protocols are JSON: such a path would be another one after a restart.
  if (!text::isValidUtf8(folder)) {
    return refuse(
        "The path of this folder is not valid UTF-8. Rename the folder, then open it again.");
  }
  Workspace workspace = Workspace::makeProject(folder, core_.main.now());
  const ThreadExecutionKey key{workspace.id, workspace.threads.front().id};
  core_.tree.addWorkspace(std::move(workspace));
  core_.navigation.show(key.workspaceID, key.threadID);
  return {};
}

Result<> WorkspaceOperations::removeWorkspace(const Uuid& id) {
  const Workspace* workspace = core_.tree.workspace(id);
  if (!workspace) return refuseMissingProject();
  if (core_.navigation.isGeneral(id)) return refuse("General cannot be removed.");
  for (const auto& thread : workspace->threads) core_.runs.forget({id, thread.id});
  core_.tree.removeWorkspace(id);
  if (core_.navigation.selection().workspaceID() == id) {
    const Uuid first = core_.navigation.generalWorkspace()->id;
    core_.navigation.show(first, core_.navigation.visibleThread(first));
  }
  return {};
}

Result<> WorkspaceOperations::setWorkspacePinned(const Uuid& id, bool pinned) {
  if (!core_.tree.workspace(id)) return refuseMissingProject();
  if (core_.navigation.isGeneral(id)) return refuse("General is always first.");
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
  ChatThread fresh = core_.navigation.replacementFor(id);
  if (core_.navigation.selection().workspaceID() == id) {
    core_.navigation.addAndSelect(std::move(fresh), id);
  } else {
    core_.tree.addThread(std::move(fresh), id);
  }
  core_.changes.mark(topics::remoteSnapshot);
  return {};
}

// ---- conversations ------------------------------------------------------------------------------

ExternalSessionImportSummary WorkspaceOperations::importSessions(
    std::vector<ExternalProviderSession> sessions) {
  const auto summary =
      ExternalSessionImporter::merge(std::move(sessions), core_.tree, core_.main.now());
  const bool isNews = summary.importedCount > 0 || summary.updatedCount > 0;
  const auto& workspaces = core_.tree.workspaces();
  if (isNews && !core_.navigation.selection().workspaceID() && !workspaces.empty()) {
    std::ignore = core_.navigation.selectWorkspace(workspaces.front().id);
  }
  return summary;
}

Result<> WorkspaceOperations::newThread(std::optional<Uuid> workspaceID) {
  const Selection& selection = core_.navigation.selection();
  if (selection.section() == AppSection::imagine) core_.navigation.setSection(AppSection::chat);
  if (!workspaceID && selection.section() == AppSection::chat) {
    workspaceID = core_.navigation.generalWorkspace()->id;
  } else if (!workspaceID && selection.workspaceID() &&
             !core_.navigation.isGeneral(*selection.workspaceID())) {
    workspaceID = selection.workspaceID();
  } else if (!workspaceID && core_.tree.workspaces().size() > 1) {
    workspaceID = core_.tree.workspaces()[1].id;  // the first that is not General
  }
  if (!workspaceID) {
    chooseProject();
    return {};
  }
  if (!core_.tree.workspace(*workspaceID)) return refuseMissingProject();
  const bool isTask =
      !core_.navigation.isGeneral(*workspaceID) && selection.section() != AppSection::chat;
  core_.navigation.addAndSelect(
      ChatThread::make(std::string(isTask ? newTaskTitle : newChatTitle), core_.main.now()),
      *workspaceID);
  return {};
}

bool WorkspaceOperations::isUntouched(const ThreadExecutionKey& key) const {
  const ChatThread* thread = core_.tree.thread(key);
  return thread && !core_.executions.choicesFor(key).isDriven && thread->runs.empty() &&
         thread->entries.empty() && !thread->draftText &&
         (thread->title == newTaskTitle || thread->title == newChatTitle);
}

std::optional<ThreadExecutionKey> WorkspaceOperations::untouchedThread(
    std::string_view folder) const {
  for (const auto& workspace : core_.tree.workspaces()) {
    if (files::standardized(workspace.path) != files::standardized(folder)) continue;
    const auto first = std::ranges::find(workspace.threads, false, &ChatThread::isArchived);
    if (first == workspace.threads.end()) return std::nullopt;
    const ThreadExecutionKey key{workspace.id, first->id};
    return isUntouched(key) ? std::optional(key) : std::nullopt;
  }
  return std::nullopt;
}

Result<ThreadExecutionKey> WorkspaceOperations::openUntouchedThread(std::string_view folder) {
  if (const auto added = addWorkspace(folder); !added) return std::unexpected(added.error());
  const Selection& selection = core_.navigation.selection();
  if (!selection.key() || !isUntouched(*selection.key())) {
    const auto made = newThread(selection.workspaceID());
    if (!made) return std::unexpected(made.error());
  }
  if (const auto key = selection.key()) return *key;
  return refuse("The task could not be opened. Try again.");
}

Result<> WorkspaceOperations::addThread(ChatThread thread, const Uuid& workspaceID) {
  if (!core_.tree.workspace(workspaceID)) return refuseMissingProject();
  core_.tree.addThread(std::move(thread), workspaceID);
  core_.changes.mark(topics::remoteSnapshot);
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
  const bool wasSelected = core_.navigation.selection().key() == key;
  core_.runs.forget(key);
  core_.tree.removeThread(key);
  if (core_.tree.workspace(workspaceID)->threads.empty()) {
    core_.tree.addThread(core_.navigation.replacementFor(workspaceID), workspaceID);
  }
  if (wasSelected)
    core_.navigation.replaceShown(workspaceID, core_.navigation.visibleThread(workspaceID));
  core_.navigation.fillIfSelected(workspaceID);
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
  const bool wasSelected = core_.navigation.selection().key() == key;
  // Its client, if it still has one, works in the old folder.
  core_.runs.forget(key);

  core_.tree.moveThread(key, to);
  if (core_.tree.workspace(from)->threads.empty()) {
    core_.tree.addThread(core_.navigation.replacementFor(from), from);
  }
  if (wasSelected) core_.navigation.show(to, id);
  core_.navigation.fillIfSelected(from);
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
  if (archived && core_.navigation.selection().key() == key) {
    core_.navigation.replaceShown(workspaceID, core_.navigation.visibleThread(workspaceID));
  }
  core_.navigation.fillIfSelected(workspaceID);
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
