// The recipes and their scheduler: once a minute what is due begins a new conversation in its
// project, or goes to a host of the fleet. A run moves the next one a whole interval on from now,
// so time in which nothing ran is not made up for.
//
// A run is on the disk before its prompt goes out. If the process ends in between, the next one
// begins the conversation; what a host is given is not given again, since it may have it.
//
// Main queue, held by a shared_ptr.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "automations/automation_recipe.h"
#include "automations/automation_store.h"
#include "automations/fleet_dispatch.h"
#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "platform/queues/dispatch.h"
#include "records/values/git_workspace_snapshot.h"

namespace vantrell {

class Composer;
class ExecutionTable;
class WorkspaceOperations;
class WorkspaceTree;

namespace topics {
inline constexpr ChangeTopic automations{"automations"};  // a recipe came, went or changed
}

class Automations : public std::enable_shared_from_this<Automations> {
 public:
  /// Reads the Git picture of a folder in the background. The reply comes on the main queue, unless
  /// it was stopped.
  using GitReader = std::function<void(const std::string& folder, std::stop_token stop,
                                       std::function<void(GitWorkspaceSnapshot)> reply)>;
  /// All must outlive it.
  struct Dependencies {
    MainQueue& main;
    Changes& changes;
    WorkspaceTree& tree;
    WorkspaceOperations& operations;
    Composer& composer;
    ExecutionTable& executions;
    AutomationStore& store;
    GitReader readGit;
  };
  Automations(Dependencies given, std::vector<AutomationRecipe> stored);
  ~Automations();
  Automations(const Automations&) = delete;
  Automations& operator=(const Automations&) = delete;

  /// In the order in which they run. Announced as topics::automations.
  const std::vector<AutomationRecipe>& automations() const { return recipes_; }
  /// The hosts that recipes may prefer; null: none. Must outlive it, or be taken away again.
  void setFleet(FleetDispatch* fleet) { fleet_ = fleet; }

  /// Starts the timer again, makes up for runs that an earlier process has lost, and runs what is
  /// due now.
  void configureAutomationScheduler();
  /// Whether due recipes run by themselves in this process.
  bool isScheduling() const { return timer_.isActive(); }
  /// Runs what is due at the date, in the order of the list.
  void runDueAutomations(Date now);

  /// What the user chooses for a new one.
  struct NewRecipe {
    std::string name, prompt;
    Uuid workspaceID;
    std::optional<AgentProvider> provider;
    AutomationTrigger trigger = AutomationTrigger::manual;
    std::optional<Uuid> preferredHostID;
  };
  /// White space around name and prompt goes. It is enabled, and asks before it destroys anything.
  Result<Uuid> createAutomation(NewRecipe chosen);
  Result<> setEnabled(const Uuid& id, bool enabled);
  Result<> removeAutomation(const Uuid& id);

  /// The conversation that a run has begun; absent when a host took it.
  using Begun = Result<std::optional<ThreadExecutionKey>>;
  /// Runs it now, whatever its trigger, and though it is disabled. `begun` follows when its prompt
  /// was sent; without it the application's error says why it was not.
  void runAutomation(const Uuid& id, std::function<void(Begun)> begun = {});

  /// Waits until the list is on the disk; false when it could not be written. It blocks: for the
  /// end of the process.
  bool flush();

  static constexpr std::chrono::seconds tickInterval{60};

 private:
  using Launch = std::move_only_function<void()>;

  AutomationRecipe* find(const Uuid& id);
  /// `afterSave` is called once the list is on the disk, or could not be written.
  void changed(Launch afterSave = {});
  void save();

  void settleLostRuns();
  void launch(const Uuid& id, const Uuid& threadID, const std::function<void(Begun)>& begun);
  void dispatch(const Uuid& id, const std::function<void(Begun)>& begun);
  void look(const ChangeBatch& batch);
  void forgetPending(const Uuid& id, const Uuid& threadID);

  void checkNextProject();
  void checked(const Uuid& workspaceID, const GitWorkspaceSnapshot& snapshot);

  const Dependencies core_;
  std::vector<AutomationRecipe> recipes_;
  FleetDispatch* fleet_ = nullptr;
  Timer timer_;
  Changes::Observation observation_;
  bool isSavePosted_ = false;
  std::vector<Launch> afterSave_;
  /// Conversations that were sent a prompt and have no run yet, with their recipes.
  std::map<ThreadExecutionKey, Uuid> launching_;
  /// Projects whose change is to be looked for, with the recipes that ask and the date of their
  /// tick. Read one at a time: git leaves the machine to the agents.
  std::map<Uuid, std::map<Uuid, Date>> toCheck_;
  std::optional<Uuid> checking_;
  std::stop_source reading_;
};

}  // namespace vantrell
