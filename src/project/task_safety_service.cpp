#include "project/task_safety_service.h"

#include <algorithm>
#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/patch_git.h"
#include "project/restore_guard.h"
#include "project/tree_copy.h"

namespace vantrell {

namespace {

std::string lowerCase(const Uuid& id) {
  return text::lowercased(id.text());
}

WorkBudget budgetFor(WorkspaceCheckpointKind kind) {
  if (kind != WorkspaceCheckpointKind::automatic) return {};
  return {.deadline = std::chrono::steady_clock::now() + TaskSafetyService::automaticTime,
          .files = TaskSafetyService::automaticFiles,
          .bytes = TaskSafetyService::automaticBytes};
}

/// The lines of the status.
TaskSafetyResult<std::int64_t> countChanges(const PatchGit& git) {
  const auto status = git.queryOrFail({"status", "--porcelain=v1"});
  if (!status) return std::unexpected(status.error());
  std::int64_t count = 0;
  for (const auto line : text::split(status->output, '\n')) {
    if (!line.empty()) ++count;
  }
  return count;
}

/// A merge that is not resolved has states that no patch can say.
TaskSafetyResult<> refuseConflicts(const PatchGit& git) {
  const auto unmerged = git.queryOrFail({"ls-files", "--unmerged", "-z"});
  if (!unmerged) return std::unexpected(unmerged.error());
  if (unmerged->output.empty()) return {};
  return std::unexpected(
      TaskSafetyError::commandFailed("There are merge conflicts that are not resolved yet."));
}

bool isRevision(const std::string& text) {
  return text.size() >= 40 && text.find_first_not_of("0123456789abcdef") == text.npos;
}

SafetyNotes submoduleNotes(const PatchGit& git) {
  constexpr std::size_t shown = 5;
  const GitResult staged = git.query({"ls-files", "--stage", "-z"});
  std::vector<std::string> names;
  for (const auto& line : staged.parts()) {
    if (line.starts_with("160000 "))
      names.push_back(text::repaired(line.substr(line.find('\t') + 1)));
  }
  if (names.empty()) return {};
  const std::size_t more = names.size() - std::min(names.size(), shown);
  names.resize(names.size() - more);
  return {fmt::format("Submodules stay as they are: {}{}.", text::joined(names, ", "),
                      more > 0 ? fmt::format(" and {} more", more) : "")};
}

}  // namespace

TaskSafetyService::TaskSafetyService(std::string supportFolder)
    : root_(std::move(supportFolder) + "/TaskSafety") {}

// ---- checkpoints --------------------------------------------------------------------------------

TaskSafetyResult<TaskSafetyService::Captured> TaskSafetyService::captureCheckpoint(
    const Request& request) const {
  WorkBudget budget = budgetFor(request.kind);
  const PatchGit git(request.workspacePath, budget);
  const auto fail = [](const TaskSafetyError& error) { return std::unexpected(error); };
  const GitResult inside = git.query({"rev-parse", "--is-inside-work-tree"});
  if (inside.hasRunOut) return fail(gitError(inside));
  if (!inside.succeeded()) return fail(TaskSafetyError::notRepository());

  Captured captured;
  WorkspaceCheckpoint& checkpoint = captured.checkpoint;
  checkpoint.id = Uuid::random();
  checkpoint.label = request.label;
  checkpoint.kind = request.kind;
  checkpoint.createdAt = request.now;
  checkpoint.conversationEntryCount = request.entryCount;
  checkpoint.sourceMessageID = request.sourceMessageID;
  checkpoint.archivePath =
      fmt::format("{}/checkpoints/{}/{}/{}", root_, lowerCase(request.workspaceID),
                  lowerCase(request.threadID), lowerCase(checkpoint.id));
  if (auto made = secureDirectory(root_); !made) return fail(made.error());
  OwnFolder archive(checkpoint.archivePath);
  if (auto made = secureDirectory(archive.path()); !made) return fail(made.error());

  const GitResult head = git.query({"rev-parse", "HEAD"});
  if (head.hasRunOut) return fail(gitError(head));
  checkpoint.baseRevision = head.text();
  if (!head.succeeded() || checkpoint.baseRevision->empty()) {
    return fail(TaskSafetyError::commandFailed(
        "The repository has no commit yet that a checkpoint could go back to. Commit once first."));
  }
  if (auto clean = refuseConflicts(git); !clean) return fail(clean.error());
  if (auto kept = changes::recordPatches(git, archive.path()); !kept) return fail(kept.error());
  auto proven = changes::provePatches(git, archive.path(), *checkpoint.baseRevision);
  if (!proven) return fail(proven.error());
  const auto untracked = changes::copyUntracked(
      git, fmt::format("{}/{}", archive.path(), changes::untrackedFolder), budget, captured.notes);
  if (!untracked) return fail(untracked.error());
  const auto count = countChanges(git);
  if (!count) return fail(count.error());
  checkpoint.changedFileCount = std::max(static_cast<std::int64_t>(*untracked), *count);
  auto rest = changes::recordRest(git, archive.path(), budget, captured.notes);
  if (!rest) return fail(rest.error());
  if (auto secured = secureDirectory(archive.path()); !secured) return fail(secured.error());
  archive.keep();
  return captured;
}

TaskSafetyResult<SafetyNotes> TaskSafetyService::restore(
    const WorkspaceCheckpoint& checkpoint, const std::string& workspacePath,
    const WorkspaceCheckpoint* recovery) const {
  const std::string archive = files::standardized(checkpoint.archivePath);
  if (!archive.starts_with(files::standardized(root_) + "/checkpoints/") ||
      !files::isFolder(archive) || !checkpoint.baseRevision ||
      !isRevision(*checkpoint.baseRevision)) {
    return std::unexpected(TaskSafetyError::invalidArchive());
  }
  const std::string& base = *checkpoint.baseRevision;
  const PatchGit git(workspacePath);
  RestoreGuard guard(git, archive, base,
                     recovery ? std::optional(recovery->archivePath) : std::nullopt);
  if (auto prepared = guard.prepare(); !prepared) return std::unexpected(prepared.error());

  const auto halfWay = [](TaskSafetyError error) {
    error.mayHaveChangedFiles = true;
    return std::unexpected(std::move(error));
  };
  if (guard.hasTrackedFiles()) {
    std::vector<std::string> command{"restore", "--source", base, "--staged", "--worktree"};
    GitOptions options;
    if (std::string pathspecs = guard.pathspecs(); pathspecs.empty()) {
      command.insert(command.end(), {"--", "."});
    } else {
      command.insert(command.end(), {"--pathspec-from-file=-", "--pathspec-file-nul"});
      options.input = std::move(pathspecs);
    }
    auto restored = git.modify(std::move(command), std::move(options));
    if (!restored) return halfWay(restored.error());
  }
  if (auto saved = guard.saveBeforeCleaning(); !saved) return halfWay(saved.error());
  auto cleaned = git.modify({"clean", "-fd"}, {.configuration = guard.cleaningConfiguration()});
  // Git cannot remove the folder that it works in, where all of that is untracked.
  if (!cleaned && !guard.isClean()) return halfWay(cleaned.error());
  if (auto cleared = guard.clearTheWay(); !cleared) return halfWay(cleared.error());
  if (auto applied = changes::applyPatches(git, archive); !applied) return halfWay(applied.error());
  if (auto cleared = guard.clearPlacesOfUntracked(); !cleared) return halfWay(cleared.error());
  SafetyNotes notes = submoduleNotes(git);
  const std::string untracked = fmt::format("{}/{}", archive, changes::untrackedFolder);
  if (standsAt(untracked)) {
    auto copied = changes::copyDirectoryContents(untracked, workspacePath, notes);
    if (!copied) return halfWay(copied.error());
  }
  if (auto applied = changes::applyRest(git, archive); !applied) return halfWay(applied.error());
  if (auto brought = guard.bringBackIgnored(); !brought) return halfWay(brought.error());
  std::ranges::move(guard.notes(), std::back_inserter(notes));
  return notes;
}

// ---- worktrees ----------------------------------------------------------------------------------

TaskSafetyResult<TaskSafetyService::Worktree> TaskSafetyService::createIsolatedWorktree(
    const Uuid& workspaceID, const Uuid& threadID, const std::string& sourcePath) const {
  const auto fail = [](const TaskSafetyError& error) { return std::unexpected(error); };
  const PatchGit source(sourcePath);
  if (source.query({"rev-parse", "--is-inside-work-tree"}).text() != "true") {
    return fail(TaskSafetyError::notRepository());
  }
  std::string part = source.query({"rev-parse", "--show-prefix"}).output;
  while (part.ends_with('\n') || part.ends_with('/')) part.pop_back();

  const std::string folder = fmt::format("{}/worktrees/{}", root_, lowerCase(workspaceID));
  if (auto made = secureDirectory(folder); !made) return fail(made.error());
  const std::string top = fmt::format("{}/{}", folder, lowerCase(threadID));
  const std::string path = part.empty() ? top : fmt::format("{}/{}", top, part);
  if (standsAt(top)) return Worktree{path, {}};
  // Before there is a worktree that would lack what is not committed.
  if (auto clean = refuseConflicts(source); !clean) return fail(clean.error());
  if (auto added = source.modify({"worktree", "add", "--detach", top, "HEAD"}); !added) {
    if (added.error().message.empty()) {
      added.error().message = "Git could not create an isolated worktree.";
    }
    return fail(added.error());
  }
  if (auto made = makeParents(top, part + "/", false); !made) return fail(made.error());
  auto notes = copyCurrentChanges(source, path);
  if (!notes) return fail(notes.error());
  return Worktree{path, std::move(*notes)};
}

TaskSafetyResult<SafetyNotes> TaskSafetyService::copyCurrentChanges(
    const PatchGit& source, const std::string& target) const {
  SafetyNotes notes;
  WorkBudget budget;
  const OwnFolder folder;
  if (auto made = secureDirectory(folder.path()); !made) return std::unexpected(made.error());
  if (auto kept = changes::recordPatches(source, folder.path()); !kept) {
    return std::unexpected(kept.error());
  }
  auto rest = changes::recordRest(source, folder.path(), budget, notes);
  if (!rest) return std::unexpected(rest.error());
  const PatchGit git(target);
  if (auto applied = changes::applyPatches(git, folder.path()); !applied) {
    return std::unexpected(applied.error());
  }
  const auto copied = changes::copyUntracked(source, target, budget, notes);
  if (!copied) return std::unexpected(copied.error());
  if (auto applied = changes::applyRest(git, folder.path()); !applied) {
    return std::unexpected(applied.error());
  }
  std::ranges::move(submoduleNotes(git), std::back_inserter(notes));
  return notes;
}

}  // namespace vantrell
