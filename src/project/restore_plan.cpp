#include "project/restore_plan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <ranges>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/intent_to_add_files.h"
#include "project/unfiltered_contents.h"

namespace vantrell {

namespace {

namespace fs = std::filesystem;

constexpr mode_t permissionBits = 07777;
/// Each is compared with each tracked file.
constexpr std::size_t mostSpared = 5'000;

TaskSafetyError refusal(const std::string& path, std::string_view why) {
  return TaskSafetyError::commandFailed(fmt::format(
      "\"{}\" {}. Move it away first. Nothing was changed.", text::repaired(path), why));
}

TaskSafetyError failed(std::string_view what, const std::string& path, int code = errno) {
  return TaskSafetyError::filesFailed(fmt::format("Could not {} {}: {}", what, text::repaired(path),
                                                  std::generic_category().message(code)));
}

void addNote(SafetyNotes& notes, std::string_view what, const auto& paths) {
  constexpr std::size_t shown = 5;
  if (paths.empty()) return;
  std::vector<std::string> names;
  for (const auto& each : paths | std::views::take(shown)) names.push_back(text::repaired(each));
  const std::size_t more = paths.size() - names.size();
  notes.push_back(fmt::format("{}: {}{}.", what, text::joined(names, ", "),
                              more > 0 ? fmt::format(" and {} more", more) : ""));
}

bool isSameFile(const std::string& one, const std::string& other) {
  struct stat a{};
  struct stat b{};
  return ::lstat(one.c_str(), &a) == 0 && ::lstat(other.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

/// The path and the folders above it, the outermost first.
template <typename Look>
bool anyAtOrAbove(const std::string& path, Look look) {
  for (auto slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
    if (look(path.substr(0, slash))) return true;
  }
  return look(path);
}

}  // namespace

RestorePlan::RestorePlan(const PatchGit& git, std::string archive, std::string baseRevision,
                         std::optional<std::string> recovery)
    : git_(git), archive_(std::move(archive)), base_(std::move(baseRevision)) {
  if (recovery) recovery_.emplace(git, *std::move(recovery));
}

TaskSafetyResult<> RestorePlan::prepare() {
  using Step = TaskSafetyResult<> (RestorePlan::*)();
  for (const Step step :
       {&RestorePlan::findRepository, &RestorePlan::listWhatStands, &RestorePlan::makeIndexes,
        &RestorePlan::chooseTrackedFiles, &RestorePlan::makeRoomForAll, &RestorePlan::saveWhatGoes,
        &RestorePlan::findLockedFolders, &RestorePlan::stage}) {
    auto done = (this->*step)();
    if (done) continue;
    if (!done.error().message.contains("othing was changed")) {
      auto& message = done.error().message;
      message += message.ends_with('.') ? " Nothing was changed." : ". Nothing was changed.";
    }
    return done;
  }
  addNote(notes_, "Submodules stay as they are", submodules_);
  addNote(notes_, "Files that Git does not look at stay as they are", spared_);
  addNote(notes_, "Ignored files stay as they are", ignored_);
  return {};
}

// ---- what stands --------------------------------------------------------------------------------

TaskSafetyResult<> RestorePlan::findRepository() {
  const auto line = [&](std::vector<std::string> arguments) {
    std::string text = git_.query(std::move(arguments)).output;
    if (text.ends_with('\n')) text.pop_back();
    return text;
  };
  prefix_ = line({"rev-parse", "--show-prefix"});
  index_ = files::standardized(line({"rev-parse", "--git-path", "index"}), git_.path());
  const std::string lock = index_ + ".lock";
  // An earlier restore that was killed leaves its folder, and maybe its lock, which is one file
  // with the index in that folder.
  OwnFolder::sweep(files::parent(index_), [&](const std::string& leftover) {
    if (isSameFile(leftover + "/next", lock)) ::unlink(lock.c_str());
  });
  if (standsAt(lock)) {
    return std::unexpected(TaskSafetyError::commandFailed(fmt::format(
        "Another Git command is at work in this repository. If there is none, one was killed: "
        "remove {}. Nothing was changed.",
        lock)));
  }
  scratch_.emplace(OwnFolder::In{files::parent(index_)});
  knowsExecutables_ = line({"config", "--type=bool", "core.fileMode"}) != "false";
  nextIndex_ = scratch_->path() + "/next";
  targetIndex_ = scratch_->path() + "/target";
  if (auto made = secureDirectory(scratch_->path()); !made) return made;
  return secureDirectory(scratch_->path() + "/tree/" + prefix_);
}

TaskSafetyResult<std::vector<std::string>> RestorePlan::list(std::vector<std::string> command,
                                                             GitOptions options) const {
  const auto listed = git_.queryOrFail(std::move(command), std::move(options));
  if (!listed) return std::unexpected(listed.error());
  return listed->parts();
}

TaskSafetyResult<> RestorePlan::listWhatStands() {
  const auto staged = list({"ls-files", "--stage", "-z"});
  if (!staged) return std::unexpected(staged.error());
  for (const auto& each : *staged) {
    auto& paths = each.starts_with("160000 ") ? submodules_ : tracked_;
    paths.insert(each.substr(each.find('\t') + 1));
  }
  auto others = list({"ls-files", "--others", "--exclude-standard", "-z"});
  if (!others) return std::unexpected(others.error());
  for (auto& each : *others) {
    if (!each.ends_with('/')) untracked_.insert(std::move(each));
  }
  auto ignored =
      list({"ls-files", "--others", "--ignored", "--exclude-standard", "--directory", "-z"});
  if (!ignored) return std::unexpected(ignored.error());
  ignored_ = *std::move(ignored);
  SafetyNotes unused;
  auto empty = changes::findEmptyFolders(git_, {}, unused);
  if (!empty) return std::unexpected(empty.error());
  emptyFolders_ = *std::move(empty);
  targetFolders_ = changes::emptyFolders(archive_);
  return {};
}

// ---- what is to come ----------------------------------------------------------------------------

GitOptions RestorePlan::with(const std::string& index) const {
  return {.configuration = {{"core.splitIndex", "false"}},
          .environment = {{"GIT_INDEX_FILE", index}}};
}

/// The index that is to come, and one more that is the work tree to come. Both begin as copies of
/// the index, so that git knows of most files that they have not changed. Also shows whether the
/// archive is whole and fits its revision.
TaskSafetyResult<> RestorePlan::makeIndexes() {
  const auto unfit = [](TaskSafetyError error) {
    error.message = fmt::format("The checkpoint does not fit its revision; nothing was changed. {}",
                                error.message);
    return std::unexpected(std::move(error));
  };
  if (auto spared = preserveSkipWorktree(); !spared) return unfit(spared.error());
  WorkBudget budget;
  if (auto copied = copyItem(index_, nextIndex_, budget); !copied) return copied;
  const auto inBase = list({"ls-tree", "-r", "--name-only", "-z", base_});
  if (!inBase) return unfit(inBase.error());
  if (!inBase->empty() || !tracked_.empty() || !submodules_.empty()) {
    std::vector<std::string> command{"restore", "--source", base_, "--staged"};
    GitOptions options = with(nextIndex_);
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
  auto applied = changes::applyToIndex(git_, archive_, changes::stagedPatch, with(nextIndex_));
  if (!applied) return unfit(applied.error());
  if (!standsAt(nextIndex_)) {  // a repository of which nothing was ever tracked
    if (auto made = git_.modify({"read-tree", "--empty"}, with(nextIndex_)); !made) return made;
  }
  if (auto copied = copyItem(nextIndex_, targetIndex_, budget); !copied) return copied;
  applied = changes::applyToIndex(git_, archive_, changes::workingPatch, with(targetIndex_));
  if (!applied) return unfit(applied.error());
  return addIntents(git_, changes::readIntentsToAdd(archive_), with(nextIndex_));
}

/// What the checkpoint's patches change.
TaskSafetyResult<RestorePlan::Paths> RestorePlan::pathsOfPatches() {
  Paths patched;
  const GitOptions own = with(scratch_->path() + "/patched");
  if (auto read = git_.modify({"read-tree", base_}, own); !read)
    return std::unexpected(read.error());
  for (const auto name : {changes::stagedPatch, changes::workingPatch}) {
    if (auto done = changes::applyToIndex(git_, archive_, name, own); !done) {
      return std::unexpected(done.error());
    }
    auto paths = list({"diff-index", "--cached", "--name-only", "--relative", "-z", base_}, own);
    if (!paths) return std::unexpected(paths.error());
    std::ranges::move(*paths, std::inserter(patched, patched.end()));
  }
  return patched;
}

/// Git can be told to take a tracked file for unchanged ("update-index --assume-unchanged",
/// "--skip-worktree", a sparse checkout); what stands there is in no patch. Such a file is spared,
/// or saved if the checkpoint has changes of it.
TaskSafetyResult<> RestorePlan::preserveSkipWorktree() {
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
    if (submodules_.contains(path)) continue;
    if (!patched->contains(path)) {
      // One that is skipped and as the revision has it is left alone by git itself.
      if (!isSkipped || differs.contains(path)) spared_.insert(path);
    } else if (stands(path)) {
      if (!recovery_) {
        return std::unexpected(refusal(path, "would be lost: it is in no checkpoint"));
      }
      if (auto saved = save(path); !saved) return saved;
    }
  }
  if (spared_.size() <= mostSpared) return {};
  return std::unexpected(TaskSafetyError::commandFailed(
      fmt::format("Git has been told not to look at {} files, which are too many to work around.",
                  spared_.size())));
}

TaskSafetyResult<> RestorePlan::chooseTrackedFiles() {
  const auto staged = list({"ls-files", "--stage", "-z"}, with(targetIndex_));
  if (!staged) return std::unexpected(staged.error());
  for (const auto& each : *staged) {
    target_.emplace(each.substr(each.find('\t') + 1), each.starts_with("160000 "));
  }
  chooseArchivedFiles(archived(changes::unfilteredFolder, ""), unfiltered_);
  chooseArchivedFiles(archived(changes::untrackedFolder, ""), archivedUntracked_);

  const auto content = list({"diff", "--name-only", "--relative", "-z"}, with(targetIndex_));
  if (!content) return std::unexpected(content.error());
  const auto times = list({"diff-files", "--name-only", "--relative", "-z"}, with(targetIndex_));
  if (!times) return std::unexpected(times.error());
  fromGit_.insert(content->begin(), content->end());
  const auto isAttributes = [](const std::string& path) {
    return files::lastComponent(path) == ".gitattributes";
  };
  for (const auto* paths : {&fromGit_, &archivedUntracked_}) {
    // What git compared by may not be what holds afterwards.
    if (std::ranges::any_of(*paths, isAttributes)) fromGit_.insert(times->begin(), times->end());
  }
  std::vector<std::string> unchanged;
  for (const auto& each : *times) {
    if (!fromGit_.contains(each) && !unfiltered_.contains(each)) unchanged.push_back(each);
  }
  for (const auto& each : fromGit_) {
    if (const auto found = target_.find(each); found != target_.end() && found->second) {
      submoduleFolders_.push_back(each);
    }
  }
  std::erase_if(fromGit_, [&](const std::string& path) {
    const auto found = target_.find(path);
    if (found == target_.end() || found->second || unfiltered_.contains(path)) return true;
    // Git's diff does not delete the files of a folder that has become a link to itself.
    return path.contains('/') && anyAtOrAbove(files::parent(path), [&](const std::string& folder) {
             return archivedUntracked_.contains(folder);
           });
  });
  const auto filtered = filteredFiles(git_, unchanged);
  if (!filtered) return std::unexpected(filtered.error());
  addNote(notes_,
          "Git sees no change in these files because of their filter; they stay as they are",
          *filtered);

  for (const auto& path : tracked_) {
    if (target_.contains(path) || spared_.contains(path) || archivedUntracked_.contains(path)) {
      continue;
    }
    if (stands(path)) removed_.insert(path);
  }
  return {};
}

/// The files below a folder of the archive; a repository counts as one.
void RestorePlan::chooseArchivedFiles(const std::string& folder, Paths& chosen) {
  std::error_code code;
  for (fs::recursive_directory_iterator entry(folder, code), end; !code && entry != end;
       entry.increment(code)) {
    std::string path = entry->path().native().substr(folder.size());
    if (entry->symlink_status(code).type() == fs::file_type::directory) {
      if (!isRepository(entry->path())) continue;
      entry.disable_recursion_pending();
      if (isRepository(placeOf(path)) && stands(path)) {
        notes_.push_back(fmt::format("\"{}\" is a repository of its own and stays as it is.",
                                     text::repaired(path)));
        continue;
      }
    }
    chosen.insert(std::move(path));
  }
}

// ---- what is in the way -------------------------------------------------------------------------

/// Whether the checkpoint taken just before has it, in a patch or as a copy.
bool RestorePlan::isKnown(const std::string& path) const {
  return untracked_.contains(path) || (tracked_.contains(path) && !spared_.contains(path));
}

TaskSafetyResult<> RestorePlan::makeRoomForAll() {
  for (const auto* paths : {&fromGit_, &unfiltered_, &archivedUntracked_}) {
    for (const auto& each : *paths) {
      if (auto made = makeRoom(each, false); !made) return made;
    }
  }
  // A file that git does not know becomes a tracked one by its name. If it is as it is to be, it
  // stays, but going back from there would remove it; if there is to be none, it goes.
  const auto next = list({"ls-files", "-z"}, with(nextIndex_));
  if (!next) return std::unexpected(next.error());
  Paths named(next->begin(), next->end());
  for (const auto& [path, isSubmodule] : target_) named.insert(path);
  for (const auto& path : named) {
    if (tracked_.contains(path) || !stands(path) || isRealFolder(placeOf(path))) continue;
    if (!untracked_.contains(path)) {
      if (auto saved = save(path); !saved) return saved;
    }
    if (!target_.contains(path)) removed_.insert(path);
  }
  for (const auto* folders : {&targetFolders_, &submoduleFolders_}) {
    for (const auto& each : *folders) {
      if (auto made = makeRoom(each, true); !made) return made;
    }
  }
  return {};
}

/// What stands at the path or in the place of a folder above it.
TaskSafetyResult<> RestorePlan::makeRoom(const std::string& path, bool forFolder) {
  TaskSafetyResult<> result;
  const bool isInTheWay = anyAtOrAbove(path, [&](const std::string& part) {
    struct stat info{};
    if (::lstat(placeOf(part).c_str(), &info) != 0) return true;
    if (S_ISDIR(info.st_mode)) return false;
    if (part == path && !forFolder && isKnown(path)) return true;  // it is replaced
    if (!isKnown(part)) result = save(part);
    if (part != path || forFolder) removed_.insert(part);
    return true;
  });
  if (isInTheWay || forFolder) return result;
  return clearFolderLater(path);
}

/// A folder gives way to a file if the checkpoint taken just before has all that is in it.
TaskSafetyResult<> RestorePlan::clearFolderLater(const std::string& folder) {
  const std::string root = placeOf(folder);
  std::error_code code;
  Paths inside;
  for (fs::recursive_directory_iterator entry(root, code), end; !code && entry != end;
       entry.increment(code)) {
    const std::string path = folder + entry->path().native().substr(root.size());
    const bool isFolder = entry->symlink_status(code).type() == fs::file_type::directory;
    if (entry->path().filename() == ".git") {
      return std::unexpected(refusal(folder, "has to make room, but there is a repository in it"));
    }
    if (isFolder) {
      clearedFolders_.insert(path);
      continue;
    }
    if (!isKnown(path)) {
      return std::unexpected(
          refusal(folder,
                  "has to make room, but it has files in it that no checkpoint has (ignored ones, "
                  "or those of a submodule)"));
    }
    inside.insert(path);
  }
  if (code) return std::unexpected(failed("read the folder", root, code.value()));
  removed_.merge(inside);
  clearedFolders_.insert(folder);
  return {};
}

TaskSafetyResult<> RestorePlan::save(const std::string& path) {
  if (recovery_) return recovery_->add(path);
  const bool isIgnored = std::ranges::any_of(ignored_, [&](const std::string& each) {
    return each.ends_with('/') ? path.starts_with(each) : path == each;
  });
  if (!isIgnored) return {};
  return std::unexpected(refusal(path, "would be lost: it is in no checkpoint"));
}

/// Adds to the recovery checkpoint what it lacks, and waits until it is on the disk.
TaskSafetyResult<> RestorePlan::saveWhatGoes() {
  if (!recovery_) return {};
  for (const auto& each : untracked_) {
    if (auto saved = save(each); !saved) return saved;
  }
  Paths overwritten;
  for (const auto* paths : {&fromGit_, &unfiltered_, &archivedUntracked_, &removed_}) {
    std::ranges::set_intersection(*paths, tracked_, std::inserter(overwritten, overwritten.end()));
  }
  if (auto added = recovery_->addUnfiltered(overwritten); !added) return added;
  const std::string patches = scratch_->path() + "/patches";
  if (auto made = secureDirectory(patches); !made) return made;
  if (auto compared = recovery_->compare(patches); !compared) return compared;
  return recovery_->settle();
}

// ---- what could fail ----------------------------------------------------------------------------

/// Folders that would not let their files be replaced. Those of the user are opened for as long as
/// it takes.
TaskSafetyResult<> RestorePlan::findLockedFolders() {
  Paths folders = clearedFolders_;
  for (const auto* paths :
       {&fromGit_, &unfiltered_, &archivedUntracked_, &removed_, &untracked_, &clearedFolders_}) {
    for (const auto& each : *paths) folders.insert(files::parent(each));
  }
  for (const auto* paths : {&targetFolders_, &emptyFolders_, &submoduleFolders_}) {
    for (const auto& each : *paths) folders.insert(files::parent(each));
  }
  for (const auto& each : folders) {
    std::string folder = each;
    while (!folder.empty() && !stands(folder)) folder = files::parent(folder);
    // Those above may become empty, and go; that is no failure where they cannot.
    for (bool isNeeded = true;; isNeeded = false, folder = files::parent(folder)) {
      const std::string place = folder.empty() ? git_.path() : placeOf(folder);
      struct stat info{};
      if (::lstat(place.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
          ::faccessat(AT_FDCWD, place.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        if (info.st_uid == ::geteuid() && errno == EACCES) {
          lockedFolders_.emplace(place, info.st_mode & permissionBits);
        } else if (isNeeded) {
          return std::unexpected(TaskSafetyError::filesFailed(
              fmt::format("The folder \"{}\" cannot be written to. Nothing was changed.",
                          text::repaired(place))));
        }
      }
      if (folder.empty()) break;
    }
  }
  return {};
}

/// Writes all that is to come beside the index: filters run here, and a full disk is found out
/// here.
TaskSafetyResult<> RestorePlan::stage() {
  std::string input;
  for (const auto& each : fromGit_) input.append(prefix_).append(each).push_back('\0');
  if (!input.empty()) {
    // With a work tree of its own, attributes are those that are to come.
    GitOptions options = with(targetIndex_);
    options.environment["GIT_WORK_TREE"] = scratch_->path() + "/tree";
    options.input = std::move(input);
    auto written = git_.modify(
        {"checkout-index", "--force", "--ignore-skip-worktree-bits", "-z", "--stdin"}, options);
    if (!written) return written;
  }
  for (const auto& each : fromGit_) {
    if (!standsAt(stagedAt(each))) {
      return std::unexpected(TaskSafetyError::commandFailed(
          fmt::format("Git could not write \"{}\".", text::repaired(each))));
    }
  }
  const std::string root = scratch_->path() + "/tree/" + prefix_;
  for (const auto& [folder, paths] : {std::pair(changes::unfilteredFolder, &unfiltered_),
                                      std::pair(changes::untrackedFolder, &archivedUntracked_)}) {
    for (const auto& each : *paths) {
      if (isSame(archived(folder, each), each)) continue;
      if (auto made = makeParents(root, each); !made) return made;
      ::unlink(stagedAt(each).c_str());
      WorkBudget budget;
      if (auto copied = copyItem(archived(folder, each), stagedAt(each), budget); !copied) {
        return copied;
      }
    }
  }
  return {};
}

// ---- carrying it out ----------------------------------------------------------------------------

TaskSafetyResult<> RestorePlan::carryOut() {
  if (auto locked = lockIndex(); !locked) return locked;
  const auto halfWay = [&](TaskSafetyError error) {
    ::unlink((index_ + ".lock").c_str());
    error.mayHaveChangedFiles = true;
    return std::unexpected(std::move(error));
  };
  for (const auto& [folder, mode] : lockedFolders_) ::chmod(folder.c_str(), mode | S_IRWXU);

  for (const auto& each : removed_) removeFile(each);
  // They are empty by now, when the innermost goes first.
  for (const auto& each : clearedFolders_ | std::views::reverse) ::rmdir(placeOf(each).c_str());
  for (const auto* paths : {&fromGit_, &unfiltered_, &archivedUntracked_}) {
    for (const auto& each : *paths) {
      if (auto placed = place(each); !placed) return halfWay(placed.error());
    }
  }
  // The rules of what is ignored are those of the checkpoint by now; what they ignore stays.
  std::vector<std::string> left;
  for (const auto& each : untracked_) {
    const bool isPlaced = archivedUntracked_.contains(each) || target_.contains(each);
    if (!isPlaced && stands(each)) left.push_back(each);
  }
  const auto ignored = ignoredOf(git_, left);
  const Paths staying(ignored.begin(), ignored.end());
  for (const auto& each : left) {
    if (!staying.contains(each)) removeFile(each);
  }
  for (const auto& each : emptyFolders_) removeEmpty(each);
  for (const auto& each : targetFolders_) {
    auto made = makeParents(git_.path(), each + "/", archived(changes::emptyFolderTree, ""));
    if (!made) return halfWay(made.error());
  }
  for (const auto& each : submoduleFolders_) {
    if (auto made = makeParents(git_.path(), each + "/"); !made) return halfWay(made.error());
  }
  for (const auto& each : submodules_) {
    if (!target_.contains(each)) ::rmdir(placeOf(each).c_str());  // only where nothing is in it
  }
  if (::rename((index_ + ".lock").c_str(), index_.c_str()) != 0) {
    return halfWay(failed("replace", index_));
  }
  finish();
  return {};
}

/// As git itself does it: the new index under the name that keeps other commands out.
TaskSafetyResult<> RestorePlan::lockIndex() {
  const std::string lock = index_ + ".lock";
  if (::link(nextIndex_.c_str(), lock.c_str()) == 0) return {};
  if (errno != EEXIST) {  // a file system without such links
    WorkBudget budget;
    return copyItem(nextIndex_, lock, budget);
  }
  return std::unexpected(failed("lock the index with", lock));
}

/// And the folders above that are empty then.
void RestorePlan::removeFile(const std::string& path) {
  if (isBelowFile(git_.path(), path)) return;
  if (::unlink(placeOf(path).c_str()) == 0 || errno == ENOENT) removeEmpty(files::parent(path));
}

void RestorePlan::removeEmpty(std::string folder) {
  if (isBelowFile(git_.path(), folder)) return;
  while (!folder.empty() && !target_.contains(folder) && ::rmdir(placeOf(folder).c_str()) == 0) {
    folder = files::parent(folder);
  }
}

TaskSafetyResult<> RestorePlan::place(const std::string& path) {
  const std::string from = stagedAt(path);
  const std::string to = placeOf(path);
  if (!standsAt(from)) return {};  // it is in its place already
  const auto made = makeParents(git_.path(), path, archived(changes::untrackedFolder, ""));
  if (!made) return made;
  struct stat old{};
  struct stat next{};
  if (fromGit_.contains(path) && ::lstat(to.c_str(), &old) == 0 && S_ISREG(old.st_mode) &&
      ::lstat(from.c_str(), &next) == 0 && S_ISREG(next.st_mode)) {
    // Git knows of one bit of the mode only, and of none where the user says so.
    mode_t mode = old.st_mode & permissionBits;
    if (knowsExecutables_) {
      mode = (mode & ~mode_t{0111}) | ((next.st_mode & 0100) != 0 ? (mode & 0444) >> 2 : 0);
    }
    ::chmod(from.c_str(), mode);
  }
  if (::rename(from.c_str(), to.c_str()) == 0) return {};
  if (errno != EXDEV && errno != EACCES) return std::unexpected(failed("put back", to));
  WorkBudget budget;
  ::unlink(to.c_str());
  return copyItem(from, to, budget);
}

/// Nothing of this matters enough to fail.
void RestorePlan::finish() {
  (void)git_.modify({"update-index", "-q", "--refresh", "--ignore-submodules"});
  for (const auto& [folder, mode] : lockedFolders_) {
    if (isRealFolder(folder)) ::chmod(folder.c_str(), mode);  // it may be a file by now
  }
}

// ---- places -------------------------------------------------------------------------------------

std::string RestorePlan::stagedAt(const std::string& path) const {
  return fmt::format("{}/tree/{}{}", scratch_->path(), prefix_, path);
}

std::string RestorePlan::archived(std::string_view folder, const std::string& path) const {
  return fmt::format("{}/{}/{}", archive_, folder, path);
}

/// Itself, and not by way of a link above it.
bool RestorePlan::stands(const std::string& path) const {
  return standsAt(placeOf(path)) && !isBelowFile(git_.path(), path);
}

/// A copy has the times of its original.
bool RestorePlan::isSame(const std::string& kept, const std::string& path) const {
  struct stat then{};
  struct stat now{};
  return ::lstat(kept.c_str(), &then) == 0 && ::lstat(placeOf(path).c_str(), &now) == 0 &&
         !isBelowFile(git_.path(), path) && S_ISREG(now.st_mode) && now.st_mode == then.st_mode &&
         now.st_size == then.st_size && now.st_mtim.tv_sec == then.st_mtim.tv_sec &&
         now.st_mtim.tv_nsec == then.st_mtim.tv_nsec;
}

}  // namespace vantrell
