// Owns the application's state and everything that works on it, and brings it up in order. It has
// no rules of its own: front ends read the state through it and call operations, each with the
// conversation that it is about. Main queue.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/app_dependencies.h"

namespace vantrell {

class Approvals;
class Changes;
class Composer;
class ExecutionMonitor;
class ExecutionTable;
class GitSnapshotService;
class HookRunner;
class ImagineController;
class InstalledRuntimes;
class ModelCatalog;
class Navigation;
class OrchestrationStore;
class ProjectContextService;
class PromptQueue;
class ProviderSetup;
class ReviewNotes;
class Router;
class SelectedTask;
struct ThreadExecutionKey;
class Selection;
class SessionControls;
class SessionStatusService;
class Settings;
class SettingsOperations;
class StoredTasks;
class TaskBranches;
class TaskSafety;
class UpdatePreparation;
class UsageReset;
class UsageTracker;
class WorkspaceOperations;
class WorkspaceTree;
struct AppParts;

class AppModel {
 public:
  using Dependencies = AppDependencies;
  /// Performs the whole start-up.
  explicit AppModel(Dependencies dependencies);
  /// endAllWork().
  ~AppModel();
  AppModel(const AppModel&) = delete;
  AppModel& operator=(const AppModel&) = delete;

  /// Ends every client. What the transcripts were before an unfinished replay, they are again. All
  /// of it is on the disk when this returns, or the result is false.
  bool endAllWork();

  // State, to read. Changes are announced once a turn of the queue.

  Changes& changes() const;
  const WorkspaceTree& tree() const;
  const Settings& settings() const;
  const Selection& selection() const;
  const ExecutionTable& executions() const;
  const UsageTracker& usage() const;
  OrchestrationStore& orchestration() const;

  // Operations.

  /// The operations on the conversation that the user looks at, by their usual names.
  SelectedTask& selected() const;
  Navigation& navigation() const;
  WorkspaceOperations& operations() const;
  SettingsOperations& settingsOperations() const;
  Composer& composer() const;
  PromptQueue& queue() const;
  Approvals& approvals() const;
  SessionControls& controls() const;
  Router& router() const;
  TaskSafety& safety() const;
  TaskBranches& branches() const;
  SessionStatusService& status() const;
  ExecutionMonitor& monitor() const;
  ProjectContextService& context() const;
  GitSnapshotService& git() const;
  HookRunner& hooks() const;
  ReviewNotes& reviews() const;
  InstalledRuntimes& runtimes() const;
  ProviderSetup& setup() const;
  ModelCatalog& catalog() const;
  UsageReset& usageReset() const;
  ImagineController& imagine() const;
  StoredTasks& storedTasks() const;
  UpdatePreparation& updatePreparation() const;

  // Choices of a front end.

  /// Holds back what the conversation's agent says, or lets it flow again: the front end that shows
  /// it cannot take more.
  void setReceiving(const ThreadExecutionKey& key, bool receiving);
  /// Ends the conversation's agent if it is at work, and its run as cancelled.
  void endWork(const ThreadExecutionKey& key);
  /// Waits until all that was changed is on the disk; false when some of it could not be written.
  bool flush();

  /// Everything that the model is made of, for tests and for what is composed beside it.
  AppParts& parts() const { return *parts_; }

 private:
  void startUp(bool refreshesRuntimes);

  const std::unique_ptr<AppParts> parts_;
  const std::unique_ptr<SelectedTask> selected_;
  const std::shared_ptr<StoredTasks> storedTasks_;
};

}  // namespace vantrell
