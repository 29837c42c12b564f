// Everything that AppModel is made of, in the order of its dependencies. For app/ and tests.
#pragma once

#include "app/app_dependencies.h"
#include "engine/core/changes.h"
#include "engine/core/execution_table.h"
#include "engine/core/run_lifecycle.h"
#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/imagine/imagine_controller.h"
#include "engine/projects/git_snapshot_service.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/project_context_service.h"
#include "engine/projects/review_notes.h"
#include "engine/projects/task_safety.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/model_catalog.h"
#include "engine/providers/provider_setup.h"
#include "engine/providers/router.h"
#include "engine/providers/session_controls.h"
#include "engine/providers/usage_tracker.h"
#include "engine/tasks/navigation.h"
#include "engine/tasks/settings_operations.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/update_preparation.h"
#include "engine/tasks/workspace_operations.h"
#include "engine/turns/agent_launcher.h"
#include "engine/turns/agent_reports.h"
#include "engine/turns/approvals.h"
#include "engine/turns/composer.h"
#include "engine/turns/execution_monitor.h"
#include "engine/turns/prompt_queue.h"
#include "engine/turns/session_intake.h"
#include "engine/turns/session_status_service.h"
#include "engine/turns/turn_outcome.h"
#include "engine/turns/turn_prompts.h"
#include "engine/turns/turn_runner.h"
#include "engine/turns/turn_starter.h"
#include "engine/turns/usage_reset.h"
#include "records/stores/orchestration_store.h"

namespace vantrell {

struct AppParts {
  explicit AppParts(AppDependencies given);

  MainQueue& main;
  Changes changes;
  OrchestrationStore orchestration;
  Settings settings;
  WorkspaceTree tree;
  Selection selection;
  ExecutionTable executions;
  RunLifecycle runs;

  const std::shared_ptr<ProjectContextService> context;
  const std::shared_ptr<GitSnapshotService> git;
  const std::shared_ptr<HookRunner> hooks;
  ReviewNotes reviews;
  const std::shared_ptr<TaskSafety> safety;

  const std::shared_ptr<InstalledRuntimes> runtimes;
  UsageTracker usage;
  ProviderSetup setup;
  ReportedModels reportedModels;
  const std::shared_ptr<ModelCatalog> catalog;
  SessionControls controls;
  const std::shared_ptr<Router> router;
  const std::shared_ptr<ImagineController> imagine;

  SessionIntake intake;
  Approvals approvals;
  PromptQueue queue;
  SessionStatusService status;
  AgentReports reports;
  const std::shared_ptr<AgentLauncher> launcher;
  const std::shared_ptr<UsageReset> usageReset;
  const std::shared_ptr<TurnOutcome> outcome;
  const std::shared_ptr<TurnPrompts> prompts;
  const std::shared_ptr<TurnRunner> turns;
  const std::shared_ptr<TurnStarter> starter;
  const std::shared_ptr<Composer> composer;
  const std::shared_ptr<ExecutionMonitor> monitor;

  Navigation navigation;
  const std::shared_ptr<WorkspaceOperations> operations;
  const std::shared_ptr<TaskBranches> branches;
  SettingsOperations settingsOperations;
  UpdatePreparation updatePreparation;
  Changes::Observation selectionWatch;  // reads the transcript of what is selected
};

}  // namespace vantrell
