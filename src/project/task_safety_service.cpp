#include "project/task_safety_service.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <set>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/patch_git.h"
#include "project/restore_plan.h"
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

/// Of a folder that its repository ignores, nothing but tracked files is kept.
TaskSafetyResult<> refuseIgnored(const PatchGit& git, SafetyNotes& notes) {
  if (git.prefix().empty()) return {};
  if (!git.query({"check-ignore", "-q", "--no-index", "."}).succeeded()) return {};
  if (git.query({"ls-files", "-z"}).output.empty()) {
    return std::unexpected(
        TaskSafetyError::commandFailed("The Git repository that this folder is in ignores it, so "
                                       "none of its files would be kept."));
  }
  notes.emplace_back(
      "The Git repository that this folder is in ignores it: only tracked files are kept.");
  return {};
}

/// Files of the project that the worktree lacks or has otherwise.
std::vector<std::string> missingFiles(const PatchGit& source, const std::string& worktree) {
  const auto content = [](const std::string& path) {
    std::error_code code;
    auto link = std::filesystem::read_symlink(path, code);
    return code ? files::read(path).value_or("") : link.native();
  };
  const auto listed =
      source.query({"ls-files", "--cached", "--others", "--exclude-standard", "-z"}).parts();
  std::vector<std::string> missing;
  for (const auto& each : std::set<std::string>(listed.begin(), listed.end())) {
    const std::string from = fmt::format("{}/{}", source.path(), each);
    const std::string to = fmt::format("{}/{}", worktree, each);
    if (!standsAt(from) || isRealFolder(from)) continue;
    if (!standsAt(to) || content(from) != content(to)) missing.push_back(text::repaired(each));
  }
  return missing;
}

SafetyNotes notesOfBrokenTry(const std::vector<std::string>& missing) {
  constexpr std::string_view what = "An earlier attempt to make this worktree did not finish.";
  if (missing.empty()) return {fmt::format("{} It has all files of the project.", what)};
  return {fmt::format("{} These files of the project are missing in it or differ: {}.", what,
                      firstOf(missing))};
}

TaskSafetyError noCommit(std::string_view what) {
  return TaskSafetyError::commandFailed(
      fmt::format("The repository has no commit yet that a {}. Commit once first.", what));
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
    return fail(noCommit("checkpoint could go back to"));
  }
  if (auto kept = refuseIgnored(git, captured.notes); !kept) return fail(kept.error());
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
  const PatchGit git(workspacePath);
  RestorePlan plan(git, archive, *checkpoint.baseRevision,
                   recovery ? std::optional(recovery->archivePath) : std::nullopt);
  if (auto prepared = plan.prepare(); !prepared) return std::unexpected(prepared.error());
  if (auto done = plan.carryOut(); !done) return std::unexpected(done.error());
  return plan.notes();
}

// ---- worktrees ----------------------------------------------------------------------------------

TaskSafetyResult<TaskSafetyService::Worktree> TaskSafetyService::createIsolatedWorktree(
    const Uuid& workspaceID, const Uuid& threadID, const std::string& sourcePath) const {
  const auto fail = [](const TaskSafetyError& error) { return std::unexpected(error); };
  const PatchGit source(sourcePath);
  if (source.query({"rev-parse", "--is-inside-work-tree"}).text() != "true") {
    return fail(TaskSafetyError::notRepository());
  }
  std::string part = source.prefix();
  if (part.ends_with('/')) part.pop_back();

  const std::string folder = fmt::format("{}/worktrees/{}", root_, lowerCase(workspaceID));
  if (auto made = secureDirectory(folder); !made) return fail(made.error());
  const std::string top = fmt::format("{}/{}", folder, lowerCase(threadID));
  const std::string path = part.empty() ? top : fmt::format("{}/{}", top, part);
  // Stands for as long as the worktree is not complete.
  const std::string unfinished = top + ".unfinished";
  if (standsAt(top)) {
    if (!standsAt(unfinished)) return Worktree{path, {}};
    // Git may have been killed before it got there; without it the task would work in the project.
    if (auto made = makeParents(top, part + "/"); !made) return fail(made.error());
    return Worktree{path, notesOfBrokenTry(missingFiles(source, path))};
  }
  SafetyNotes notes;
  if (!source.query({"rev-parse", "--verify", "HEAD"}).succeeded()) {
    return fail(noCommit("worktree could start from"));
  }
  if (auto kept = refuseIgnored(source, notes); !kept) return fail(kept.error());
  // Before there is a worktree that would lack what is not committed.
  if (auto clean = refuseConflicts(source); !clean) return fail(clean.error());
  if (auto marked = files::writeAtomically(unfinished, ""); !marked) {
    return fail(TaskSafetyError::filesFailed(marked.error().description));
  }
  // Twice: git may still know, and have locked, one that was killed or whose folder was removed.
  if (auto added =
          source.modify({"worktree", "add", "--force", "--force", "--detach", top, "HEAD"});
      !added) {
    if (!standsAt(top)) ::unlink(unfinished.c_str());
    if (added.error().message.empty()) {
      added.error().message = "Git could not create an isolated worktree.";
    }
    return fail(added.error());
  }
  if (auto made = makeParents(top, part + "/"); !made) return fail(made.error());
  if (auto copied = copyCurrentChanges(source, path, notes); !copied) return fail(copied.error());
  ::unlink(unfinished.c_str());
  return Worktree{path, std::move(notes)};
}

TaskSafetyResult<> TaskSafetyService::copyCurrentChanges(const PatchGit& source,
                                                         const std::string& target,
                                                         SafetyNotes& notes) const {
  WorkBudget budget;
  const OwnFolder folder;
  if (auto made = secureDirectory(folder.path()); !made) return made;
  if (auto kept = changes::recordPatches(source, folder.path()); !kept) return kept;
  if (auto kept = changes::recordRest(source, folder.path(), budget, notes); !kept) return kept;
  const PatchGit git(target);
  RestorePlan plan(git, folder.path(), git.query({"rev-parse", "HEAD"}).text(), std::nullopt);
  if (auto prepared = plan.prepare(); !prepared) return prepared;
  if (auto done = plan.carryOut(); !done) return done;
  const auto copied = changes::copyUntracked(source, target, budget, notes);
  if (!copied) return std::unexpected(copied.error());
  std::ranges::copy(plan.notes(), std::back_inserter(notes));
  return {};
}

}  // namespace vantrell
