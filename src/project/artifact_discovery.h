// The files that a conversation produced: those that git reports as changed, those that the agents
// named in their tool calls, and the pictures and films of the media library.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "records/values/conversation_records.h"
#include "records/values/git_workspace_snapshot.h"
#include "records/values/imagine_item.h"

namespace vantrell {

struct ProjectArtifact {
  /// By rank: a file that was found in several places has the first of them.
  enum class Source { agent, changed, project, imagine };

  std::string path;  // absolute and standardized; also its identity
  Source source = Source::agent;
  std::optional<std::string> workspacePath;  // project root, for the shown path

  /// Relative to the project root for a file that lies under it, else the full path.
  std::string displayPath() const;

  bool operator==(const ProjectArtifact&) const = default;
};
constexpr auto rawTexts(ProjectArtifact::Source) {
  return std::to_array<std::string_view>({"agent", "changed", "project", "imagine"});
}

namespace ArtifactDiscovery {

/// Each file that exists once, by source and then by name, without regard to case. Bad input, a
/// folder and a file that is gone add nothing. Looks every candidate up on the disk: any thread.
std::vector<ProjectArtifact> artifacts(const std::optional<std::string>& workspacePath,
                                       const std::vector<GitChangedFile>& changedFiles,
                                       std::span<const ChatEntry> entries,
                                       const std::vector<ImagineItem>& imagineItems);
/// The same with what git reports as changed in the folder, which may lie below the root of its
/// repository. Blocks: not on the main queue.
std::vector<ProjectArtifact> artifactsIn(const std::string& folder,
                                         std::span<const ChatEntry> entries,
                                         const std::vector<ImagineItem>& imagineItems);

}  // namespace ArtifactDiscovery

}  // namespace vantrell
