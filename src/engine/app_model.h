// The owner of application state: the core, and the desks that work on it, made in the order of
// their dependencies and brought up. It has no rules of its own. Main queue.
#pragma once

#include <memory>

#include "engine/core/engine_core.h"
#include "engine/imagine/imagine_controller.h"
#include "engine/projects/git_snapshot_service.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/project_context_service.h"
#include "engine/projects/review_notes.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/model_catalog.h"
#include "engine/providers/provider_setup.h"
#include "engine/providers/router.h"
#include "engine/providers/session_controls.h"
#include "engine/providers/usage_tracker.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/task_safety.h"
#include "engine/tasks/workspace_operations.h"
#include "engine/turns/agent_launcher.h"
#include "engine/turns/approvals.h"
#include "engine/turns/composer.h"
#include "engine/turns/execution_monitor.h"
#include "engine/turns/prompt_queue.h"
#include "engine/turns/session_intake.h"
#include "engine/turns/session_status_service.h"
#include "engine/turns/turn_ends.h"
#include "engine/turns/turn_failures.h"
#include "engine/turns/turn_runner.h"
#include "engine/turns/usage_reset.h"

namespace vantrell {

class AppModel : public EngineCore {
 public:
  /// Everything given must outlive the model. Making it performs the whole start-up. Conversations
  /// are written on `writer`; without one, on the main queue.
  AppModel(MainQueue& main, UserDefaults& defaults, WorkspaceStore& store, EnginePorts ports,
           Executor* writer = nullptr);
  /// endAllWork().
  ~AppModel();

  /// Ends every client. What the transcripts were before an unfinished replay, they are again. All
  /// of it is on the disk when this returns; a failure to save is announced as always.
  void endAllWork();

  UsageTracker usage;
  const std::shared_ptr<InstalledRuntimes> runtimes;
  const std::shared_ptr<ImagineController> imagine;
  ProviderSetup setup;
  const std::shared_ptr<ModelCatalog> catalog;
  SessionIntake intake;
  Approvals approvals;
  SessionControls controls;
  const std::shared_ptr<Router> router;
  const std::shared_ptr<ProjectContextService> context;
  const std::shared_ptr<GitSnapshotService> git;
  const std::shared_ptr<HookRunner> hooks;
  ReviewNotes reviews;
  WorkspaceOperations operations;
  PromptQueue queue;
  TurnFailures failures;
  const std::shared_ptr<AgentLauncher> starter;
  const std::shared_ptr<UsageReset> usageReset;
  SessionStatusService status;
  const std::shared_ptr<TurnEnds> ends;
  const std::shared_ptr<TurnRunner> delivery;
  const std::shared_ptr<Composer> driver;
  const std::shared_ptr<ExecutionMonitor> monitor;
  const std::shared_ptr<TaskSafety> safety;
  const std::shared_ptr<TaskBranches> branches;

 private:
  void startUp();
  Changes::Observation transcriptOfSelection_;
};

}  // namespace vantrell
