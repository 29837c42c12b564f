// The second step of a restore: carries out what RestorePlan has prepared, by removing and renaming
// files alone, without running a program that could fail, and replaces the index at the end.
// Blocks: never on the main queue.
#pragma once

#include <string>

#include "project/restore_lists.h"
#include "project/task_safety_error.h"

namespace vantrell {

class RestoreRun {
 public:
  RestoreRun(RestoreIndex& index, const RestorePlaces& places, const RestoreLists& lists)
      : index_(index), places_(places), lists_(lists) {}

  /// After a failure some files may have been put back already.
  TaskSafetyResult<> carryOut();

 private:
  TaskSafetyResult<> changeFiles();
  void removeUntracked();
  void removeFile(const std::string& path);
  void removeEmpty(std::string folder);
  TaskSafetyResult<> place(const std::string& path);
  void keepMode(const std::string& staged, const std::string& old) const;

  RestoreIndex& index_;
  const RestorePlaces places_;
  const RestoreLists& lists_;
};

}  // namespace vantrell
