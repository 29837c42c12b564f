// What is known about a project, whichever provider works in it: the user's standing instructions,
// pinned files, decisions, hooks, and the guidance that lies in its folder. Plain values; times
// come from the caller.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/values/date.h"
#include "platform/values/uuid.h"
#include "records/values/project_hook.h"

namespace vantrell {

/// Something that the user has decided for the project, for every provider to keep to.
struct ProjectDecision {
  Uuid id;
  std::string title;
  std::string detail;
  Date createdAt;

  bool operator==(const ProjectDecision&) const = default;
};

/// A file of the project that tells agents how to work in it.
struct ProjectContextSource {
  std::string path;     // relative to the project's folder
  std::string title;    // its name without the extension
  std::string summary;  // its beginning
  std::optional<Date> modifiedAt;

  bool operator==(const ProjectContextSource&) const = default;
};

struct ProjectContextProfile {
  std::string instructions;                             // trimmed
  std::vector<std::string> pinnedFiles;                 // paths to name in the prompt
  std::vector<ProjectDecision> decisions;               // oldest first
  std::vector<ProjectContextSource> discoveredSources;  // found anew at every load for use
  std::optional<std::vector<ProjectHook>> hooks;        // absent counts as none
  Date updatedAt;                                       // by the user

  static ProjectContextProfile blank(Date now);

  /// What a provider is told: the sections that have content, of them the first `maxCharacters`
  /// user-perceived characters. Of the decisions the last 20 are told.
  std::string promptContext(std::size_t maxCharacters) const;
  /// What there is, in one line: "Instructions · 2 decisions". Absent when there is nothing.
  std::optional<std::string> summary() const;

  bool operator==(const ProjectContextProfile&) const = default;
};

}  // namespace vantrell
