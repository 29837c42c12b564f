#include "project/restore_index.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "project/uncommitted_changes.h"

namespace vantrell {

namespace {

/// Each is compared with each tracked file.
constexpr std::size_t mostSpared = 5'000;

/// Of two files that are there.
bool areEqual(const std::string& one, const std::string& other) {
  const auto content = files::read(one);
  const auto expected = files::read(other);
  return content && expected && *content == *expected;
}

}  // namespace

RestoreIndex::RestoreIndex(const PatchGit& git, std::string archive, std::string baseRevision)
    : git_(git), archive_(std::move(archive)), base_(std::move(baseRevision)) {}

RestoreIndex::~RestoreIndex() {
  if (isLocked_) ::unlink(lock_.c_str());
}

TaskSafetyResult<> RestoreIndex::open() {
  prefix_ = git_.prefix();
  index_ = git_.indexFile();
  lock_ = index_ + ".lock";
  // The lock of one that was killed is the index that it prepared.
  OwnFolder::sweep(files::parent(index_), [&](const std::string& leftover) {
    if (standsAt(lock_) && areEqual(leftover + "/next", lock_)) ::unlink(lock_.c_str());
  });
  if (standsAt(lock_)) {
    return std::unexpected(TaskSafetyError::commandFailed(fmt::format(
        "Another Git command is at work in this repository. If there is none, one was killed: "
        "remove {}. Nothing was changed.",
        lock_)));
  }
  scratch_.emplace(OwnFolder::In{files::parent(index_)});
  return secureDirectory(scratch_->path());
}

GitOptions RestoreIndex::with(std::string_view index) const {
  return {.configuration = {{"core.splitIndex", "false"}},
          .environment = {{"GIT_INDEX_FILE", fmt::format("{}{}", scratch_->path(), index)}}};
}

TaskSafetyResult<std::vector<std::string>> RestoreIndex::list(std::vector<std::string> command,
                                                              GitOptions options) const {
  const auto listed = git_.queryOrFail(std::move(command), std::move(options));
  if (!listed) return std::unexpected(listed.error());
  return listed->parts();
}

TaskSafetyResult<> RestoreIndex::make() {
  const auto unfit = [](TaskSafetyError error) {
    error.message = fmt::format("The checkpoint does not fit its revision; nothing was changed. {}",
                                error.message);
    return std::unexpected(std::move(error));
  };
  if (auto spared = preserveSkipWorktree(); !spared) return unfit(spared.error());
  if (spared_.size() > mostSpared) {
    return std::unexpected(TaskSafetyError::commandFailed(
        fmt::format("Git has been told not to look at {} files, which are too many to work around.",
                    spared_.size())));
  }
  const std::string nextFile = folder() + "/next";
  // A copy with its times: so git knows of most files that they have not changed.
  WorkBudget budget;
  if (auto copied = copyItem(index_, nextFile, budget); !copied) return copied;
  const auto inBase = list({"ls-tree", "-r", "--name-only", "-z", base_});
  if (!inBase) return unfit(inBase.error());
  const auto inIndex = list({"ls-files", "-z"});
  if (!inIndex) return std::unexpected(inIndex.error());
  if (!inBase->empty() || !inIndex->empty()) {  // git refuses to restore nothing
    std::vector<std::string> command{"restore", "--source", base_, "--staged"};
    GitOptions options = next();
    if (spared_.empty()) {
      command.insert(command.end(), {"--", "."});
    } else {
      command.insert(command.end(), {"--pathspec-from-file=-", "--pathspec-file-nul"});
      options.input = std::string(".\0", 2);
      for (const auto& each : spared_) {
        options.input->append(":(exclude,literal)").append(each).push_back('\0');
      }
    }
    if (auto done = git_.modify(std::move(command), std::move(options)); !done) {
      return unfit(done.error());
    }
  }
  if (!standsAt(nextFile)) {  // nothing was ever added
    if (auto made = git_.modify({"read-tree", "--empty"}, next()); !made) return made;
  }
  auto applied = changes::applyToIndex(git_, archive_, changes::stagedPatch, next());
  if (!applied) return unfit(applied.error());
  if (auto copied = copyItem(nextFile, folder() + "/target", budget); !copied) return copied;
  applied = changes::applyToIndex(git_, archive_, changes::workingPatch, target());
  if (!applied) return unfit(applied.error());
  return addIntents(git_, changes::readIntentsToAdd(archive_), next());
}

/// What the checkpoint's patches change.
TaskSafetyResult<RestoreIndex::Paths> RestoreIndex::pathsOfPatches() const {
  Paths patched;
  const GitOptions own = with("/patched");
  auto done = git_.modify({"read-tree", base_}, own);
  for (const auto name : {changes::stagedPatch, changes::workingPatch}) {
    if (done) done = changes::applyToIndex(git_, archive_, name, own);
    if (!done) return std::unexpected(done.error());
    const auto paths =
        list({"diff-index", "--cached", "--name-only", "--relative", "-z", base_}, own);
    if (!paths) return std::unexpected(paths.error());
    patched.insert(paths->begin(), paths->end());
  }
  return patched;
}

/// Git can be told to take a tracked file for unchanged ("update-index --assume-unchanged",
/// "--skip-worktree", a sparse checkout); what stands there is in no patch.
TaskSafetyResult<> RestoreIndex::preserveSkipWorktree() {
  const auto tagged = list({"ls-files", "-v", "-z"});  // a letter, a blank and a path each
  if (!tagged) return std::unexpected(tagged.error());
  std::map<std::string, bool> unwatched;  // whether it is skipped
  for (const auto& each : *tagged) {
    const bool isAssumed = each.front() >= 'a' && each.front() <= 'z';
    if (isAssumed || each.front() == 'S') unwatched.emplace(each.substr(2), !isAssumed);
  }
  if (unwatched.empty()) return {};
  const auto patched = pathsOfPatches();
  if (!patched) return std::unexpected(patched.error());
  const auto listed = list({"diff-index", "--cached", "--name-only", "--relative", "-z", base_});
  if (!listed) return std::unexpected(listed.error());
  const Paths differs(listed->begin(), listed->end());
  for (const auto& [path, isSkipped] : unwatched) {
    if (isRepository(git_.path() + "/" + path)) continue;
    if (patched->contains(path)) {
      unwatched_.insert(path);
    } else if (!isSkipped || differs.contains(path)) {
      // One that is skipped and as the revision has it is left alone by git itself.
      spared_.insert(path);
    }
  }
  return {};
}

/// The lock has all of its content from its first moment: by that open() knows it after a kill.
TaskSafetyResult<> RestoreIndex::lock() {
  const std::string nextFile = folder() + "/next";
  isLocked_ = ::link(nextFile.c_str(), lock_.c_str()) == 0;
  if (isLocked_) return {};
  if (errno == EEXIST)
    return std::unexpected(TaskSafetyError::filesFailed("lock the index with", lock_));
  const std::string copy = folder() + "/lock";  // the file system has no such links
  WorkBudget budget;
  if (auto copied = copyItem(nextFile, copy, budget); !copied) return copied;
  isLocked_ = ::renameat2(AT_FDCWD, copy.c_str(), AT_FDCWD, lock_.c_str(), RENAME_NOREPLACE) == 0;
  if (!isLocked_)
    return std::unexpected(TaskSafetyError::filesFailed("lock the index with", lock_));
  return {};
}

TaskSafetyResult<> RestoreIndex::replace() {
  if (::rename(lock_.c_str(), index_.c_str()) != 0) {
    return std::unexpected(TaskSafetyError::filesFailed("replace", index_));
  }
  isLocked_ = false;
  return {};
}

}  // namespace vantrell
