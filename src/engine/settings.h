// The global choices of the user, kept in the user defaults. Main queue.
#pragma once

#include "engine/changes.h"
#include "records/task_modes.h"

namespace vantrell {

class UserDefaults;

class Settings {
 public:
  Settings(UserDefaults& defaults, Changes& changes);

  /// Reads what is stored; missing and unknown values give the defaults.
  void load();

  GrokPermissionMode permissionMode() const { return permissionMode_; }
  TaskWorkflowMode workflowMode() const { return workflowMode_; }

  /// Publishes and stores the mode, with no other effect.
  void recordPermissionMode(GrokPermissionMode mode);
  void recordWorkflowMode(TaskWorkflowMode mode);

  /// The choices of a front door that holds for this process only: nothing is stored.
  void chooseForThisProcess(GrokPermissionMode permissionMode, TaskWorkflowMode workflowMode);

 private:
  void announce();

  UserDefaults& defaults_;
  Changes& changes_;
  GrokPermissionMode permissionMode_ = GrokPermissionMode::ask;
  TaskWorkflowMode workflowMode_ = TaskWorkflowMode::build;
};

}  // namespace vantrell
