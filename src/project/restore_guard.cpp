#include "project/restore_guard.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <ranges>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/values/uuid.h"
#include "project/uncommitted_changes.h"

namespace vantrell {

namespace {

namespace fs = std::filesystem;

/// A line of an exclude file that matches this one path, seen from the top of the repository. A
/// line feed has no spelling there; the wild card for one character takes it in.
std::string excludeLine(std::string_view path) {
  std::string line = "/";
  for (const char each : path) {
    if (each == '\n') {
      line += '?';
    } else if (std::string_view("\\*?[] ").contains(each)) {
      line += '\\';
      line += each;
    } else {
      line += each;
    }
  }
  return line + "\n";
}

std::string usersExcludes(const PatchGit& git) {
  std::string path = git.query({"config", "--type=path", "core.excludesFile"}).output;
  while (path.ends_with('\n')) path.pop_back();
  if (path.empty()) path = files::configFolder() + "/git/ignore";
  return files::read(path).value_or("");
}

std::string leftAlone(std::string_view what, const std::vector<std::string>& paths) {
  constexpr std::size_t shown = 5;
  std::vector<std::string> names;
  for (const auto& each : paths | std::views::take(shown)) names.push_back(text::repaired(each));
  const std::size_t more = paths.size() - names.size();
  return fmt::format("{} stay as they are: {}{}.", what, text::joined(names, ", "),
                     more > 0 ? fmt::format(" and {} more", more) : "");
}

/// Each is compared with each tracked file.
constexpr std::size_t mostSpared = 5'000;

TaskSafetyError refusal(const std::string& path, std::string_view why) {
  return TaskSafetyError::commandFailed(fmt::format(
      "\"{}\" {}. Move it away first. Nothing was changed.", text::repaired(path), why));
}

}  // namespace

RestoreGuard::RestoreGuard(const PatchGit& git, std::string archive, std::string baseRevision,
                           std::optional<std::string> recovery)
    : git_(git),
      archive_(std::move(archive)),
      base_(std::move(baseRevision)),
      temporary_(files::temporaryFolder() + "/" + Uuid::random().text()) {
  if (recovery) recovery_.emplace(git, *std::move(recovery));
}

RestoreGuard::~RestoreGuard() {
  std::error_code ignored;
  fs::remove_all(temporary_, ignored);
}

TaskSafetyResult<> RestoreGuard::prepare() {
  if (auto made = secureDirectory(temporary_); !made) return made;
  const auto tracked = git_.queryOrFail({"ls-files", "-z"});
  if (!tracked) return std::unexpected(tracked.error());
  for (auto& each : tracked->parts()) tracked_.insert(std::move(each));
  const auto ignored = git_.queryOrFail(
      {"ls-files", "--others", "--ignored", "--exclude-standard", "--directory", "-z"});
  if (!ignored) return std::unexpected(ignored.error());
  ignored_ = ignored->parts();
  auto paths = pathsOfCheckpoint();
  if (!paths) return std::unexpected(paths.error());
  for (const auto& path : *paths) {
    if (auto saved = saveObstacle(path); !saved) return saved;
  }
  // A folder that was empty needs its place as well.
  for (const auto& folder : changes::emptyFolders(archive_)) {
    if (files::isFolder(fmt::format("{}/{}", git_.path(), folder))) continue;
    if (auto saved = saveObstacle(folder); !saved) return saved;
  }
  if (auto spared = spareUnwatched(); !spared) return spared;
  if (auto written = writeExcludes(); !written) return written;
  if (!recovery_) return {};
  if (auto added = recovery_->addOverwritten(base_, patched_, spared_); !added) return added;
  if (auto compared = recovery_->compare(temporary_); !compared) return compared;
  return recovery_->settle();
}

GitOptions RestoreGuard::ownIndex() const {
  return {.environment = {{"GIT_INDEX_FILE", temporary_ + "/index"}}};
}

/// All paths that the restore may write, by way of an index of our own; so a damaged archive is
/// found out as well.
TaskSafetyResult<std::vector<std::string>> RestoreGuard::pathsOfCheckpoint() {
  std::vector<std::string> all;
  const auto list = [&]() -> TaskSafetyResult<> {
    const auto listed = git_.queryOrFail({"ls-files", "-z"}, ownIndex());
    if (!listed) return std::unexpected(listed.error());
    std::ranges::move(listed->parts(), std::back_inserter(all));
    return {};
  };
  bool isRevision = true;
  auto tried = changes::tryPatches(git_, archive_, base_, ownIndex(), [&]() -> TaskSafetyResult<> {
    if (auto listed = list(); !listed) return listed;
    if (std::exchange(isRevision, false)) {
      inRevision_ = all;
      return {};
    }
    const auto changed = changedFrom(ownIndex());
    if (!changed) return std::unexpected(changed.error());
    patched_.insert(changed->begin(), changed->end());
    return {};
  });
  if (!tried) {
    tried.error().message = fmt::format(
        "The checkpoint does not fit its revision; nothing was changed. {}", tried.error().message);
    return std::unexpected(tried.error());
  }
  std::ranges::sort(inRevision_);
  hasTrackedFiles_ = !inRevision_.empty() || !tracked_.empty();
  const std::string untracked = fmt::format("{}/{}", archive_, changes::untrackedFolder);
  std::error_code code;
  for (fs::recursive_directory_iterator entry(untracked, code), end; !code && entry != end;
       entry.increment(code)) {
    std::string path = entry->path().native().substr(untracked.size() + 1);
    if (entry->symlink_status(code).type() == fs::file_type::directory) {
      if (!isRepository(entry->path())) continue;
      entry.disable_recursion_pending();
      // One that still stands is left alone; anything else there has to make room.
      if (isRepository(fmt::format("{}/{}", git_.path(), path))) continue;
    }
    all.push_back(std::move(path));
  }
  return all;
}

/// What stands at the path or in the place of a folder above it.
TaskSafetyResult<> RestoreGuard::saveObstacle(const std::string& path) {
  for (auto slash = path.find('/');; slash = path.find('/', slash + 1)) {
    const std::string part = path.substr(0, slash);
    struct stat info{};
    if (::lstat(fmt::format("{}/{}", git_.path(), part).c_str(), &info) != 0) return {};
    if (!S_ISDIR(info.st_mode)) {
      if (tracked_.contains(part)) return {};
      obstacles_.push_back(part);
      return save(part);
    }
    if (slash == path.npos) break;
  }
  // Of a submodule nothing but its place is restored.
  if (tracked_.contains(path) && isRepository(fmt::format("{}/{}", git_.path(), path))) return {};
  if (holdsUnsaved(path)) {
    return std::unexpected(refusal(path,
                                   "has to make room, but it is a folder with ignored files or "
                                   "a repository in it"));
  }
  obstacles_.push_back(path);
  return {};
}

bool RestoreGuard::holdsUnsaved(const std::string& folder) const {
  const std::string root = fmt::format("{}/{}", git_.path(), folder);
  std::error_code code;
  for (fs::recursive_directory_iterator entry(root, code), end; !code && entry != end;
       entry.increment(code)) {
    if (entry->symlink_status(code).type() == fs::file_type::directory) continue;
    const std::string path = folder + entry->path().native().substr(root.size());
    if (tracked_.contains(path)) continue;
    if (recovery_ ? !recovery_->has(path) : isIgnored(path)) return true;
  }
  return static_cast<bool>(code);
}

std::string RestoreGuard::placeOf(const std::string& path) const {
  return fmt::format("{}/{}", git_.path(), path);
}

bool RestoreGuard::isIgnored(const std::string& path) const {
  return std::ranges::any_of(ignored_, [&](const std::string& each) {
    return each.ends_with('/') ? path.starts_with(each) : path == each;
  });
}

TaskSafetyResult<> RestoreGuard::save(const std::string& path) {
  if (recovery_) return recovery_->add(path);
  if (!isIgnored(path)) return {};
  return std::unexpected(refusal(path, "would be lost: it is in no checkpoint"));
}

/// What the index has otherwise than the revision.
TaskSafetyResult<std::unordered_set<std::string>> RestoreGuard::changedFrom(
    const GitOptions& index) const {
  const auto listed =
      git_.queryOrFail({"diff-index", "--cached", "--name-only", "--relative", "-z", base_}, index);
  if (!listed) return std::unexpected(listed.error());
  const auto paths = listed->parts();
  return std::unordered_set<std::string>(paths.begin(), paths.end());
}

/// Git can be told to take a tracked file for unchanged ("update-index --assume-unchanged",
/// "--skip-worktree", a sparse checkout); what stands there is in no patch. Such a file is spared,
/// or saved where the checkpoint has changes of it.
TaskSafetyResult<> RestoreGuard::spareUnwatched() {
  const auto tagged =
      git_.queryOrFail({"ls-files", "-v", "-z"});  // a letter, a blank and a path each
  if (!tagged) return std::unexpected(tagged.error());
  std::vector<std::string> unwatched;
  std::unordered_set<std::string> isSkipped;
  for (const auto& each : tagged->parts()) {
    const bool isAssumed = each.front() >= 'a' && each.front() <= 'z';
    if (!isAssumed && each.front() != 'S') continue;
    unwatched.push_back(each.substr(2));
    if (!isAssumed) isSkipped.insert(unwatched.back());
  }
  if (unwatched.empty()) return {};
  const auto ofIndex = changedFrom({});
  if (!ofIndex) return std::unexpected(ofIndex.error());
  for (const auto& path : unwatched) {
    if (isRepository(placeOf(path))) continue;
    if (!patched_.contains(path)) {
      // One that is skipped and as the revision has it is left alone by git itself.
      if (!isSkipped.contains(path) || ofIndex->contains(path)) spared_.push_back(path);
      continue;
    }
    if (!standsAt(placeOf(path))) continue;
    if (!recovery_) {
      return std::unexpected(refusal(path, "would be lost: it is in no checkpoint"));
    }
    if (auto saved = save(path); !saved) return saved;
  }
  if (spared_.size() <= mostSpared) return {};
  return std::unexpected(TaskSafetyError::commandFailed(
      fmt::format("Git has been told not to look at {} files, which are too many to work around. "
                  "Nothing was changed.",
                  spared_.size())));
}

std::string RestoreGuard::pathspecs() const {
  if (spared_.empty()) return {};
  std::string all(".");
  all += '\0';
  for (const auto& each : spared_) {
    all += ":(exclude,literal)" + each;
    all += '\0';
  }
  return all;
}

TaskSafetyResult<> RestoreGuard::writeExcludes() {
  std::string content = usersExcludes(git_);
  if (!content.empty() && !content.ends_with('\n')) content += '\n';
  std::string prefix = git_.query({"rev-parse", "--show-prefix"}).output;
  if (prefix.ends_with('\n')) prefix.pop_back();
  for (const auto& each : ignored_) content += excludeLine(prefix + each);
  const auto written = files::writeAtomically(temporary_ + "/excludes", content, 0600);
  if (!written) return std::unexpected(TaskSafetyError::filesFailed(written.error().description));
  return {};
}

TaskSafetyResult<> RestoreGuard::clearTheWay() const {
  for (const auto& each : obstacles_) {
    const std::string path = fmt::format("{}/{}", git_.path(), each);
    struct stat info{};
    if (::lstat(path.c_str(), &info) != 0) continue;
    if (S_ISDIR(info.st_mode)) {
      clearFolder(each);
      continue;
    }
    // What the revision has there is in its place already.
    if (isInRevision(each)) continue;
    if (auto removed = files::remove(path); !removed) {
      return std::unexpected(TaskSafetyError::filesFailed(removed.error().description));
    }
  }
  return {};
}

TaskSafetyResult<> RestoreGuard::clearPlacesOfUntracked() const {
  const std::string untracked = fmt::format("{}/{}", archive_, changes::untrackedFolder);
  std::error_code code;
  for (fs::recursive_directory_iterator entry(untracked, code), end; !code && entry != end;
       entry.increment(code)) {
    if (entry->symlink_status(code).type() != fs::file_type::symlink) continue;
    const std::string path = entry->path().native().substr(untracked.size() + 1);
    if (!isRealFolder(placeOf(path))) continue;
    const auto below = git_.queryOrFail({"ls-files", "-z", "--", ":(literal)" + path + "/"});
    if (!below) return std::unexpected(below.error());
    for (const auto& each : below->parts()) {
      if (std::ranges::find(spared_, each) != spared_.end()) continue;
      ::unlink(placeOf(each).c_str());
      for (auto folder = files::parent(each); folder.size() >= path.size();
           folder = files::parent(folder)) {
        if (::rmdir(placeOf(folder).c_str()) != 0) break;
      }
    }
  }
  return {};
}

bool RestoreGuard::isInRevision(const std::string& path) const {
  return std::ranges::binary_search(inRevision_, path);
}

/// Removes what has been saved, and the folders that are empty then.
void RestoreGuard::clearFolder(const std::string& folder) const {
  std::error_code code;
  const std::string path = fmt::format("{}/{}", git_.path(), folder);
  std::vector<std::string> names;
  for (fs::directory_iterator entry(path, code), end; !code && entry != end;
       entry.increment(code)) {
    names.push_back(entry->path().filename().native());
  }
  for (const auto& name : names) {
    const std::string inside = fmt::format("{}/{}", folder, name);
    const auto type = fs::symlink_status(fmt::format("{}/{}", git_.path(), inside), code).type();
    if (type == fs::file_type::directory) {
      if (!isRepository(fmt::format("{}/{}", git_.path(), inside))) clearFolder(inside);
    } else if (!isInRevision(inside) && recovery_ && recovery_->has(inside)) {
      fs::remove(fmt::format("{}/{}", git_.path(), inside), code);
    }
  }
  ::rmdir(path.c_str());
}

std::vector<std::string> RestoreGuard::notes() const {
  std::vector<std::string> notes;
  if (!spared_.empty()) notes.push_back(leftAlone("Files that Git does not look at", spared_));
  if (!ignored_.empty()) notes.push_back(leftAlone("Ignored files", ignored_));
  return notes;
}

PatchGit::Configuration RestoreGuard::cleaningConfiguration() const {
  return {{"core.excludesFile", temporary_ + "/excludes"}};
}

TaskSafetyResult<std::vector<std::string>> RestoreGuard::untracked() const {
  const auto listed = git_.queryOrFail({"ls-files", "--others", "--exclude-standard", "-z"},
                                       {.configuration = cleaningConfiguration()});
  if (!listed) return std::unexpected(listed.error());
  auto paths = listed->parts();
  // Repositories, which cleaning spares.
  std::erase_if(paths, [](const std::string& path) { return path.ends_with('/'); });
  return paths;
}

TaskSafetyResult<> RestoreGuard::saveBeforeCleaning() {
  const auto paths = untracked();
  if (!paths) return std::unexpected(paths.error());
  for (const auto& path : *paths) {
    if (auto saved = save(path); !saved) return saved;
  }
  return recovery_ ? recovery_->settle() : TaskSafetyResult<>();
}

bool RestoreGuard::isClean() const {
  const auto paths = untracked();
  return paths && paths->empty();
}

}  // namespace vantrell
