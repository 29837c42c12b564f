#include "engine/tasks/workspace_operations.h"

#include "platform/files/files.h"
#include "platform/queues/dispatch.h"
#include "platform/text/text.h"

namespace vantrell {

WorkspaceOperations::WorkspaceOperations(EngineCore& core, ProjectContextService& context,
                                         GitSnapshotService& git)
    : main_(core.main),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      context_(context),
      git_(git),
      ports_(core.ports) {}

namespace {

bool hasActiveRun(const ChatThread& thread) {
  const RunRecord* run = thread.latestRun();
  return run && isActive(run->status);
}

}  // namespace

bool WorkspaceOperations::isGeneral(const Uuid& workspaceID) const {
  const Workspace* general = generalWorkspace();
  return general && general->id == workspaceID;
}

ChatThread WorkspaceOperations::replacementFor(const Uuid& workspaceID) const {
  return ChatThread::make(std::string(isGeneral(workspaceID) ? newChatTitle : newTaskTitle),
                          main_.now());
}

Uuid WorkspaceOperations::visibleThread(const Uuid& workspaceID) {
  const auto& threads = tree_.workspace(workspaceID)->threads;
  const auto visible = std::ranges::find(threads, false, &ChatThread::isArchived);
  if (visible != threads.end()) return visible->id;
  ChatThread fresh = replacementFor(workspaceID);
  const Uuid id = fresh.id;
  tree_.addThread(std::move(fresh), workspaceID);
  return id;
}

void WorkspaceOperations::fillIfSelected(const Uuid& workspaceID) {
  if (selection_.workspaceID() == workspaceID) visibleThread(workspaceID);
}

void WorkspaceOperations::show(const Uuid& workspaceID, const Uuid& threadID,
                               std::optional<std::string> entryID) {
  visibleThread(workspaceID);  // the one to show may be an archived one
  executions_.selectExecution(workspaceID, threadID, std::move(entryID));
  context_.load();
  git_.refreshGitSnapshot();
}

void WorkspaceOperations::showInItsSection(const ThreadExecutionKey& key,
                                           std::optional<std::string> entryID) {
  selection_.section = isGeneral(key.workspaceID) ? AppSection::chat : AppSection::build;
  show(key.workspaceID, key.threadID, std::move(entryID));
}

void WorkspaceOperations::addAndSelect(ChatThread thread, const Uuid& workspaceID) {
  const Uuid id = thread.id;
  tree_.addThread(std::move(thread), workspaceID);
  if (selection_.workspaceID() == workspaceID) {
    executions_.selectExecution(workspaceID, id);
  } else {
    show(workspaceID, id);
  }
}

// ---- selection ----------------------------------------------------------------------------------

void WorkspaceOperations::selectThread(const Uuid& id, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, id};
  if (selection_.key() == key || !tree_.thread(key)) return;
  show(workspaceID, id);
}

void WorkspaceOperations::selectWorkspace(const Uuid& id) {
  if (tree_.workspace(id)) selectThread(visibleThread(id), id);
}

void WorkspaceOperations::selectActivity(const RunActivity& activity) {
  const ThreadExecutionKey key{activity.workspaceID, activity.threadID};
  if (tree_.thread(key)) showInItsSection(key, std::nullopt);
}

void WorkspaceOperations::openSearchResult(const Uuid& workspaceID, const Uuid& threadID,
                                           std::string_view entryID) {
  const ThreadExecutionKey key{workspaceID, threadID};
  const ChatThread* found = tree_.thread(key);
  if (!found) return;
  const bool isThere = found->entries.find(entryID) != nullptr;
  showInItsSection(key, isThere ? std::optional<std::string>(entryID) : std::nullopt);
}

void WorkspaceOperations::settleSelection() {
  const auto workspaceID = selection_.workspaceID();
  if (!workspaceID || !tree_.workspace(*workspaceID)) return;
  const auto& threads = tree_.workspace(*workspaceID)->threads;
  if (!std::ranges::all_of(threads, &ChatThread::isArchived)) return;
  selection_.select(workspaceID, visibleThread(*workspaceID));
}

std::vector<RecentTaskReference> WorkspaceOperations::recentTaskReferences() const {
  const bool wantsGeneral = selection_.section == AppSection::chat;
  std::vector<RecentTaskReference> references;
  for (const auto& workspace : tree_.workspaces()) {
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
  const auto selected = selection_.key();
  const auto found = std::ranges::find_if(
      references, [&](const auto& each) { return selected && each.key == *selected; });
  std::int64_t position = found - references.begin();
  // From outside the list, one step forward leads to its first, one step back to its last.
  if (found == references.end()) position = offset > 0 ? -1 : 0;
  const std::int64_t next = ((position + offset) % count + count) % count;
  const auto& key = references[static_cast<std::size_t>(next)].key;
  selectThread(key.threadID, key.workspaceID);
}

std::optional<std::string> WorkspaceOperations::effectiveWorkspacePath() const {
  return tree_.executionPath(selection_.workspaceID(), selection_.threadID());
}

// ---- projects -----------------------------------------------------------------------------------

const Workspace* WorkspaceOperations::generalWorkspace() const {
  return tree_.workspaces().empty() ? nullptr : &tree_.workspaces().front();
}

void WorkspaceOperations::chooseProject() {
  ports_.chooseFolder("Choose a project", "Open Project",
                      [this](const std::string& path) { addWorkspace(path); });
}

void WorkspaceOperations::addWorkspace(std::string_view path) {
  const std::string folder = files::standardized(path);
  for (const auto& workspace : tree_.workspaces()) {
    if (files::standardized(workspace.path) == folder) return selectWorkspace(workspace.id);
  }
  // Records and protocols are JSON: such a path would be another one after a restart.
  if (!text::isValidUtf8(folder)) {
    return executions_.showError(
        "The path of this folder is not valid UTF-8. Rename the folder, then open it again.");
  }
  Workspace workspace = Workspace::makeProject(folder, main_.now());
  const ThreadExecutionKey key{workspace.id, workspace.threads.front().id};
  tree_.addWorkspace(std::move(workspace));
  show(key.workspaceID, key.threadID);
}

void WorkspaceOperations::removeWorkspace(const Uuid& id) {
  const Workspace* workspace = tree_.workspace(id);
  if (!workspace || isGeneral(id)) return;
  for (const auto& thread : workspace->threads) executions_.remove({id, thread.id});
  tree_.removeWorkspace(id);
  if (selection_.workspaceID() == id) {
    executions_.publishExecution(std::nullopt);
    const Uuid first = generalWorkspace()->id;
    show(first, visibleThread(first));
  }
}

void WorkspaceOperations::setWorkspacePinned(const Uuid& id, bool pinned) {
  if (!tree_.workspace(id) || isGeneral(id)) return;
  tree_.setWorkspacePinned(id, pinned);
}

void WorkspaceOperations::archiveWorkspaceThreads(const Uuid& id) {
  const Workspace* workspace = tree_.workspace(id);
  if (!workspace) return;
  if (std::ranges::all_of(workspace->threads, &ChatThread::isArchived)) {
    return executions_.showError("This project has no active conversations to archive.");
  }
  if (std::ranges::any_of(workspace->threads, hasActiveRun)) {
    return executions_.showError(
        "Stop active tasks before archiving this project's conversations.");
  }
  std::vector<Uuid> ids;
  for (const auto& thread : workspace->threads) ids.push_back(thread.id);
  for (const auto& threadID : ids) {
    tree_.updateThread({id, threadID}, [](ChatThread& thread) {
      thread.isArchived = true;
      thread.isPinned = false;
    });
  }
  ChatThread fresh = replacementFor(id);
  if (selection_.workspaceID() == id) {
    addAndSelect(std::move(fresh), id);
  } else {
    tree_.addThread(std::move(fresh), id);
  }
  ports_.updateRemoteSnapshot();
}

// ---- conversations ------------------------------------------------------------------------------

void WorkspaceOperations::newThread(std::optional<Uuid> workspaceID) {
  if (selection_.section == AppSection::imagine) selection_.section = AppSection::chat;
  if (!workspaceID && selection_.section == AppSection::chat) {
    workspaceID = generalWorkspace()->id;
  } else if (!workspaceID && selection_.workspaceID() && !isGeneral(*selection_.workspaceID())) {
    workspaceID = selection_.workspaceID();
  } else if (!workspaceID && tree_.workspaces().size() > 1) {
    workspaceID = tree_.workspaces()[1].id;  // the first that is not General
  }
  if (!workspaceID) return chooseProject();
  if (!tree_.workspace(*workspaceID)) return;
  const bool isTask = !isGeneral(*workspaceID) && selection_.section != AppSection::chat;
  addAndSelect(ChatThread::make(std::string(isTask ? newTaskTitle : newChatTitle), main_.now()),
               *workspaceID);
}

void WorkspaceOperations::renameThread(const Uuid& id, const Uuid& workspaceID,
                                       std::string_view title) {
  const std::string trimmed(text::trimmed(title));
  const ThreadExecutionKey key{workspaceID, id};
  if (trimmed.empty() || !tree_.thread(key)) return;
  tree_.updateThread(key, [&](ChatThread& thread) {
    thread.title = trimmed;
    thread.updatedAt = main_.now();
  });
}

void WorkspaceOperations::deleteThread(const Uuid& id, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, id};
  if (!tree_.thread(key)) return;
  const bool wasSelected = selection_.key() == key;
  executions_.remove(key);
  tree_.removeThread(key);
  if (tree_.workspace(workspaceID)->threads.empty()) {
    tree_.addThread(replacementFor(workspaceID), workspaceID);
  }
  if (wasSelected) {
    executions_.publishExecution(std::nullopt);
    executions_.selectExecution(workspaceID, visibleThread(workspaceID));
  }
  fillIfSelected(workspaceID);
}

void WorkspaceOperations::moveThread(const Uuid& id, const Uuid& from, const Uuid& to) {
  const ThreadExecutionKey key{from, id};
  const ChatThread* thread = tree_.thread(key);
  const auto* execution = executions_.find(key);
  if ((thread && hasActiveRun(*thread)) || (execution && execution->connectionState.isBusy())) {
    return executions_.showError("Stop this conversation before moving it to another project.");
  }
  const Workspace* destination = tree_.workspace(to);
  if (!thread || !destination) {
    return executions_.showError(
        "That conversation or destination project is no longer available.");
  }
  if (from == to) return;
  const bool wasSelected = selection_.key() == key;
  executions_.captureMirroredExecution();
  // Its client, if it still has one, works in the old folder.
  executions_.remove(key);

  tree_.moveThread(key, to);
  if (tree_.workspace(from)->threads.empty()) tree_.addThread(replacementFor(from), from);
  if (wasSelected) show(to, id);
  fillIfSelected(from);
  ports_.updateRemoteSnapshot();
}

void WorkspaceOperations::toggleThreadPin(const Uuid& id, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, id};
  if (!tree_.thread(key)) return;
  tree_.updateThread(key, [](ChatThread& thread) { thread.isPinned = !thread.isPinned; });
}

void WorkspaceOperations::setThreadArchived(const Uuid& id, const Uuid& workspaceID,
                                            bool archived) {
  const ThreadExecutionKey key{workspaceID, id};
  const ChatThread* found = tree_.thread(key);
  if (!found) return;
  if (archived && hasActiveRun(*found)) {
    return executions_.showError("Stop this conversation before archiving it.");
  }
  tree_.updateThread(key, [&](ChatThread& thread) {
    thread.isArchived = archived;
    if (archived) thread.isPinned = false;
  });
  if (archived && selection_.key() == key) {
    executions_.selectExecution(workspaceID, visibleThread(workspaceID));
  }
  fillIfSelected(workspaceID);
}

void WorkspaceOperations::updateActiveThread(const std::function<void(ChatThread&)>& mutate) {
  if (const auto key = selection_.key()) tree_.updateThread(*key, mutate);
}

// ---- drafts -------------------------------------------------------------------------------------

void WorkspaceOperations::saveComposerDraft(std::string_view text,
                                            const std::vector<ChatAttachment>& attachments,
                                            const Uuid& threadID, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, threadID};
  const ChatThread* found = tree_.thread(key);
  if (!found) return;
  if (found->draftText.value_or("") == text && found->draftAttachments == attachments) return;
  tree_.updateThread(key, [&](ChatThread& thread) {
    thread.draftText = text.empty() ? std::nullopt : std::optional<std::string>(text);
    thread.draftAttachments = attachments;
  });
}

std::string WorkspaceOperations::composerDraft(const Uuid& threadID,
                                               const Uuid& workspaceID) const {
  const ChatThread* found = tree_.thread({workspaceID, threadID});
  return found ? found->draftText.value_or("") : "";
}

std::vector<ChatAttachment> WorkspaceOperations::composerDraftAttachments(
    const Uuid& threadID, const Uuid& workspaceID) const {
  const ChatThread* found = tree_.thread({workspaceID, threadID});
  return found ? found->draftAttachments : std::vector<ChatAttachment>();
}

}  // namespace vantrell
