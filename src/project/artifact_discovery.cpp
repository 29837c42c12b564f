#include "project/artifact_discovery.h"

#include <algorithm>
#include <map>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "project/git_workspace_service.h"
#include "records/values/project_hook.h"

namespace vantrell {

namespace {

using Source = ProjectArtifact::Source;

constexpr std::string_view pathKeys[] = {"path", "filepath", "filename", "outputpath",
                                         "targetpath"};

/// Also as `file_path` and `FilePath`.
bool isPathKey(std::string_view key) {
  std::string plain = text::lowercased(key);
  std::erase(plain, '_');
  return std::ranges::find(pathKeys, plain) != std::end(pathKeys);
}

/// A list has the key that it stands under. No key: nothing counts yet.
void collectPaths(const Json& value, bool isUnderPathKey, std::vector<std::string>& paths) {
  if (const auto* object = value.asObject()) {
    for (const auto& [key, member] : *object) collectPaths(member, isPathKey(key), paths);
  } else if (const auto* list = value.asArray()) {
    for (const auto& each : *list) collectPaths(each, isUnderPathKey, paths);
  } else if (const auto* text = value.asText(); text && isUnderPathKey) {
    paths.push_back(*text);
  }
}

class Table {
 public:
  explicit Table(const std::optional<std::string>& workspacePath) : workspacePath_(workspacePath) {}

  void add(std::string_view absolutePath, Source source) {
    std::string path = files::standardized(absolutePath);
    const auto known = artifacts_.find(path);
    if (known != artifacts_.end() && known->second.source <= source) return;
    if (!files::exists(path) || files::isFolder(path)) return;
    ProjectArtifact artifact{path, source, workspacePath_};
    artifacts_.insert_or_assign(std::move(path), std::move(artifact));
  }
  /// Appended to the project root; without one there is nothing to append it to.
  void addOfProject(std::string_view path, Source source) {
    if (workspacePath_) add(*workspacePath_ + "/" + std::string(path), source);
  }

  std::vector<ProjectArtifact> sorted() && {
    struct Row {
      std::string name;
      ProjectArtifact artifact;
    };
    std::vector<Row> rows;
    for (auto& [path, artifact] : artifacts_) {
      rows.push_back({text::lowercased(files::lastComponent(path)), std::move(artifact)});
    }
    // Equal names stay in the order of their paths.
    std::ranges::stable_sort(rows, [](const Row& left, const Row& right) {
      if (left.artifact.source != right.artifact.source) {
        return left.artifact.source < right.artifact.source;
      }
      return text::localizedCompare(left.name, right.name) < 0;
    });
    std::vector<ProjectArtifact> all;
    for (auto& row : rows) all.push_back(std::move(row.artifact));
    return all;
  }

 private:
  const std::optional<std::string>& workspacePath_;
  std::map<std::string, ProjectArtifact> artifacts_;  // by path
};

}  // namespace

std::string ProjectArtifact::displayPath() const {
  if (!workspacePath) return path;
  std::string root = files::standardized(*workspacePath);
  if (root != "/") root += '/';
  return path.starts_with(root) ? path.substr(root.size()) : path;
}

std::vector<ProjectArtifact> ArtifactDiscovery::artifacts(
    const std::optional<std::string>& workspacePath,
    const std::vector<GitChangedFile>& changedFiles, std::span<const ChatEntry> entries,
    const std::vector<ImagineItem>& imagineItems) {
  Table table(workspacePath);
  for (const auto& file : changedFiles) table.addOfProject(file.path, Source::changed);
  for (const auto& entry : entries) {
    if (entry.kind != ChatEntryKind::tool || isHookEntry(entry)) continue;
    const auto input = json::parse(entry.text);
    if (!input) continue;
    std::vector<std::string> paths;
    collectPaths(*input, false, paths);
    for (const auto& path : paths) {
      path.starts_with('/') ? table.add(path, Source::agent)
                            : table.addOfProject(path, Source::agent);
    }
  }
  for (const auto& item : imagineItems) table.add(item.localPath, Source::imagine);
  return std::move(table).sorted();
}

std::vector<ProjectArtifact> ArtifactDiscovery::artifactsIn(
    const std::string& folder, std::span<const ChatEntry> entries,
    const std::vector<ImagineItem>& imagineItems) {
  constexpr std::size_t longestPath = 4096;  // bytes
  auto changed = GitWorkspaceService::read(folder).files;
  // Git names them from the root of the repository; "../../", or nothing at the root.
  const auto toRoot =
      GitWorkspaceService::runGit({"rev-parse", "--show-cdup"}, folder, longestPath);
  if (toRoot && toRoot->status == 0) {
    for (auto& file : changed) file.path.insert(0, text::trimmed(toRoot->text));
  }
  return artifacts(folder, changed, entries, imagineItems);
}

}  // namespace vantrell
