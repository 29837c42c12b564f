#include "project/restore_run.h"

#include <cerrno>
#include <cstdio>
#include <ranges>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "project/uncommitted_changes.h"

namespace vantrell {

TaskSafetyResult<> RestoreRun::carryOut() {
  if (auto locked = index_.lock(); !locked) return locked;
  for (const auto& [folder, mode] : lists_.lockedFolders) ::chmod(folder.c_str(), mode | S_IRWXU);
  auto done = changeFiles();
  if (done) done = index_.replace();
  if (!done) {
    done.error().mayHaveChangedFiles = true;
    return done;
  }
  // Nothing of the rest matters enough to fail.
  (void)places_.git.modify({"update-index", "-q", "--refresh", "--ignore-submodules"});
  for (const auto& [folder, mode] : lists_.lockedFolders) {
    if (isRealFolder(folder)) ::chmod(folder.c_str(), mode);  // it may be a file by now
  }
  return {};
}

TaskSafetyResult<> RestoreRun::changeFiles() {
  for (const auto& each : lists_.removed) removeFile(each);
  // They are empty by now, when the innermost goes first.
  for (const auto& each : lists_.clearedFolders | std::views::reverse) {
    ::rmdir(places_.inProject(each).c_str());
  }
  for (const auto* paths : lists_.placed()) {
    for (const auto& each : *paths) {
      if (auto placed = place(each); !placed) return placed;
    }
  }
  removeUntracked();
  for (const auto& each : lists_.emptyFolders) removeEmpty(each);
  for (const auto& each : lists_.submodules) {
    // Only where nothing is in it.
    if (!lists_.target.contains(each)) ::rmdir(places_.inProject(each).c_str());
  }
  const std::string& project = places_.git.path();
  const std::string modes = places_.archived(changes::emptyFolderTree, "");
  TaskSafetyResult<> made;
  for (const auto& each : lists_.targetFolders) {
    if (made) made = makeParents(project, each + "/", modes);
  }
  for (const auto& each : lists_.submoduleFolders) {
    if (made) made = makeParents(project, each + "/");
  }
  return made;
}

/// The rules of what is ignored are those of the checkpoint by now; what they ignore stays.
void RestoreRun::removeUntracked() {
  std::vector<std::string> left;
  for (const auto& each : lists_.untracked) {
    const bool isPlaced = lists_.archivedUntracked.contains(each) || lists_.target.contains(each);
    if (!isPlaced && places_.stands(each)) left.push_back(each);
  }
  const auto ignored = ignoredOf(places_.git, left);
  const RestoreLists::Paths staying(ignored.begin(), ignored.end());
  for (const auto& each : left) {
    if (!staying.contains(each)) removeFile(each);
  }
}

/// And the folders above that are empty then.
void RestoreRun::removeFile(const std::string& path) {
  if (isBelowFile(places_.git.path(), path)) return;
  if (::unlink(places_.inProject(path).c_str()) == 0 || errno == ENOENT) {
    removeEmpty(files::parent(path));
  }
}

void RestoreRun::removeEmpty(std::string folder) {
  if (isBelowFile(places_.git.path(), folder)) return;
  while (!folder.empty() && !lists_.target.contains(folder) &&
         ::rmdir(places_.inProject(folder).c_str()) == 0) {
    folder = files::parent(folder);
  }
}

TaskSafetyResult<> RestoreRun::place(const std::string& path) {
  const std::string from = places_.staged(path);
  const std::string to = places_.inProject(path);
  if (!standsAt(from)) return {};  // it is in its place already
  const auto made =
      makeParents(places_.git.path(), path, places_.archived(changes::untrackedFolder, ""));
  if (!made) return made;
  if (lists_.fromGit.contains(path)) keepMode(from, to);
  if (::rename(from.c_str(), to.c_str()) == 0) return {};
  if (errno != EXDEV && errno != EACCES) {
    return std::unexpected(TaskSafetyError::filesFailed("put back", to));
  }
  WorkBudget budget;
  ::unlink(to.c_str());
  return copyItem(from, to, budget);
}

/// Git knows of one bit of the mode only, and of none where the user says so.
void RestoreRun::keepMode(const std::string& staged, const std::string& old) const {
  constexpr mode_t permissionBits = 07777;
  struct stat then{};
  struct stat now{};
  if (::lstat(old.c_str(), &now) != 0 || !S_ISREG(now.st_mode) ||
      ::lstat(staged.c_str(), &then) != 0 || !S_ISREG(then.st_mode)) {
    return;
  }
  mode_t mode = now.st_mode & permissionBits;
  if (lists_.knowsExecutables) {
    mode = (mode & ~mode_t{0111}) | ((then.st_mode & 0100) != 0 ? (mode & 0444) >> 2 : 0);
  }
  ::chmod(staged.c_str(), mode);
}

}  // namespace vantrell
