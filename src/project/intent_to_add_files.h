// Files that the index has with an intent to add only (git add -N): a name and a mode for each and
// no content, which no patch says. The mode is that of the moment of the command; the file may have
// another one by now, or be gone. Blocks: never on the main queue.
#pragma once

#include <string>
#include <vector>

#include "project/patch_git.h"
#include "project/task_safety_error.h"

namespace vantrell {

struct IntentToAddFile {
  std::string mode;  // as git writes it: "100644"
  std::string path;
};

/// Those of the project, in any order.
TaskSafetyResult<std::vector<IntentToAddFile>> intentToAddFiles(const PatchGit& git);
/// Enters them in the index that the options name, which must not have them; what stands at their
/// places does not matter.
TaskSafetyResult<> addIntents(const PatchGit& git, const std::vector<IntentToAddFile>& files,
                              const GitOptions& index);

/// Of these files, those that are gone. Git's diff deletes them, from an index that has nothing to
/// delete, so no patch may name them.
TaskSafetyResult<std::vector<IntentToAddFile>> goneFiles(const PatchGit& git,
                                                         std::vector<IntentToAddFile> files);
/// Writes a copy of the index that lacks them.
TaskSafetyResult<> writeIndexWithout(const PatchGit& git, const std::vector<IntentToAddFile>& files,
                                     const std::string& copy);

}  // namespace vantrell
