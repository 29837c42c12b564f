// What stands in the work tree that a restore is for, and what is to come there: found out by
// RestorePlan, carried out by RestoreRun. Plain values; paths are relative to the project.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "project/patch_git.h"
#include "project/restore_index.h"

namespace vantrell {

struct RestoreLists {
  using Paths = RestoreIndex::Paths;

  // What stands.
  bool knowsExecutables = true;  // git does, of this repository
  Paths tracked;                 // without submodules
  Paths submodules;
  Paths untracked;                   // without repositories
  std::vector<std::string> ignored;  // folders end with a slash
  std::vector<std::string> emptyFolders;

  // What is to come.
  std::map<std::string, bool> target;         // tracked path: whether it is a submodule
  Paths fromGit;                              // files that git writes
  Paths unfiltered;                           // from the archive, as the next one
  Paths archivedUntracked;                    // files, links and repositories
  std::vector<std::string> targetFolders;     // the empty ones
  std::vector<std::string> submoduleFolders;  // those that are missing

  Paths removed;                                // files that go in any case
  Paths clearedFolders;                         // that make room for a file
  std::map<std::string, mode_t> lockedFolders;  // absolute; are writable while it is carried out

  /// All files that are put in their places.
  std::vector<const Paths*> placed() const { return {&fromGit, &unfiltered, &archivedUntracked}; }
};

/// Where the files of a restore are.
struct RestorePlaces {
  const PatchGit& git;
  const std::string& archive;
  const RestoreIndex& index;

  std::string inProject(const std::string& path) const { return git.path() + "/" + path; }
  /// Beside the index, until it is put in its place.
  std::string staged(const std::string& path) const {
    return index.folder() + "/tree/" + index.prefix() + path;
  }
  std::string archived(std::string_view folder, const std::string& path) const {
    return archive + "/" + std::string(folder) + "/" + path;
  }
  /// Whether it stands in the project itself, and not by way of a link above it.
  bool stands(const std::string& path) const {
    return standsAt(inProject(path)) && !isBelowFile(git.path(), path);
  }
};

}  // namespace vantrell
