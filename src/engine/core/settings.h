// The global choices of the user, kept in the user defaults. Main queue.
#pragma once

#include "engine/core/changes.h"
#include "records/values/task_modes.h"

namespace vantrell {

class UserDefaults;

/// The sizes that the interface can be shown in.
namespace VantrellInterfaceScale {
/// The step nearest to any value; 0 counts as not chosen and gives 1.0.
double snapped(double value);
/// The step above or below the nearest one; the ends stay. From 0.8 to 1.5, in tenths.
double increased(double from);
double decreased(double from);
}  // namespace VantrellInterfaceScale

class Settings {
 public:
  Settings(UserDefaults& defaults, Changes& changes);

  /// Reads what is stored; missing and unknown values give the defaults. The two guards that are on
  /// by default are written at once where they are missing, so that a later default cannot turn
  /// them off.
  void load();

  GrokPermissionMode permissionMode() const { return permissionMode_; }
  TaskWorkflowMode workflowMode() const { return workflowMode_; }
  ProviderRoutingMode routingMode() const { return routingMode_; }
  /// A provider that is billed per use is never chosen.
  bool noMeteredAPIs() const { return noMeteredAPIs_; }
  bool importsExternalSessions() const { return importsExternalSessions_; }
  bool isRemoteHostEnabled() const { return isRemoteHostEnabled_; }
  /// One of VantrellInterfaceScale's steps.
  double interfaceScale() const { return interfaceScale_; }

  /// Publishes and stores the mode, with no other effect.
  void recordPermissionMode(GrokPermissionMode mode);
  void recordWorkflowMode(TaskWorkflowMode mode);
  /// A plan never begins with full access: while planning is the kind of work, full access falls
  /// back to asking. Returns whether it did.
  bool lowerForPlan();
  void recordRoutingMode(ProviderRoutingMode mode);
  void recordNoMeteredAPIs(bool value);
  void recordExternalSessionImport(bool value);
  /// Publishes and stores the nearest step.
  void setInterfaceScale(double value);

  /// The choices of a front end for this process only: nothing is stored.
  void chooseForThisProcess(GrokPermissionMode permissionMode, TaskWorkflowMode workflowMode);

 private:
  void announce();
  void tellUnlessStored(bool isStored);

  UserDefaults& defaults_;
  Changes& changes_;
  GrokPermissionMode permissionMode_ = GrokPermissionMode::ask;
  TaskWorkflowMode workflowMode_ = TaskWorkflowMode::build;
  ProviderRoutingMode routingMode_ = ProviderRoutingMode::automatic;
  bool noMeteredAPIs_ = true;
  bool importsExternalSessions_ = true;
  bool isRemoteHostEnabled_ = false;
  double interfaceScale_ = 1.0;
};

}  // namespace vantrell
