// A restore in two steps. prepare() finds out everything that can go wrong (programs of filters
// that are missing, locks, folders that cannot be written, a full disk, files that no checkpoint
// has and that would be lost) while it writes nothing into the work tree: the files to come are
// written into a folder beside the index, and what the recovery checkpoint lacks is added to it.
// carryOut() only removes and renames files, without running a program that could fail, and
// replaces the index at the end. Blocks: never on the main queue.
#pragma once

#include <optional>
#include <string>

#include "project/patch_git.h"
#include "project/recovery_archive.h"
#include "project/restore_lists.h"
#include "project/task_safety_error.h"
#include "project/uncommitted_changes.h"

namespace vantrell {

class RestorePlan {
 public:
  /// `recovery` is the archive of the checkpoint that was taken just now, if there is one. Without
  /// it, ignored files that are in the way make prepare() refuse.
  RestorePlan(const PatchGit& git, std::string archive, std::string baseRevision,
              std::optional<std::string> recovery);

  /// Fails with a sentence that says that nothing was changed.
  TaskSafetyResult<> prepare();
  /// After a failure some files may have been put back already.
  TaskSafetyResult<> carryOut();
  /// After prepare(): what stays as it is.
  const SafetyNotes& notes() const { return notes_; }

 private:
  using Paths = RestoreLists::Paths;

  TaskSafetyResult<> listWhatStands();
  TaskSafetyResult<> chooseTrackedFiles();
  void chooseArchivedFiles(const std::string& folder, Paths& chosen);
  enum class Coming { file, repository, emptyFolder };
  TaskSafetyResult<> makeRoom(const std::string& path, Coming coming);
  TaskSafetyResult<> makeRoomForAll();
  TaskSafetyResult<> clearFolderLater(const std::string& folder);
  TaskSafetyResult<> saveWhatGoes();
  TaskSafetyResult<> save(const std::string& path);
  TaskSafetyResult<> findLockedFolders();
  TaskSafetyResult<> stage();

  bool isSame(const std::string& kept, const std::string& path) const;
  bool isKnown(const std::string& path) const;

  const PatchGit& git_;
  const std::string archive_;
  RestoreIndex index_;
  std::optional<RecoveryArchive> recovery_;
  const RestorePlaces places_{git_, archive_, index_};
  RestoreLists lists_;
  SafetyNotes notes_;
};

}  // namespace vantrell
