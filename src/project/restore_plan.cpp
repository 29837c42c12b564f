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
#include "project/unfiltered_contents.h"

namespace vantrell {

namespace {

namespace fs = std::filesystem;

constexpr mode_t permissionBits = 07777;
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
    : git_(git), archive_(std::move(archive)), index_(git, archive_, std::move(baseRevision)) {
  if (recovery) recovery_.emplace(git, *std::move(recovery));
}

TaskSafetyResult<> RestorePlan::prepare() {
  using Step = TaskSafetyResult<> (RestorePlan::*)();
  auto done = index_.open();
  if (done) done = index_.make();
  for (const Step step : {&RestorePlan::listWhatStands, &RestorePlan::chooseTrackedFiles,
                          &RestorePlan::makeRoomForAll, &RestorePlan::saveWhatGoes,
                          &RestorePlan::findLockedFolders, &RestorePlan::stage}) {
    if (done) done = (this->*step)();
  }
  if (!done) {
    auto& message = done.error().message;
    if (!message.contains("othing was changed")) {
      message += message.ends_with('.') ? " Nothing was changed." : ". Nothing was changed.";
    }
    return done;
  }
  addNote(notes_, "Submodules stay as they are", submodules_);
  addNote(notes_, "Files that Git does not look at stay as they are", index_.spared());
  addNote(notes_, "Ignored files stay as they are", ignored_);
  return {};
}

// ---- what stands --------------------------------------------------------------------------------

TaskSafetyResult<> RestorePlan::listWhatStands() {
  const auto staged = index_.list({"ls-files", "--stage", "-z"});
  if (!staged) return std::unexpected(staged.error());
  for (const auto& each : *staged) {
    auto& paths = each.starts_with("160000 ") ? submodules_ : tracked_;
    paths.insert(each.substr(each.find('\t') + 1));
  }
  auto others = index_.list({"ls-files", "--others", "--exclude-standard", "-z"});
  if (!others) return std::unexpected(others.error());
  for (auto& each : *others) {
    if (!each.ends_with('/')) untracked_.insert(std::move(each));
  }
  auto ignored =
      index_.list({"ls-files", "--others", "--ignored", "--exclude-standard", "--directory", "-z"});
  if (!ignored) return std::unexpected(ignored.error());
  ignored_ = *std::move(ignored);
  knowsExecutables_ = git_.query({"config", "--type=bool", "core.fileMode"}).text() != "false";
  SafetyNotes unused;
  auto empty = changes::findEmptyFolders(git_, {}, unused);
  if (!empty) return std::unexpected(empty.error());
  emptyFolders_ = *std::move(empty);
  targetFolders_ = changes::emptyFolders(archive_);
  return {};
}

// ---- what is to come ----------------------------------------------------------------------------

TaskSafetyResult<> RestorePlan::chooseTrackedFiles() {
  const auto staged = index_.list({"ls-files", "--stage", "-z"}, index_.target());
  if (!staged) return std::unexpected(staged.error());
  for (const auto& each : *staged) {
    target_.emplace(each.substr(each.find('\t') + 1), each.starts_with("160000 "));
  }
  chooseArchivedFiles(archived(changes::unfilteredFolder, ""), unfiltered_);
  chooseArchivedFiles(archived(changes::untrackedFolder, ""), archivedUntracked_);

  const auto content = index_.list({"diff", "--name-only", "--relative", "-z"}, index_.target());
  if (!content) return std::unexpected(content.error());
  const auto times =
      index_.list({"diff-files", "--name-only", "--relative", "-z"}, index_.target());
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
    if (target_.contains(path) || index_.spared().contains(path) ||
        archivedUntracked_.contains(path)) {
      continue;
    }
    if (stands(path)) removed_.insert(path);
  }
  for (const auto& path : submodules_) {  // a file that has taken the place of one
    if (!target_.contains(path) && stands(path) && !isRealFolder(placeOf(path))) {
      removed_.insert(path);
    }
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
  return untracked_.contains(path) || (tracked_.contains(path) && !index_.spared().contains(path));
}

TaskSafetyResult<> RestorePlan::makeRoomForAll() {
  for (const auto* paths : {&fromGit_, &unfiltered_, &archivedUntracked_}) {
    for (const auto& each : *paths) {
      const bool isRepository =
          paths == &archivedUntracked_ && isRealFolder(archived(changes::untrackedFolder, each));
      if (auto made = makeRoom(each, isRepository ? Coming::repository : Coming::file); !made) {
        return made;
      }
    }
  }
  // A file that git does not know becomes a tracked one by its name. If it is as it is to be, it
  // stays, but going back from there would remove it; if there is to be none, it goes.
  const auto next = index_.list({"ls-files", "-z"}, index_.next());
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
      if (auto made = makeRoom(each, Coming::emptyFolder); !made) return made;
    }
  }
  return {};
}

/// What stands at the path or in the place of a folder above it.
TaskSafetyResult<> RestorePlan::makeRoom(const std::string& path, Coming coming) {
  TaskSafetyResult<> result;
  const bool isInTheWay = anyAtOrAbove(path, [&](const std::string& part) {
    struct stat info{};
    if (::lstat(placeOf(part).c_str(), &info) != 0) return true;
    if (S_ISDIR(info.st_mode)) return false;
    if (!isKnown(part)) result = save(part);
    // A file takes the place of another one by itself.
    if (part != path || coming != Coming::file) removed_.insert(part);
    return true;
  });
  if (isInTheWay || coming == Coming::emptyFolder) return result;
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
  if (!recovery_) {
    const auto lost =
        std::ranges::find_if(index_.unwatched(), [&](auto& path) { return stands(path); });
    if (lost == index_.unwatched().end()) return {};
    return std::unexpected(refusal(*lost, "would be lost: it is in no checkpoint"));
  }
  for (const Paths* paths : {&std::as_const(untracked_), &index_.unwatched()}) {
    for (const auto& each : *paths) {
      if (auto saved = save(each); !saved) return saved;
    }
  }
  Paths overwritten;
  for (const auto* paths : {&fromGit_, &unfiltered_, &archivedUntracked_, &removed_}) {
    std::ranges::set_intersection(*paths, tracked_, std::inserter(overwritten, overwritten.end()));
  }
  if (auto added = recovery_->addUnfiltered(overwritten); !added) return added;
  const std::string patches = index_.folder() + "/patches";
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
  const std::string root = index_.folder() + "/tree/" + index_.prefix();
  if (auto made = secureDirectory(root); !made) return made;
  std::string input;
  for (const auto& each : fromGit_) input.append(index_.prefix()).append(each).push_back('\0');
  if (!input.empty()) {
    // With a work tree of its own, attributes are those that are to come.
    GitOptions options = index_.target();
    options.environment["GIT_WORK_TREE"] = index_.folder() + "/tree";
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
  for (const auto& [folder, paths] : {std::pair(changes::unfilteredFolder, &unfiltered_),
                                      std::pair(changes::untrackedFolder, &archivedUntracked_)}) {
    for (const auto& each : *paths) {
      if (isSame(archived(folder, each), each) && !removed_.contains(each)) continue;
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
  if (auto locked = index_.lock(); !locked) return locked;
  const auto halfWay = [](TaskSafetyError error) {
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
  for (const auto& each : submodules_) {
    if (!target_.contains(each)) ::rmdir(placeOf(each).c_str());  // only where nothing is in it
  }
  for (const auto& each : targetFolders_) {
    auto made = makeParents(git_.path(), each + "/", archived(changes::emptyFolderTree, ""));
    if (!made) return halfWay(made.error());
  }
  for (const auto& each : submoduleFolders_) {
    if (auto made = makeParents(git_.path(), each + "/"); !made) return halfWay(made.error());
  }
  if (auto replaced = index_.replace(); !replaced) return halfWay(replaced.error());
  finish();
  return {};
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
  return fmt::format("{}/tree/{}{}", index_.folder(), index_.prefix(), path);
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
