#include "project/recovery_archive.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

#include "platform/files/descriptor.h"
#include "platform/files/files.h"
#include "project/uncommitted_changes.h"
#include "project/unfiltered_contents.h"

namespace vantrell {

namespace {

namespace fs = std::filesystem;

bool isAtOrBelow(const std::unordered_set<std::string>& names, const std::string& path) {
  for (auto slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
    if (names.contains(path.substr(0, slash))) return true;
  }
  return names.contains(path);
}

}  // namespace

RecoveryArchive::RecoveryArchive(const PatchGit& git, std::string folder)
    : git_(git),
      folder_(std::move(folder)),
      untracked_(fmt::format("{}/{}", folder_, changes::untrackedFolder)) {}

std::string RecoveryArchive::placeOf(const std::string& path) const {
  return fmt::format("{}/{}", git_.path(), path);
}

std::string RecoveryArchive::keptAt(const std::string& path) const {
  return fmt::format("{}/{}", untracked_, path);
}

/// A copy has the times of its original.
bool RecoveryArchive::has(const std::string& path) const {
  struct stat kept{};
  struct stat now{};
  if (::lstat(keptAt(path).c_str(), &kept) != 0) return false;
  if (::lstat(placeOf(path).c_str(), &now) != 0) return true;
  if ((now.st_mode & S_IFMT) != (kept.st_mode & S_IFMT)) return false;
  return !S_ISREG(now.st_mode) ||
         (now.st_size == kept.st_size && now.st_mtim.tv_sec == kept.st_mtim.tv_sec &&
          now.st_mtim.tv_nsec == kept.st_mtim.tv_nsec);
}

TaskSafetyResult<> RecoveryArchive::add(const std::string& path) {
  if (has(path)) return {};
  isSettled_ = false;
  if (auto made = secureDirectory(untracked_); !made) return made;
  if (auto made = makeParents(untracked_, path, false, git_.path()); !made) return made;
  // An older state of it, from when the checkpoint was taken.
  std::error_code ignored;
  fs::remove(keptAt(path), ignored);
  WorkBudget budget;
  return copyItem(placeOf(path), keptAt(path), budget);
}

TaskSafetyResult<> RecoveryArchive::addOverwritten(const std::string& revision,
                                                   std::unordered_set<std::string> paths,
                                                   const std::vector<std::string>& spared) {
  // What the revision has otherwise; and what git would have to look into to see that it is as the
  // index has it, which it does not do on its way to a revision.
  for (const auto& command : {std::vector<std::string>{"diff-index", "--cached", revision},
                              std::vector<std::string>{"diff-files"}}) {
    auto words = command;
    words.insert(words.begin() + 1, {"--name-only", "--diff-filter=d", "--relative", "-z"});
    const auto listed = git_.queryOrFail(std::move(words));
    if (!listed) return std::unexpected(listed.error());
    std::ranges::move(listed->parts(), std::inserter(paths, paths.end()));
  }
  for (const auto& each : spared) paths.erase(each);
  isSettled_ = false;
  WorkBudget budget;
  return recordUnfilteredContents(git_, {paths.begin(), paths.end()},
                                  fmt::format("{}/{}", folder_, changes::exactFolder), budget);
}

TaskSafetyResult<> RecoveryArchive::compare(const std::string& scratch) const {
  if (auto recorded = changes::recordPatches(git_, scratch); !recorded) return recorded;
  for (const auto name : {changes::stagedPatch, changes::workingPatch}) {
    const auto now = files::read(fmt::format("{}/{}", scratch, name));
    const auto kept = files::read(fmt::format("{}/{}", folder_, name));
    if (now && kept && *now == *kept) continue;
    return std::unexpected(TaskSafetyError::commandFailed(
        "The project has changed since its recovery checkpoint was taken. Nothing was changed by "
        "the restore. Try again."));
  }
  return {};
}

TaskSafetyResult<> RecoveryArchive::settle() {
  if (isSettled_) return {};
  const Descriptor folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // Thousands of small files, maybe: one wait for the file system is shorter than one for each.
  if (!folder || ::syncfs(folder.get()) != 0) {
    return std::unexpected(TaskSafetyError::filesFailed(
        fmt::format("Could not write the recovery checkpoint to the disk: {}",
                    std::generic_category().message(errno))));
  }
  isSettled_ = true;
  return {};
}

TaskSafetyResult<> RecoveryArchive::bringBackIgnored() const {
  const auto folders = changes::emptyFolders(folder_);
  std::vector<std::string> missing;
  const auto look = [&](const std::string& path) {
    if (standsAt(placeOf(path))) return;
    // A file of the checkpoint may stand in the place of a folder above it; that one counts.
    if (!isBelowFile(git_.path(), path)) missing.push_back(path);
  };
  std::ranges::for_each(folders, look);
  std::error_code code;
  for (fs::recursive_directory_iterator entry(untracked_, code), end; !code && entry != end;
       entry.increment(code)) {
    if (entry->symlink_status(code).type() == fs::file_type::directory) continue;
    look(entry->path().native().substr(untracked_.size() + 1));
  }
  if (missing.empty()) return {};
  const auto tracked = git_.queryOrFail({"ls-files", "-z"});
  if (!tracked) return std::unexpected(tracked.error());
  const auto parts = tracked->parts();
  const std::unordered_set<std::string> names(parts.begin(), parts.end());
  const std::unordered_set<std::string> isEmptyFolder(folders.begin(), folders.end());
  // What is tracked is not ignored; an empty folder in the place of such a file goes with it.
  std::erase_if(missing, [&](const std::string& path) {
    return isEmptyFolder.contains(path) ? isAtOrBelow(names, path) : names.contains(path);
  });
  const std::string emptyFolders = fmt::format("{}/{}", folder_, changes::emptyFolderTree);
  for (const auto& path : ignoredOf(git_, missing)) {
    const bool isFolder = isEmptyFolder.contains(path);
    // One that was brought back may be in the way of another.
    if (!makeParents(git_.path(), isFolder ? path + "/" : path, false,
                     isFolder ? emptyFolders : untracked_)) {
      continue;
    }
    WorkBudget budget;
    if (isFolder || standsAt(placeOf(path))) continue;
    if (auto copied = copyItem(keptAt(path), placeOf(path), budget); !copied) return copied;
  }
  return {};
}

}  // namespace vantrell
