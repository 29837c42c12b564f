// The uncommitted state of a project, in files of a folder: what is staged, what is not, and what
// patches cannot say. From there it goes back to where it came from, or into a worktree. Blocks:
// never on the main queue.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "project/intent_to_add_files.h"
#include "project/patch_git.h"
#include "project/task_safety_error.h"
#include "project/tree_copy.h"

namespace vantrell {

/// Sentences for the user about what a checkpoint does not hold.
using SafetyNotes = std::vector<std::string>;
/// For such a sentence: "a, b and 3 more".
std::string firstOf(const std::vector<std::string>& paths);

namespace changes {

inline constexpr std::string_view workingPatch = "working.patch";
inline constexpr std::string_view stagedPatch = "staged.patch";
inline constexpr std::string_view untrackedFolder = "untracked";
inline constexpr std::string_view unfilteredFolder = "exact";  // see unfiltered_contents.h
/// The empty folders, with their modes.
inline constexpr std::string_view emptyFolderTree = "empty-folders";

/// Writes both patches, and where there are some, the files with an intent to add.
TaskSafetyResult<> recordPatches(const PatchGit& git, const std::string& folder);
/// Applies one of the patches to an index of the caller's own, which the options name; touches
/// nothing else.
TaskSafetyResult<> applyToIndex(const PatchGit& git, const std::string& folder,
                                std::string_view patch, const GitOptions& index);
/// Whether the patches go onto the revision: what does not come back is no checkpoint.
TaskSafetyResult<> provePatches(const PatchGit& git, const std::string& folder,
                                const std::string& revision);
/// Writes what else patches do not say, each only where there is some: empty folders, and changed
/// files whose bytes git would not bring back.
TaskSafetyResult<> recordRest(const PatchGit& git, const std::string& folder, WorkBudget& budget,
                              SafetyNotes& notes);

/// The folders of the project that have nothing in them and are not ignored.
TaskSafetyResult<std::vector<std::string>> findEmptyFolders(const PatchGit& git,
                                                            const WorkBudget& budget,
                                                            SafetyNotes& notes);
/// The empty folders that recordRest() noted.
std::vector<std::string> emptyFolders(const std::string& folder);

/// The files with an intent to add that recordPatches() noted.
std::vector<IntentToAddFile> readIntentsToAdd(const std::string& folder);

/// Copies the untracked, not ignored files. Answers how many there are, those left out included.
/// The target folder is made when there is one. A file that is there already stays as it is.
TaskSafetyResult<std::size_t> copyUntracked(const PatchGit& git, const std::string& target,
                                            WorkBudget& budget, SafetyNotes& notes);

}  // namespace changes
}  // namespace vantrell
