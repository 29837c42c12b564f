// The global choices of the user, kept in the user defaults. Main queue.
#pragma once

#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "engine/core/run_choices.h"
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
  /// With what a front end has chosen for a conversation. A plan with full access asks instead.
  GrokPermissionMode permissionModeFor(const RunChoices& choices) const;
  TaskWorkflowMode workflowModeFor(const RunChoices& choices) const;
  ProviderRoutingMode routingMode() const { return routingMode_; }
  /// A provider that is billed per use is never chosen.
  bool noMeteredAPIs() const { return noMeteredAPIs_; }
  bool importsExternalSessions() const { return importsExternalSessions_; }
  bool isRemoteHostEnabled() const { return isRemoteHostEnabled_; }
  /// One of VantrellInterfaceScale's steps.
  double interfaceScale() const { return interfaceScale_; }

  // Each of these publishes and stores a choice, with no other effect. A refusal says why it could
  // not be stored: it holds all the same, until the end of the process.

  Result<> recordPermissionMode(GrokPermissionMode mode);
  Result<> recordWorkflowMode(TaskWorkflowMode mode);
  Result<> recordRoutingMode(ProviderRoutingMode mode);
  Result<> recordNoMeteredAPIs(bool value);
  Result<> recordExternalSessionImport(bool value);
  Result<> recordRemoteHost(bool isEnabled);
  /// The nearest step.
  Result<> setInterfaceScale(double value);

  /// A plan never begins with full access.
  bool isPlanWithFullAccess() const;
  /// For a choice that follows from something else: the failure is announced instead.
  void announceFailure(const Result<>& stored);

  // What is stored under other keys, which their readers take from the defaults.

  const UserDefaults& defaults() const { return defaults_; }
  /// Refused when it could not be stored; the old value holds then.
  Result<> store(std::string_view key, std::string_view text);
  Result<> forget(std::string_view key);

 private:
  Result<> announced(bool isStored);

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
