// Copies files between a project, a checkpoint's archive and a worktree. Symbolic links are copied
// as links and never followed, so that nothing is read or written outside the folders that are
// named. Blocks: never on the main queue.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/files/files.h"
#include "project/task_safety_error.h"

namespace vantrell {

/// What a piece of work may still take. What is absent has no bound.
struct WorkBudget {
  std::optional<std::chrono::steady_clock::time_point> deadline;
  std::optional<std::uint64_t> files;
  std::optional<std::uint64_t> bytes;

  /// The time that is left; absent without a deadline.
  std::optional<std::chrono::milliseconds> timeLeft() const;
  bool isOutOfTime() const;
};

/// Creates the folder and its parents with mode 0700, and sets that mode on it if it was there.
TaskSafetyResult<> secureDirectory(const std::string& path);

/// A folder of ours, to be made by secureDirectory(), that is removed at the end unless it is kept.
class OwnFolder {
 public:
  /// A new name in that folder, by default among the temporary files. A lock beside it shows that
  /// it is in use; what programs that were killed have left there is removed.
  struct In {
    std::string parent;
  };
  explicit OwnFolder(const In& in);
  OwnFolder();
  /// That folder.
  explicit OwnFolder(std::string path) : path_(std::move(path)) {}
  ~OwnFolder();
  OwnFolder(const OwnFolder&) = delete;
  OwnFolder& operator=(const OwnFolder&) = delete;
  const std::string& path() const { return path_; }
  void keep() { isKept_ = true; }

  /// Removes what has been left in that folder; first does something with each.
  static void sweep(const std::string& parent,
                    const std::function<void(const std::string& leftover)>& first = {});

 private:
  std::string path_;
  std::optional<files::LockFile> lock_;
  bool isKept_ = false;
};

/// root + "/" + relative, standardized; absent when that leaves the root.
std::optional<std::string> pathInside(std::string_view root, std::string_view relative);

/// Whether anything, also a dangling link, stands there.
bool standsAt(const std::string& path);
/// Whether it is a folder itself, not a link to one.
bool isRealFolder(const std::string& path);
/// Whether the folder is the top of a Git repository of its own.
bool isRepository(const std::string& folder);

/// Whether a file or a link stands in the place of a folder above the path.
bool isBelowFile(const std::string& root, const std::string& path);

/// Makes the folders above `relative` under the root, one by one. A file or link in the place of
/// one is a failure: no path leads out through a link. A folder that is made gets the mode of the
/// one below `like`, if there is one, but its owner can always write to it.
TaskSafetyResult<> makeParents(const std::string& root, std::string_view relative,
                               std::string_view like = {});

/// Copies a file, a link or a folder with all that is in it to a name that is free, with modes and
/// times. Pipes, sockets and devices are left out, and what has gone meanwhile. Takes from the
/// budget; a failure when it is used up.
TaskSafetyResult<> copyItem(const std::string& source, const std::string& target,
                            WorkBudget& budget);

}  // namespace vantrell
