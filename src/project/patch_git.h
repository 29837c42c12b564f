// git for one project as checkpoints need it: what the user has configured about the looks of a
// diff does not reach the patches, which must go back on byte for byte. What the user has
// configured about content (line ends, filters, ignored files) stays. Blocks: never on the main
// queue.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "project/git.h"
#include "project/task_safety_error.h"
#include "project/tree_copy.h"

namespace vantrell {

class PatchGit {
 public:
  explicit PatchGit(std::string path, const WorkBudget& budget = {});

  const std::string& path() const { return path_; }

  using Configuration = std::vector<std::pair<std::string, std::string>>;

  /// A command that only looks; its errors are apart.
  GitResult query(std::vector<std::string> arguments, GitOptions options = {}) const;
  /// The same, where anything but success is a failure.
  TaskSafetyResult<GitResult> queryOrFail(std::vector<std::string> arguments,
                                          GitOptions options = {}) const;
  /// A command that changes something; a failure carries what git printed.
  TaskSafetyResult<> modify(std::vector<std::string> arguments, GitOptions options = {}) const;

  /// Of the project in its repository: empty, or ends with a slash.
  std::string prefix() const { return line({"rev-parse", "--show-prefix"}); }
  std::string indexFile() const;

  /// The output of a command, written to a file that is there whole or not at all.
  TaskSafetyResult<> write(std::vector<std::string> arguments, const std::string& file,
                           GitOptions options = {}) const;

 private:
  std::string line(std::vector<std::string> arguments) const;
  GitOptions with(GitOptions options) const;

  std::string path_;
  WorkBudget budget_;
};

/// Those of the paths that the rules ignore, tracked or not. Git gives up on all of them for one
/// that it cannot judge, as below a link or in a submodule; such a one is not ignored.
std::vector<std::string> ignoredOf(const PatchGit& git, std::span<const std::string> paths);

/// What to say of a command that went wrong.
TaskSafetyError gitError(const GitResult& result);

}  // namespace vantrell
