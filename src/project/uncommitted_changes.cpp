#include "project/uncommitted_changes.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/intent_to_add_files.h"
#include "project/unfiltered_contents.h"

namespace vantrell::changes {

namespace {

namespace fs = std::filesystem;

// Beside the patches; lists are entries that end with NUL: paths, or a mode, a blank and a path.
constexpr std::string_view intentToAddList = "announced.list";
constexpr std::string_view earlierEmptyFolderList = "empty-folders.list";  // without their modes

/// A repository inside the project is somebody's work of its own; it comes along while it is small.
constexpr std::uint64_t nestedFiles = 5'000;
constexpr std::uint64_t nestedBytes = std::uint64_t{64} << 20;
/// Entries of untracked folders that are looked at for empty folders.
constexpr std::size_t entriesToVisit = 200'000;

std::string inFolder(const std::string& folder, std::string_view name) {
  return fmt::format("{}/{}", folder, name);
}

/// 0 also where the size cannot be read.
std::uint64_t sizeOf(const std::string& path) {
  struct stat info{};
  return ::stat(path.c_str(), &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

TaskSafetyResult<> writeList(const std::string& path, const std::vector<std::string>& entries) {
  if (entries.empty()) return {};
  std::string content;
  for (const auto& each : entries) content.append(each).push_back('\0');
  const auto written = files::writeAtomically(path, content, 0600);
  if (!written) return std::unexpected(TaskSafetyError::filesFailed(written.error().description));
  return {};
}

std::vector<std::string> readList(const std::string& path) {
  GitResult list;
  if (auto content = files::read(path)) list.output = std::move(*content);
  return list.parts();
}

std::string shown(const std::string& path) {
  return fmt::format("\"{}\"", text::repaired(path));
}

// ---- what patches do not say --------------------------------------------------------------------

TaskSafetyResult<> recordIntentsToAdd(const std::string& folder,
                                      const std::vector<IntentToAddFile>& files) {
  std::vector<std::string> entries;
  for (const auto& each : files) entries.push_back(fmt::format("{} {}", each.mode, each.path));
  return writeList(inFolder(folder, intentToAddList), entries);
}

std::vector<IntentToAddFile> readIntentsToAdd(const std::string& folder) {
  std::vector<IntentToAddFile> files;
  for (const auto& each : readList(inFolder(folder, intentToAddList))) {
    const auto blank = each.find_first_not_of("01234567");
    if (blank == each.npos || each[blank] != ' ') continue;
    files.push_back({each.substr(0, blank), each.substr(blank + 1)});
  }
  return files;
}

/// Folders that files were deleted from and that are empty now.
TaskSafetyResult<std::vector<std::string>> foldersOfDeleted(const PatchGit& git) {
  const auto deleted =
      git.queryOrFail({"diff", "--name-only", "--diff-filter=D", "--relative", "-z"});
  if (!deleted) return std::unexpected(deleted.error());
  std::vector<std::string> folders;
  for (const auto& path : deleted->parts()) {
    // A folder in the place of the file, or the nearest one above it, where it is empty by now.
    std::error_code code;
    const auto isFolder = [&](const std::string& name) {
      return fs::symlink_status(inFolder(git.path(), name), code).type() ==
             fs::file_type::directory;
    };
    std::string folder = path;
    while (!folder.empty() && !isFolder(folder)) folder = files::parent(folder);
    if (folder.empty()) continue;
    if (folder == path || fs::is_empty(inFolder(git.path(), folder), code)) {
      folders.push_back(folder + "/");
    }
  }
  return folders;
}

/// Collects the empty folders in and below `folder`, and says what is no file.
void findEmptyFolders(const std::string& root, const std::string& folder, const WorkBudget& budget,
                      std::size_t& left, std::vector<std::string>& found, SafetyNotes& notes) {
  std::error_code code;
  bool isEmpty = true;
  const std::string path = inFolder(root, folder);
  for (fs::directory_iterator entry(path, code), end; !code && entry != end;
       entry.increment(code)) {
    isEmpty = false;
    if (left == 0) return;
    if (--left == 0 || budget.isOutOfTime()) {
      left = 0;
      notes.emplace_back("There are too many files to note all empty folders.");
      return;
    }
    const std::string name = inFolder(folder, entry->path().filename().native());
    const auto type = entry->symlink_status(code).type();
    if (type == fs::file_type::directory && !isRepository(entry->path())) {
      findEmptyFolders(root, name, budget, left, found, notes);
    } else if (type == fs::file_type::fifo || type == fs::file_type::socket) {
      notes.push_back(fmt::format("{} is no file and is not kept.", shown(name)));
    }
  }
  if (isEmpty && !code) found.push_back(folder);
}

TaskSafetyResult<> recordEmptyFolders(const PatchGit& git, const std::string& folder,
                                      std::vector<std::string> folders, const WorkBudget& budget,
                                      SafetyNotes& notes) {
  const auto listed =
      git.queryOrFail({"ls-files", "--others", "--directory", "--exclude-standard", "-z"});
  if (!listed) return std::unexpected(listed.error());
  std::ranges::move(listed->parts(), std::back_inserter(folders));
  std::vector<std::string> empty;
  std::size_t left = entriesToVisit;
  for (const auto& each : folders) {
    if (!each.ends_with('/')) continue;
    const std::string name = each == "./" ? "." : each.substr(0, each.size() - 1);
    if (name != "." && isRepository(inFolder(git.path(), name))) continue;
    findEmptyFolders(git.path(), name, budget, left, empty, notes);
  }
  std::erase(empty, ".");
  const std::string kept = inFolder(folder, emptyFolderTree);
  if (empty.empty()) return {};
  if (auto made = secureDirectory(kept); !made) return made;
  for (const auto& each : empty) {
    auto made = makeParents(kept, each + "/", false, git.path());
    if (!made) return made;
  }
  return {};
}

}  // namespace

// ---- recording ----------------------------------------------------------------------------------

TaskSafetyResult<> recordPatches(const PatchGit& git, const std::string& folder) {
  const std::vector<std::string> diff{"diff", "--binary"};
  const std::string working = inFolder(folder, workingPatch);
  if (auto written = git.write(diff, working); !written) return written;
  auto written = git.write({"diff", "--binary", "--cached", "HEAD"}, inFolder(folder, stagedPatch));
  if (!written) return written;
  if (sizeOf(working) == 0) return {};

  const auto intended = intentToAddFiles(git);
  if (!intended) return std::unexpected(intended.error());
  if (auto kept = recordIntentsToAdd(folder, *intended); !kept) return kept;
  const auto gone = goneFiles(git, *intended);
  if (!gone) return std::unexpected(gone.error());
  if (gone->empty()) return {};
  const OwnFolder scratch;
  if (auto made = secureDirectory(scratch.path()); !made) return made;
  const std::string index = inFolder(scratch.path(), "index");
  if (auto copied = writeIndexWithout(git, *gone, index); !copied) return copied;
  return git.write(diff, working, {.environment = {{"GIT_INDEX_FILE", index}}});
}

TaskSafetyResult<> tryPatches(const PatchGit& git, const std::string& folder,
                              const std::string& revision, const GitOptions& ownIndex,
                              const std::function<TaskSafetyResult<>()>& afterEach) {
  if (auto read = git.modify({"read-tree", revision}, ownIndex); !read) return read;
  if (auto done = afterEach(); !done) return done;
  for (const auto name : {stagedPatch, workingPatch}) {
    const std::string patch = inFolder(folder, name);
    if (sizeOf(patch) == 0) continue;
    auto applied = git.modify({"apply", "--cached", "--whitespace=nowarn", patch}, ownIndex);
    if (!applied) return applied;
    if (auto done = afterEach(); !done) return done;
  }
  return {};
}

TaskSafetyResult<> provePatches(const PatchGit& git, const std::string& folder,
                                const std::string& revision) {
  if (sizeOf(inFolder(folder, stagedPatch)) + sizeOf(inFolder(folder, workingPatch)) == 0) {
    return {};
  }
  const OwnFolder scratch;
  if (auto made = secureDirectory(scratch.path()); !made) return made;
  auto fits = tryPatches(git, folder, revision,
                         {.environment = {{"GIT_INDEX_FILE", inFolder(scratch.path(), "index")}}},
                         [] { return TaskSafetyResult<>(); });
  if (!fits) {
    fits.error().message =
        fmt::format("The changes could not be brought back: {}", fits.error().message);
  }
  return fits;
}

TaskSafetyResult<> recordRest(const PatchGit& git, const std::string& folder, WorkBudget& budget,
                              SafetyNotes& notes) {
  const bool hasUnstaged = sizeOf(inFolder(folder, workingPatch)) > 0;
  std::vector<std::string> folders;
  if (hasUnstaged) {
    auto found = foldersOfDeleted(git);
    if (!found) return std::unexpected(found.error());
    folders = std::move(*found);
  }
  if (hasUnstaged || sizeOf(inFolder(folder, stagedPatch)) > 0) {
    const auto changed = git.queryOrFail({"diff", "--name-only", "--diff-filter=d",
                                          "--ignore-submodules=all", "--relative", "-z", "HEAD"});
    if (!changed) return std::unexpected(changed.error());
    auto kept =
        recordUnfilteredContents(git, changed->parts(), inFolder(folder, exactFolder), budget);
    if (!kept) return kept;
  }
  return recordEmptyFolders(git, folder, std::move(folders), budget, notes);
}

std::vector<std::string> emptyFolders(const std::string& folder) {
  auto folders = readList(inFolder(folder, earlierEmptyFolderList));
  const std::string kept = inFolder(folder, emptyFolderTree);
  std::error_code code;
  for (fs::recursive_directory_iterator entry(kept, code), end; !code && entry != end;
       entry.increment(code)) {
    std::error_code ignored;
    if (!fs::is_empty(entry->path(), ignored)) continue;
    folders.push_back(entry->path().native().substr(kept.size() + 1));
  }
  return folders;
}

TaskSafetyResult<std::size_t> copyUntracked(const PatchGit& git, const std::string& target,
                                            WorkBudget& budget, SafetyNotes& notes) {
  const auto listed = git.queryOrFail({"ls-files", "--others", "--exclude-standard", "-z"});
  if (!listed) return std::unexpected(listed.error());
  const auto paths = listed->parts();
  if (paths.empty()) return 0;
  if (budget.files && *budget.files < paths.size()) {
    return std::unexpected(TaskSafetyError::filesFailed(fmt::format(
        "There are more than {} untracked files. List in .gitignore what is not part of "
        "the project.",
        *budget.files)));
  }
  if (auto made = secureDirectory(target); !made) return std::unexpected(made.error());
  std::error_code ignored;
  for (const auto& each : paths) {
    const bool isNested = each.ends_with('/');
    const std::string relative = isNested ? each.substr(0, each.size() - 1) : each;
    const auto from = pathInside(git.path(), relative);
    const auto to = pathInside(target, relative);
    if (!from || !to) continue;
    if (auto made = makeParents(target, relative, false, git.path()); !made) {
      return std::unexpected(made.error());
    }
    if (isRealFolder(*to) && fs::is_symlink(fs::symlink_status(*from, ignored))) {
      fs::remove_all(*to, ignored);
    }
    if (standsAt(*to)) continue;
    if (!isNested) {
      if (auto copied = copyItem(*from, *to, budget); !copied) {
        return std::unexpected(copied.error());
      }
      continue;
    }
    // Cleaning spares a repository of its own, so nothing is lost where it does not come along.
    const WorkBudget most{.deadline = budget.deadline,
                          .files = std::min(nestedFiles, budget.files.value_or(nestedFiles)),
                          .bytes = std::min(nestedBytes, budget.bytes.value_or(nestedBytes))};
    WorkBudget left = most;
    if (!copyItem(*from, *to, left)) {
      fs::remove_all(*to, ignored);
      notes.push_back(
          fmt::format("{} is a repository of its own and is not kept.", shown(relative)));
      continue;
    }
    if (budget.files) *budget.files -= *most.files - *left.files;
    if (budget.bytes) *budget.bytes -= *most.bytes - *left.bytes;
  }
  return paths.size();
}

// ---- and back -----------------------------------------------------------------------------------

TaskSafetyResult<> applyPatches(const PatchGit& git, const std::string& folder) {
  const std::string staged = inFolder(folder, stagedPatch);
  if (sizeOf(staged) > 0) {
    auto applied = git.modify({"apply", "--index", "--whitespace=nowarn", staged});
    if (!applied) return applied;
  }
  const std::string working = inFolder(folder, workingPatch);
  if (sizeOf(working) == 0) return {};
  return git.modify({"apply", "--whitespace=nowarn", working});
}

TaskSafetyResult<> copyDirectoryContents(const std::string& source, const std::string& target,
                                         SafetyNotes& notes) {
  std::error_code code;
  WorkBudget budget;
  fs::recursive_directory_iterator entry(source, code);
  if (code) return {};
  for (const fs::recursive_directory_iterator end; !code && entry != end; entry.increment(code)) {
    const std::string relative = entry->path().native().substr(source.size() + 1);
    const std::string place = inFolder(target, relative);
    std::error_code ignored;
    const bool isFolder = entry->symlink_status(ignored).type() == fs::file_type::directory;
    auto made = makeParents(target, relative + (isFolder ? "/" : ""), true, source);
    if (!made) return made;
    if (isFolder && !isRepository(entry->path())) continue;
    if (isFolder) {
      entry.disable_recursion_pending();
      if (isRepository(place)) {
        notes.push_back(
            fmt::format("{} is a repository of its own and stays as it is.", shown(relative)));
        continue;
      }
    }
    // Not what is in a folder there: it has been cleared of what is saved, the rest is not ours.
    fs::remove(place, ignored);
    if (auto copied = copyItem(entry->path(), place, budget); !copied) return copied;
  }
  if (code) {
    return std::unexpected(TaskSafetyError::filesFailed(
        fmt::format("Could not read the folder {}: {}", source, code.message())));
  }
  return {};
}

TaskSafetyResult<> applyRest(const PatchGit& git, const std::string& folder) {
  SafetyNotes notes;
  const std::string exact = inFolder(folder, exactFolder);
  if (standsAt(exact)) {
    if (auto copied = copyDirectoryContents(exact, git.path(), notes); !copied) return copied;
  }
  for (const auto& each : emptyFolders(folder)) {
    if (!pathInside(git.path(), each)) continue;
    const std::string kept = inFolder(folder, emptyFolderTree);
    if (auto made = makeParents(git.path(), each + "/", false, kept); !made) return made;
  }
  return addIntents(git, readIntentsToAdd(folder));
}

}  // namespace vantrell::changes
