#include "project/intent_to_add_files.h"

#include <algorithm>
#include <fcntl.h>
#include <fmt/format.h>
#include <map>
#include <set>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "platform/files/files.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

constexpr std::string_view program = "100755";
constexpr std::string_view link = "120000";
constexpr std::string_view repository = "160000";
/// Paths that one command line takes.
constexpr std::size_t pathsAtOnce = 500;

/// Path to ":old-mode new-mode old-object new-object letter", for what is staged.
TaskSafetyResult<std::map<std::string, std::string>> stagedRecords(const PatchGit& git,
                                                                   std::string how) {
  const auto listed = git.queryOrFail(
      {"diff", "--cached", "--raw", "--no-abbrev", "--relative", std::move(how), "-z", "HEAD"});
  if (!listed) return std::unexpected(listed.error());
  std::map<std::string, std::string> records;
  const auto parts = listed->parts();  // a record and a path by turns
  for (std::size_t i = 0; i + 1 < parts.size(); i += 2) records.emplace(parts[i + 1], parts[i]);
  return records;
}

std::string oldMode(const std::string& record) {
  return record.substr(1, 6);
}
std::string newMode(const std::string& record) {
  return record.substr(8, 6);
}

/// Runs git with these words and then the paths, as often as it takes.
TaskSafetyResult<> modifyAll(const PatchGit& git, const std::vector<std::string>& words,
                             const std::vector<std::string>& paths, const GitOptions& options) {
  for (std::size_t from = 0; from < paths.size(); from += pathsAtOnce) {
    std::vector<std::string> command = words;
    const std::size_t to = std::min(from + pathsAtOnce, paths.size());
    for (std::size_t i = from; i < to; ++i) command.push_back(":(literal)" + paths[i]);
    if (auto changed = git.modify(std::move(command), options); !changed) return changed;
  }
  return {};
}

/// An empty file or a link of that mode.
TaskSafetyResult<> placeholder(const std::string& root, const IntentToAddFile& file) {
  if (auto made = makeParents(root, file.path); !made) return made;
  const std::string path = fmt::format("{}/{}", root, file.path);
  const bool done = file.mode == link ? ::symlink("intent", path.c_str()) == 0
                                      : static_cast<bool>(Descriptor(::open(
                                            path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                                            file.mode == program ? 0700 : 0600)));
  if (done) return {};
  return std::unexpected(TaskSafetyError::filesFailed(fmt::format("Could not create {}", path)));
}

}  // namespace

TaskSafetyResult<std::vector<IntentToAddFile>> intentToAddFiles(const PatchGit& git) {
  // Git shows them as empty files or not at all; what differs is one.
  const auto shown = stagedRecords(git, "--ita-visible-in-index");
  if (!shown) return std::unexpected(shown.error());
  const auto hidden = stagedRecords(git, "--ita-invisible-in-index");
  if (!hidden) return std::unexpected(hidden.error());
  std::vector<IntentToAddFile> files;
  for (const auto& [path, record] : *shown) {
    const auto other = hidden->find(path);
    if (other == hidden->end() || other->second != record) files.push_back({newMode(record), path});
  }
  for (const auto& [path, record] : *hidden) {
    // The commit has an empty file there as well.
    if (!shown->contains(path)) files.push_back({oldMode(record), path});
  }
  return files;
}

TaskSafetyResult<> addIntents(const PatchGit& git, const std::vector<IntentToAddFile>& files,
                              const GitOptions& index) {
  if (files.empty()) return {};
  const std::vector<std::string> add{"add", "--intent-to-add", "--force", "--sparse", "--"};
  // Git takes the modes from files, so it gets a work tree of such.
  const OwnFolder tree;
  if (auto made = secureDirectory(tree.path()); !made) return made;
  const std::string prefix = git.prefix();
  std::vector<std::string> paths;
  std::vector<std::string> repositories;
  for (const auto& each : files) {
    if (each.mode == repository) {
      // Git takes the entry from the repository; without one there is nothing to add.
      if (isRepository(git.path() + "/" + each.path)) repositories.push_back(each.path);
      continue;
    }
    if (!pathInside(tree.path(), prefix + each.path)) continue;
    paths.push_back(prefix + each.path);
    auto placed = placeholder(tree.path(), {each.mode, paths.back()});
    if (!placed) return placed;
  }
  GitOptions elsewhere = index;
  elsewhere.configuration.emplace_back("core.fileMode", "true");
  elsewhere.configuration.emplace_back("core.symlinks", "true");
  elsewhere.environment["GIT_WORK_TREE"] = tree.path();
  if (auto added = modifyAll(git, add, paths, elsewhere); !added) return added;
  return modifyAll(git, add, repositories, index);
}

TaskSafetyResult<std::vector<IntentToAddFile>> goneFiles(const PatchGit& git,
                                                         std::vector<IntentToAddFile> files) {
  if (files.empty()) return files;
  const auto listed =
      git.queryOrFail({"diff", "--name-only", "--diff-filter=D", "--relative", "-z"});
  if (!listed) return std::unexpected(listed.error());
  const auto parts = listed->parts();
  const std::set<std::string> deleted(parts.begin(), parts.end());
  std::erase_if(files, [&](const auto& file) { return !deleted.contains(file.path); });
  for (const auto& each : files) {
    if (each.mode != repository) continue;
    return std::unexpected(TaskSafetyError::commandFailed(
        fmt::format("\"{}\" is in the index as a repository that is gone. Remove it with "
                    "\"git rm --cached\" first.",
                    text::repaired(each.path))));
  }
  return files;
}

TaskSafetyResult<> writeIndexWithout(const PatchGit& git, const std::vector<IntentToAddFile>& files,
                                     const std::string& copy) {
  WorkBudget budget;
  if (auto copied = copyItem(git.indexFile(), copy, budget); !copied) return copied;
  std::string paths;
  for (const auto& each : files) paths.append(each.path).push_back('\0');
  return git.modify({"update-index", "--force-remove", "-z", "--stdin"},
                    {.input = std::move(paths),
                     .configuration = {{"core.splitIndex", "false"}},
                     .environment = {{"GIT_INDEX_FILE", copy}}});
}

}  // namespace vantrell
