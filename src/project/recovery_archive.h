// The checkpoint that was taken just before a restore, which holds all that the restore would lose:
// what it lacks is added to it before anything is touched. Blocks: never on the main queue.
#pragma once

#include <set>
#include <string>

#include "project/patch_git.h"
#include "project/task_safety_error.h"

namespace vantrell {

class RecoveryArchive {
 public:
  RecoveryArchive(const PatchGit& git, std::string folder);

  /// Whether it has the file that no patch holds, as it is now.
  bool has(const std::string& path) const;
  /// Adds such a file in its state of now; one that it has stays.
  TaskSafetyResult<> add(const std::string& path);
  /// Adds the bytes of those of the tracked files that git would not give back as they are.
  TaskSafetyResult<> addUnfiltered(const std::set<std::string>& paths);
  /// Refuses where somebody changed tracked files since it was taken. Uses the folder for patches.
  TaskSafetyResult<> compare(const std::string& scratch) const;
  /// Waits until all of it is on the disk: what it saves is about to be removed, and a loss of
  /// power must not take both.
  TaskSafetyResult<> settle();

 private:
  std::string placeOf(const std::string& path) const;
  std::string keptAt(const std::string& path) const;

  const PatchGit& git_;
  const std::string folder_;
  const std::string untracked_;
  bool isSettled_ = false;
};

}  // namespace vantrell
