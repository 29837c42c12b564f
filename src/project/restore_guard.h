// Sees to it, before a restore touches anything, that nothing is lost by it: that the archive fits
// its revision, that the recovery checkpoint is what stands, and that what is in the way and in no
// checkpoint (ignored files, repositories, files that git does not look at) is saved first, spared
// or makes us refuse. Blocks: never on the main queue.
#pragma once

#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "project/patch_git.h"
#include "project/recovery_archive.h"
#include "project/task_safety_error.h"

namespace vantrell {

class RestoreGuard {
 public:
  /// `recovery` is the archive of the checkpoint that was taken just now, if there is one; what it
  /// lacks is added to it.
  RestoreGuard(const PatchGit& git, std::string archive, std::string baseRevision,
               std::optional<std::string> recovery);
  /// Removes its temporary files.
  ~RestoreGuard();
  RestoreGuard(const RestoreGuard&) = delete;
  RestoreGuard& operator=(const RestoreGuard&) = delete;

  /// Everything that can be found out beforehand; changes nothing in the project.
  TaskSafetyResult<> prepare();
  /// Whether git tracks anything here, now or in the revision: it refuses to restore nothing.
  bool hasTrackedFiles() const { return hasTrackedFiles_; }
  /// Between restoring the tracked files and cleaning: the rules of what is ignored may have
  /// changed, so that files which no checkpoint holds would count as untracked.
  TaskSafetyResult<> saveBeforeCleaning();
  /// Whether nothing is left that is untracked.
  bool isClean() const;
  /// Before patches are applied: removes what is in their way. It has been saved.
  TaskSafetyResult<> clearTheWay() const;
  /// After that: git's diff does not delete the files of a folder that has become a link to itself,
  /// so they still stand in the way of that link.
  TaskSafetyResult<> clearPlacesOfUntracked() const;
  /// At the end: what the checkpoint's own rules ignore is none of its business, so where cleaning
  /// took some of it, it comes back.
  TaskSafetyResult<> bringBackIgnored() const {
    return recovery_ ? recovery_->bringBackIgnored() : TaskSafetyResult<>();
  }
  /// For restoring the tracked files, each ending with NUL; empty when that is all of them.
  std::string pathspecs() const;
  /// What a restore leaves alone.
  std::vector<std::string> notes() const;
  /// For cleaning: spares what was ignored before.
  PatchGit::Configuration cleaningConfiguration() const;

 private:
  TaskSafetyResult<std::vector<std::string>> pathsOfCheckpoint();
  TaskSafetyResult<std::vector<std::string>> untracked() const;
  bool isInRevision(const std::string& path) const;
  void clearFolder(const std::string& folder) const;
  TaskSafetyResult<> saveObstacle(const std::string& path);
  TaskSafetyResult<> save(const std::string& path);
  TaskSafetyResult<> spareUnwatched();
  TaskSafetyResult<> writeExcludes();
  GitOptions ownIndex() const;
  TaskSafetyResult<std::unordered_set<std::string>> changedFrom(const GitOptions& index) const;
  std::string placeOf(const std::string& path) const;
  bool holdsUnsaved(const std::string& folder) const;
  bool isIgnored(const std::string& path) const;

  const PatchGit& git_;
  const std::string archive_;
  const std::string base_;
  std::optional<RecoveryArchive> recovery_;
  const std::string temporary_;
  bool hasTrackedFiles_ = false;
  std::unordered_set<std::string> tracked_;
  std::vector<std::string> ignored_;         // folders end with a slash
  std::unordered_set<std::string> patched_;  // what the checkpoint's patches change
  std::vector<std::string> spared_;          // tracked
  std::vector<std::string> inRevision_;      // sorted
  std::vector<std::string> obstacles_;
};

}  // namespace vantrell
