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
#include "project/restore_run.h"
#include "project/unfiltered_contents.h"

namespace vantrell {

namespace {

namespace fs = std::filesystem;

constexpr mode_t permissionBits = 07777;
TaskSafetyError refusal(const std::string& path, std::string_view why) {
  return TaskSafetyError::commandFailed(fmt::format(
      "\"{}\" {}. Move it away first. Nothing was changed.", text::repaired(path), why));
}

void addNote(SafetyNotes& notes, std::string_view what, const auto& paths) {
  if (paths.empty()) return;
  notes.push_back(fmt::format("{}: {}.", what, firstOf({paths.begin(), paths.end()})));
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
  addNote(notes_, "Submodules stay as they are", lists_.submodules);
  addNote(notes_, "Files that Git does not look at stay as they are", index_.spared());
  addNote(notes_, "Ignored files stay as they are", lists_.ignored);
  return {};
}

TaskSafetyResult<> RestorePlan::carryOut() {
  return RestoreRun(index_, places_, lists_).carryOut();
}

// ---- what stands --------------------------------------------------------------------------------

TaskSafetyResult<> RestorePlan::listWhatStands() {
  const auto staged = index_.list({"ls-files", "--stage", "-z"});
  if (!staged) return std::unexpected(staged.error());
  for (const auto& each : *staged) {
    auto& paths = each.starts_with("160000 ") ? lists_.submodules : lists_.tracked;
    paths.insert(each.substr(each.find('\t') + 1));
  }
  auto others = index_.list({"ls-files", "--others", "--exclude-standard", "-z"});
  if (!others) return std::unexpected(others.error());
  for (auto& each : *others) {
    if (!each.ends_with('/')) lists_.untracked.insert(std::move(each));
  }
  auto ignored =
      index_.list({"ls-files", "--others", "--ignored", "--exclude-standard", "--directory", "-z"});
  if (!ignored) return std::unexpected(ignored.error());
  lists_.ignored = *std::move(ignored);
  lists_.knowsExecutables =
      git_.query({"config", "--type=bool", "core.fileMode"}).text() != "false";
  SafetyNotes unused;
  auto empty = changes::findEmptyFolders(git_, {}, unused);
  if (!empty) return std::unexpected(empty.error());
  lists_.emptyFolders = *std::move(empty);
  lists_.targetFolders = changes::emptyFolders(archive_);
  return {};
}

// ---- what is to come ----------------------------------------------------------------------------

TaskSafetyResult<> RestorePlan::chooseTrackedFiles() {
  const auto staged = index_.list({"ls-files", "--stage", "-z"}, index_.target());
  if (!staged) return std::unexpected(staged.error());
  for (const auto& each : *staged) {
    lists_.target.emplace(each.substr(each.find('\t') + 1), each.starts_with("160000 "));
  }
  chooseArchivedFiles(places_.archived(changes::unfilteredFolder, ""), lists_.unfiltered);
  chooseArchivedFiles(places_.archived(changes::untrackedFolder, ""), lists_.archivedUntracked);

  const auto content = index_.list({"diff", "--name-only", "--relative", "-z"}, index_.target());
  if (!content) return std::unexpected(content.error());
  const auto times =
      index_.list({"diff-files", "--name-only", "--relative", "-z"}, index_.target());
  if (!times) return std::unexpected(times.error());
  lists_.fromGit.insert(content->begin(), content->end());
  for (const auto& [path, isSubmodule] : lists_.target) {
    // Git does not miss the files of a folder that has become a link to itself.
    const bool isMissing = !index_.spared().contains(path) && isBelowFile(git_.path(), path);
    if (isMissing) lists_.fromGit.insert(path);
  }
  const auto isAttributes = [](const std::string& path) {
    return files::lastComponent(path) == ".gitattributes";
  };
  for (const auto* paths : {&lists_.fromGit, &lists_.archivedUntracked}) {
    // What git compared by may not be what holds afterwards.
    if (std::ranges::any_of(*paths, isAttributes))
      lists_.fromGit.insert(times->begin(), times->end());
  }
  std::vector<std::string> unchanged;
  for (const auto& each : *times) {
    if (!lists_.fromGit.contains(each) && !lists_.unfiltered.contains(each))
      unchanged.push_back(each);
  }
  for (const auto& each : lists_.fromGit) {
    if (const auto found = lists_.target.find(each);
        found != lists_.target.end() && found->second) {
      lists_.submoduleFolders.push_back(each);
    }
  }
  std::erase_if(lists_.fromGit, [&](const std::string& path) {
    const auto found = lists_.target.find(path);
    if (found == lists_.target.end() || found->second || lists_.unfiltered.contains(path))
      return true;
    // That link was there at the checkpoint.
    return path.contains('/') && anyAtOrAbove(files::parent(path), [&](const std::string& folder) {
             return lists_.archivedUntracked.contains(folder);
           });
  });
  const auto filtered = filteredFiles(git_, unchanged);
  if (!filtered) return std::unexpected(filtered.error());
  addNote(notes_,
          "Git sees no change in these files because of their filter; they stay as they are",
          *filtered);

  for (const auto& path : lists_.tracked) {
    if (lists_.target.contains(path) || index_.spared().contains(path) ||
        lists_.archivedUntracked.contains(path)) {
      continue;
    }
    if (places_.stands(path)) lists_.removed.insert(path);
  }
  for (const auto& path : lists_.submodules) {  // a file that has taken the place of one
    if (!lists_.target.contains(path) && places_.stands(path) &&
        !isRealFolder(places_.inProject(path))) {
      lists_.removed.insert(path);
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
      if (isRepository(places_.inProject(path)) && places_.stands(path)) {
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
  return lists_.untracked.contains(path) ||
         (lists_.tracked.contains(path) && !index_.spared().contains(path));
}

TaskSafetyResult<> RestorePlan::makeRoomForAll() {
  for (const auto* paths : {&lists_.fromGit, &lists_.unfiltered, &lists_.archivedUntracked}) {
    for (const auto& each : *paths) {
      const bool isRepository = paths == &lists_.archivedUntracked &&
                                isRealFolder(places_.archived(changes::untrackedFolder, each));
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
  for (const auto& [path, isSubmodule] : lists_.target) named.insert(path);
  for (const auto& path : named) {
    if (lists_.tracked.contains(path) || !places_.stands(path) ||
        isRealFolder(places_.inProject(path)))
      continue;
    if (!lists_.untracked.contains(path)) {
      if (auto saved = save(path); !saved) return saved;
    }
    if (!lists_.target.contains(path)) lists_.removed.insert(path);
  }
  for (const auto* folders : {&lists_.targetFolders, &lists_.submoduleFolders}) {
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
    if (::lstat(places_.inProject(part).c_str(), &info) != 0) return true;
    if (S_ISDIR(info.st_mode)) return false;
    if (!isKnown(part)) result = save(part);
    // A file takes the place of another one by itself.
    if (part != path || coming != Coming::file) lists_.removed.insert(part);
    return true;
  });
  if (isInTheWay || coming == Coming::emptyFolder) return result;
  return clearFolderLater(path);
}

/// A folder gives way to a file if the checkpoint taken just before has all that is in it.
TaskSafetyResult<> RestorePlan::clearFolderLater(const std::string& folder) {
  const std::string root = places_.inProject(folder);
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
      lists_.clearedFolders.insert(path);
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
  if (code)
    return std::unexpected(TaskSafetyError::filesFailed("read the folder", root, code.value()));
  lists_.removed.merge(inside);
  lists_.clearedFolders.insert(folder);
  return {};
}

TaskSafetyResult<> RestorePlan::save(const std::string& path) {
  if (recovery_) return recovery_->add(path);
  const bool isIgnored = std::ranges::any_of(lists_.ignored, [&](const std::string& each) {
    return each.ends_with('/') ? path.starts_with(each) : path == each;
  });
  if (!isIgnored) return {};
  return std::unexpected(refusal(path, "would be lost: it is in no checkpoint"));
}

/// Adds to the recovery checkpoint what it lacks, and waits until it is on the disk.
TaskSafetyResult<> RestorePlan::saveWhatGoes() {
  if (!recovery_) {
    const auto lost =
        std::ranges::find_if(index_.unwatched(), [&](auto& path) { return places_.stands(path); });
    if (lost == index_.unwatched().end()) return {};
    return std::unexpected(refusal(*lost, "would be lost: it is in no checkpoint"));
  }
  for (const Paths* paths : {&std::as_const(lists_.untracked), &index_.unwatched()}) {
    for (const auto& each : *paths) {
      if (auto saved = save(each); !saved) return saved;
    }
  }
  Paths overwritten;
  for (const auto* paths :
       {&lists_.fromGit, &lists_.unfiltered, &lists_.archivedUntracked, &lists_.removed}) {
    std::ranges::set_intersection(*paths, lists_.tracked,
                                  std::inserter(overwritten, overwritten.end()));
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
  Paths folders = lists_.clearedFolders;
  for (const auto* paths : {&lists_.fromGit, &lists_.unfiltered, &lists_.archivedUntracked,
                            &lists_.removed, &lists_.untracked, &lists_.clearedFolders}) {
    for (const auto& each : *paths) folders.insert(files::parent(each));
  }
  for (const auto* paths :
       {&lists_.targetFolders, &lists_.emptyFolders, &lists_.submoduleFolders}) {
    for (const auto& each : *paths) folders.insert(files::parent(each));
  }
  for (const auto& each : folders) {
    std::string folder = each;
    while (!folder.empty() && !places_.stands(folder)) folder = files::parent(folder);
    // Those above may become empty, and go; that is no failure where they cannot.
    for (bool isNeeded = true;; isNeeded = false, folder = files::parent(folder)) {
      const std::string place = folder.empty() ? git_.path() : places_.inProject(folder);
      struct stat info{};
      if (::lstat(place.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
          ::faccessat(AT_FDCWD, place.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        if (info.st_uid == ::geteuid() && errno == EACCES) {
          lists_.lockedFolders.emplace(place, info.st_mode & permissionBits);
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
  for (const auto& each : lists_.fromGit)
    input.append(index_.prefix()).append(each).push_back('\0');
  if (!input.empty()) {
    // With a work tree of its own, attributes are those that are to come.
    GitOptions options = index_.target();
    options.environment["GIT_WORK_TREE"] = index_.folder() + "/tree";
    options.input = std::move(input);
    auto written = git_.modify(
        {"checkout-index", "--force", "--ignore-skip-worktree-bits", "-z", "--stdin"}, options);
    if (!written) return written;
  }
  for (const auto& each : lists_.fromGit) {
    if (!standsAt(places_.staged(each))) {
      return std::unexpected(TaskSafetyError::commandFailed(
          fmt::format("Git could not write \"{}\".", text::repaired(each))));
    }
  }
  for (const auto& [folder, paths] :
       {std::pair(changes::unfilteredFolder, &lists_.unfiltered),
        std::pair(changes::untrackedFolder, &lists_.archivedUntracked)}) {
    for (const auto& each : *paths) {
      if (isSame(places_.archived(folder, each), each) && !lists_.removed.contains(each)) continue;
      if (auto made = makeParents(root, each); !made) return made;
      ::unlink(places_.staged(each).c_str());
      WorkBudget budget;
      if (auto copied = copyItem(places_.archived(folder, each), places_.staged(each), budget);
          !copied) {
        return copied;
      }
    }
  }
  return {};
}

/// A copy has the times of its original.
bool RestorePlan::isSame(const std::string& kept, const std::string& path) const {
  struct stat then{};
  struct stat now{};
  return places_.stands(path) && ::lstat(kept.c_str(), &then) == 0 &&
         ::lstat(places_.inProject(path).c_str(), &now) == 0 && S_ISREG(now.st_mode) &&
         now.st_mode == then.st_mode && now.st_size == then.st_size &&
         now.st_mtim.tv_sec == then.st_mtim.tv_sec && now.st_mtim.tv_nsec == then.st_mtim.tv_nsec;
}

}  // namespace vantrell
