#include "project/recovery_archive.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "platform/files/files.h"
#include "project/uncommitted_changes.h"
#include "project/unfiltered_contents.h"

namespace vantrell {

namespace {

namespace fs = std::filesystem;

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
  if (auto made = makeParents(untracked_, path, git_.path()); !made) return made;
  // An older state of it, from when the checkpoint was taken.
  std::error_code ignored;
  fs::remove(keptAt(path), ignored);
  WorkBudget budget;
  return copyItem(placeOf(path), keptAt(path), budget);
}

TaskSafetyResult<> RecoveryArchive::addUnfiltered(const std::set<std::string>& paths) {
  isSettled_ = false;
  WorkBudget budget;
  return recordUnfilteredContents(git_, {paths.begin(), paths.end()},
                                  fmt::format("{}/{}", folder_, changes::unfilteredFolder), budget);
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

}  // namespace vantrell
