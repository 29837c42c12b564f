// The owner of application state: the core, and the desks that work on it, made in the order of
// their dependencies and brought up. It has no rules of its own. Main queue.
#pragma once

#include <memory>

#include "engine/approvals.h"
#include "engine/client_starter.h"
#include "engine/engine_core.h"
#include "engine/execution_monitor.h"
#include "engine/git_desk.h"
#include "engine/hook_desk.h"
#include "engine/imagine_desk.h"
#include "engine/model_catalog.h"
#include "engine/operations.h"
#include "engine/project_context_desk.h"
#include "engine/prompt_queue.h"
#include "engine/provider_setup.h"
#include "engine/review_desk.h"
#include "engine/router.h"
#include "engine/runtime_desk.h"
#include "engine/session_controls.h"
#include "engine/session_intake.h"
#include "engine/status_desk.h"
#include "engine/task_branches.h"
#include "engine/task_driver.h"
#include "engine/task_safety.h"
#include "engine/turn_delivery.h"
#include "engine/turn_ends.h"
#include "engine/turn_failures.h"
#include "engine/usage_desk.h"
#include "engine/usage_reset.h"

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

  UsageDesk usage;
  const std::shared_ptr<RuntimeDesk> runtimes;
  const std::shared_ptr<ImagineDesk> imagine;
  ProviderSetup setup;
  const std::shared_ptr<ModelCatalog> catalog;
  SessionIntake intake;
  Approvals approvals;
  SessionControls controls;
  const std::shared_ptr<Router> router;
  const std::shared_ptr<ProjectContextDesk> context;
  const std::shared_ptr<GitDesk> git;
  const std::shared_ptr<HookDesk> hooks;
  ReviewDesk reviews;
  Operations operations;
  PromptQueue queue;
  TurnFailures failures;
  const std::shared_ptr<ClientStarter> starter;
  const std::shared_ptr<UsageReset> usageReset;
  StatusDesk status;
  const std::shared_ptr<TurnEnds> ends;
  const std::shared_ptr<TurnDelivery> delivery;
  const std::shared_ptr<TaskDriver> driver;
  const std::shared_ptr<ExecutionMonitor> monitor;
  const std::shared_ptr<TaskSafety> safety;
  const std::shared_ptr<TaskBranches> branches;

 private:
  void startUp();
};

}  // namespace vantrell
