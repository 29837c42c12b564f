// The index that a restore is to leave, made beside the real one; and a second one, which is the
// work tree to come: so git can say what differs from that. Owns the folder for all that a restore
// prepares, in the git folder, and the lock of the index. Blocks: never on the main queue.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "project/patch_git.h"
#include "project/task_safety_error.h"
#include "project/tree_copy.h"

namespace vantrell {

class RestoreIndex {
 public:
  using Paths = std::set<std::string>;  // relative to the project

  RestoreIndex(const PatchGit& git, std::string archive, std::string baseRevision);
  /// Takes the lock away if it is still held.
  ~RestoreIndex();
  RestoreIndex(const RestoreIndex&) = delete;
  RestoreIndex& operator=(const RestoreIndex&) = delete;

  /// Removes what an earlier restore left that was killed. Refuses where another command holds the
  /// index.
  TaskSafetyResult<> open();
  /// Makes both. Shows whether the archive is whole and fits its revision.
  TaskSafetyResult<> make();

  /// For preparations; removed at the end.
  const std::string& folder() const { return scratch_->path(); }
  /// Of the project in its repository: empty, or ends with a slash.
  const std::string& prefix() const { return prefix_; }
  /// For commands on the index that is to come, and on the one that is the work tree to come.
  GitOptions next() const { return with("/next"); }
  GitOptions target() const { return with("/target"); }
  /// Tracked files that git does not look at and that stay as they are.
  const Paths& spared() const { return spared_; }
  /// Such files that the checkpoint has changes of: no patch has what stands there now.
  const Paths& unwatched() const { return unwatched_; }
  /// The pieces of a list of git.
  TaskSafetyResult<std::vector<std::string>> list(std::vector<std::string> command,
                                                  GitOptions options = {}) const;

  /// Keeps other commands out, as git itself does it. Nothing has been changed after a failure.
  TaskSafetyResult<> lock();
  /// Puts the index in place, which also unlocks it.
  TaskSafetyResult<> replace();

 private:
  GitOptions with(std::string_view index) const;
  TaskSafetyResult<> preserveSkipWorktree();
  TaskSafetyResult<Paths> pathsOfPatches() const;

  const PatchGit& git_;
  const std::string archive_;
  const std::string base_;
  std::string prefix_;
  std::string index_;
  std::string lock_;
  bool isLocked_ = false;
  std::optional<OwnFolder> scratch_;
  Paths spared_;
  Paths unwatched_;
};

}  // namespace vantrell
