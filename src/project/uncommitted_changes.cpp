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

namespace vantrell {

std::string firstOf(const std::vector<std::string>& paths) {
  constexpr std::size_t shown = 5;
  auto names = paths;
  names.resize(std::min(names.size(), shown));
  std::string list = text::repaired(text::joined(names, ", "));
  if (paths.size() > shown) list += fmt::format(" and {} more", paths.size() - shown);
  return list;
}

namespace changes {

namespace {

namespace fs = std::filesystem;

// Beside the patches; lists are entries that end with NUL: paths, or a mode, a blank and a path.
constexpr std::string_view intentToAddList = "announced.list";

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

/// Whether the copy of a repository has something in it whose Git folder is not in the copy: a
/// linked worktree. What happens there would happen to the original.
bool hasGitFolderElsewhere(const std::string& copy) {
  std::error_code code;
  for (fs::recursive_directory_iterator entry(copy, code), end; !code && entry != end;
       entry.increment(code)) {
    const fs::path& path = entry->path();
    if (path.filename() != ".git" || isRealFolder(path)) continue;
    std::string to;
    if (entry->is_symlink(code)) {
      to = fs::read_symlink(path, code);
    } else {
      constexpr std::string_view key = "gitdir: ";
      to = files::read(path, 1 << 16).value_or("");
      if (to.starts_with(key)) to.erase(0, key.size());
    }
    if (!pathInside(copy, path.parent_path().native().substr(copy.size()) + "/" + to) ||
        to.starts_with('/')) {
      return true;
    }
  }
  return false;
}

TaskSafetyResult<> recordIntentsToAdd(const std::string& folder,
                                      const std::vector<IntentToAddFile>& files) {
  std::vector<std::string> entries;
  for (const auto& each : files) entries.push_back(fmt::format("{} {}", each.mode, each.path));
  return writeList(inFolder(folder, intentToAddList), entries);
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
void addEmptyFolders(const std::string& root, const std::string& folder, const WorkBudget& budget,
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
      addEmptyFolders(root, name, budget, left, found, notes);
    } else if (type == fs::file_type::fifo || type == fs::file_type::socket) {
      notes.push_back(fmt::format("{} is no file and is not kept.", shown(name)));
    }
  }
  if (isEmpty && !code) found.push_back(folder);
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

TaskSafetyResult<> applyToIndex(const PatchGit& git, const std::string& folder,
                                std::string_view patch, const GitOptions& index) {
  const std::string file = inFolder(folder, patch);
  if (sizeOf(file) == 0) return {};
  return git.modify({"apply", "--cached", "--whitespace=nowarn", file}, index);
}

TaskSafetyResult<> provePatches(const PatchGit& git, const std::string& folder,
                                const std::string& revision) {
  if (sizeOf(inFolder(folder, stagedPatch)) + sizeOf(inFolder(folder, workingPatch)) == 0) {
    return {};
  }
  const OwnFolder scratch;
  if (auto made = secureDirectory(scratch.path()); !made) return made;
  const GitOptions index{.environment = {{"GIT_INDEX_FILE", inFolder(scratch.path(), "index")}}};
  auto fits = git.modify({"read-tree", revision}, index);
  for (const auto patch : {stagedPatch, workingPatch}) {
    if (fits) fits = applyToIndex(git, folder, patch, index);
  }
  if (!fits) {
    fits.error().message =
        fmt::format("The changes could not be brought back: {}", fits.error().message);
  }
  return fits;
}

TaskSafetyResult<> recordRest(const PatchGit& git, const std::string& folder, WorkBudget& budget,
                              SafetyNotes& notes) {
  // Also files that are changed for git's status and have no difference: their filter leaves out
  // what is new.
  std::set<std::string> changed;
  for (const auto& command : {std::vector<std::string>{"diff-index", "--cached", "HEAD"},
                              std::vector<std::string>{"diff-files"}}) {
    auto words = command;
    words.insert(words.begin() + 1,
                 {"--name-only", "--diff-filter=d", "--ignore-submodules=all", "--relative", "-z"});
    const auto listed = git.queryOrFail(std::move(words));
    if (!listed) return std::unexpected(listed.error());
    std::ranges::move(listed->parts(), std::inserter(changed, changed.end()));
  }
  auto kept = recordUnfilteredContents(git, {changed.begin(), changed.end()},
                                       inFolder(folder, unfilteredFolder), budget);
  if (!kept) return kept;
  const auto empty = findEmptyFolders(git, budget, notes);
  if (!empty) return std::unexpected(empty.error());
  if (empty->empty()) return {};
  const std::string tree = inFolder(folder, emptyFolderTree);
  if (auto made = secureDirectory(tree); !made) return made;
  for (const auto& each : *empty) {
    if (auto made = makeParents(tree, each + "/", git.path()); !made) return made;
  }
  return {};
}

TaskSafetyResult<std::vector<std::string>> findEmptyFolders(const PatchGit& git,
                                                            const WorkBudget& budget,
                                                            SafetyNotes& notes) {
  auto folders = foldersOfDeleted(git);
  if (!folders) return folders;
  const auto listed =
      git.queryOrFail({"ls-files", "--others", "--directory", "--exclude-standard", "-z"});
  if (!listed) return std::unexpected(listed.error());
  std::ranges::move(listed->parts(), std::back_inserter(*folders));
  std::vector<std::string> empty;
  std::size_t left = entriesToVisit;
  for (const auto& each : *folders) {
    if (!each.ends_with('/')) continue;
    const std::string name = each == "./" ? "." : each.substr(0, each.size() - 1);
    if (name != "." && isRepository(inFolder(git.path(), name))) continue;
    addEmptyFolders(git.path(), name, budget, left, empty, notes);
  }
  std::erase(empty, ".");
  return empty;
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

std::vector<std::string> emptyFolders(const std::string& folder) {
  std::vector<std::string> folders;
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
    if (auto made = makeParents(target, relative, git.path()); !made) {
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
    if (!isRealFolder(*from + "/.git")) {
      notes.push_back(
          fmt::format("{} has its Git folder elsewhere and is not kept.", shown(relative)));
      continue;
    }
    // A restore spares a repository of its own, so nothing is lost if it does not come along.
    const WorkBudget most{.deadline = budget.deadline,
                          .files = std::min(nestedFiles, budget.files.value_or(nestedFiles)),
                          .bytes = std::min(nestedBytes, budget.bytes.value_or(nestedBytes))};
    WorkBudget left = most;
    if (!copyItem(*from, *to, left) || hasGitFolderElsewhere(*to)) {
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

}  // namespace changes
}  // namespace vantrell
