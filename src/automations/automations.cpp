#include "automations/automations.h"

#include <algorithm>
#include <utility>

#include "engine/core/execution_table.h"
#include "engine/core/workspace_tree.h"
#include "engine/tasks/workspace_operations.h"
#include "engine/turns/composer.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

std::unexpected<Refusal> refuseMissing() {
  return refuse("That automation is no longer there.");
}

std::unexpected<Refusal> refuseMissingProject() {
  return refuse(
      "The project of this automation is no longer open. Open it, or remove the automation.");
}

}  // namespace

Automations::Automations(Dependencies given, std::vector<AutomationRecipe> stored)
    : core_(std::move(given)), recipes_(std::move(stored)) {
  observation_ = core_.changes.observe([this](const ChangeBatch& batch) { look(batch); });
}

Automations::~Automations() {
  reading_.request_stop();
  flush();
}

AutomationRecipe* Automations::find(const Uuid& id) {
  const auto found = std::ranges::find(recipes_, id, &AutomationRecipe::id);
  return found == recipes_.end() ? nullptr : &*found;
}

// ---- saving -------------------------------------------------------------------------------------

/// Saved at the end of the queue's turn, once for all that changes in it.
void Automations::changed(Launch afterSave) {
  core_.changes.mark(topics::automations);
  if (afterSave) afterSave_.push_back(std::move(afterSave));
  if (std::exchange(isSavePosted_, true)) return;
  core_.main.post(weakly(this, [](Automations& self) {
    if (self.isSavePosted_) self.save();
  }));
}

void Automations::save() {
  isSavePosted_ = false;
  core_.store.save(recipes_, [launches = std::exchange(afterSave_, {})]() mutable {
    for (auto& each : launches) each();
  });
}

bool Automations::flush() {
  if (isSavePosted_) save();
  return core_.store.flush();
}

// ---- the user's operations ----------------------------------------------------------------------

Result<Uuid> Automations::createAutomation(NewRecipe chosen) {
  AutomationRecipe recipe{.id = Uuid::random(),
                          .name = std::string(text::trimmed(chosen.name)),
                          .prompt = std::string(text::trimmed(chosen.prompt)),
                          .workspaceID = chosen.workspaceID,
                          .provider = chosen.provider,
                          .trigger = chosen.trigger,
                          .nextRunAt = nextRunAfter(chosen.trigger, core_.main.now()),
                          .preferredHostID = chosen.preferredHostID};
  if (recipe.name.empty() || recipe.prompt.empty()) {
    return refuse("An automation needs a name and a prompt.");
  }
  if (!core_.tree.workspace(recipe.workspaceID)) {
    return refuse("That project is no longer available.");
  }
  if (recipe.preferredHostID && !(fleet_ && fleet_->hasHost(*recipe.preferredHostID))) {
    return refuse("Choose a registered host and enter a task first.");
  }
  recipes_.push_back(std::move(recipe));
  changed();
  return recipes_.back().id;
}

Result<> Automations::setEnabled(const Uuid& id, bool enabled) {
  AutomationRecipe* const recipe = find(id);
  if (!recipe) return refuseMissing();
  if (std::exchange(recipe->enabled, enabled) != enabled) changed();
  return {};
}

Result<> Automations::removeAutomation(const Uuid& id) {
  if (std::erase_if(recipes_, [&](const auto& each) { return each.id == id; }) == 0) {
    return refuseMissing();
  }
  changed();
  return {};
}

// ---- the scheduler ------------------------------------------------------------------------------

void Automations::configureAutomationScheduler() {
  timer_ = core_.main.every(tickInterval, [this] {
    runDueAutomations(core_.main.now());
    if (fleet_) fleet_->refreshFleet();
  });
  settleLostRuns();
  runDueAutomations(core_.main.now());
}

void Automations::runDueAutomations(Date now) {
  for (auto& recipe : recipes_) {
    if (followClock(recipe, now)) changed();
    if (!isDue(recipe, now)) continue;
    if (recipe.trigger != AutomationTrigger::projectChange) {
      runAutomation(recipe.id);
    } else if (checking_ != recipe.workspaceID) {  // what is being read is of a moment ago
      toCheck_[recipe.workspaceID].try_emplace(recipe.id, now);
    }
  }
  checkNextProject();
}

/// One project after the other, once for all its recipes.
void Automations::checkNextProject() {
  while (!checking_ && !toCheck_.empty()) {
    const Uuid id = toCheck_.begin()->first;
    const Workspace* workspace = core_.tree.workspace(id);
    if (!workspace) {
      toCheck_.erase(id);
      continue;
    }
    checking_ = id;
    core_.readGit(workspace->path, reading_.get_token(),
                  weakly(this, [id](Automations& self, const GitWorkspaceSnapshot& snapshot) {
                    self.checked(id, snapshot);
                  }));
  }
}

void Automations::checked(const Uuid& workspaceID, const GitWorkspaceSnapshot& snapshot) {
  checking_ = std::nullopt;
  const auto asking = toCheck_.extract(workspaceID);
  const std::string seen = projectFingerprint(snapshot);
  for (const auto& [id, now] : asking.mapped()) {
    AutomationRecipe* const recipe = find(id);
    if (!recipe) continue;
    recipe->nextRunAt = nextRunAfter(recipe->trigger, now);
    changed();
    if (snapshot.error) continue;  // a reading that failed says nothing about the project
    const auto before = std::exchange(recipe->lastProjectFingerprint, seen);
    if (before && before != seen) runAutomation(id);
  }
  checkNextProject();
}

// ---- a run --------------------------------------------------------------------------------------

void Automations::runAutomation(const Uuid& id, std::function<void(Begun)> begun) {
  AutomationRecipe* const recipe = find(id);
  const auto end = [&](Begun result) {
    if (begun) begun(std::move(result));
  };
  if (!recipe) return end(refuseMissing());
  const bool isForHost =
      recipe->preferredHostID && fleet_ && fleet_->hasHost(*recipe->preferredHostID);
  if (!isForHost && !core_.tree.workspace(recipe->workspaceID)) return end(refuseMissingProject());
  const Date now = core_.main.now();
  recipe->lastRunAt = now;
  recipe->nextRunAt = nextRunAfter(recipe->trigger, now);
  if (isForHost) {
    return changed(weakly(this, [id, begun](Automations& self) { self.dispatch(id, begun); }));
  }
  const Uuid threadID = Uuid::random();
  recipe->pendingThreadID = threadID;
  changed(
      weakly(this, [id, threadID, begun](Automations& self) { self.launch(id, threadID, begun); }));
}

void Automations::dispatch(const Uuid& id, const std::function<void(Begun)>& begun) {
  const AutomationRecipe* recipe = find(id);
  const Workspace* workspace = recipe ? core_.tree.workspace(recipe->workspaceID) : nullptr;
  if (!recipe || !recipe->preferredHostID || !fleet_) {
    if (begun) begun(refuseMissing());
    return;
  }
  fleet_->dispatchTask(*recipe->preferredHostID, recipe->prompt, workspace ? workspace->path : "",
                       weakly(this, [begun](Automations& self, const Result<>& done) {
                         if (begun) {
                           begun(done ? Begun(std::nullopt) : refuse(done.error().sentence));
                         } else if (!done) {
                           self.core_.executions.showError(done.error().sentence);
                         }
                       }));
}

/// Begins the conversation, or goes on with one that an earlier process could only begin.
void Automations::launch(const Uuid& id, const Uuid& threadID,
                         const std::function<void(Begun)>& begun) {
  const AutomationRecipe* recipe = find(id);
  const auto end = [&](Begun result) {
    if (!result) forgetPending(id, threadID);
    if (begun) begun(std::move(result));
  };
  if (!recipe) return end(refuseMissing());  // removed while it was being saved
  const ThreadExecutionKey key{recipe->workspaceID, threadID};
  if (!core_.tree.thread(key)) {
    ChatThread thread = ChatThread::make(threadTitle(*recipe), core_.main.now());
    thread.id = threadID;
    thread.preferredProvider = recipe->provider;
    if (!core_.operations.addThread(std::move(thread), key.workspaceID)) {
      return end(refuseMissingProject());
    }
  }
  launching_[key] = id;
  const auto sent = core_.composer.sendNow(promptWithPreamble(*recipe), {}, key);
  if (!sent) {
    launching_.erase(key);
    return end(refuse(sent.error().sentence));
  }
  end(key);
}

// ---- runs that are lost -------------------------------------------------------------------------

/// A run that began is in the store before its agent hears of it, and so is not pending any more
/// when all of that is written.
void Automations::look(const ChangeBatch& batch) {
  if (launching_.empty()) return;
  std::erase_if(launching_, [&](const auto& entry) {
    const auto& [key, id] = entry;
    const ChatThread* thread = core_.tree.thread(key);
    if (thread && !batch.of(key)) return false;
    if (thread && thread->runs.empty() && core_.executions.isBusy(key)) return false;
    core_.tree.afterWriting(
        weakly(this, [key, id](Automations& self) { self.forgetPending(id, key.threadID); }));
    return true;
  });
}

void Automations::forgetPending(const Uuid& id, const Uuid& threadID) {
  AutomationRecipe* const recipe = find(id);
  if (!recipe || recipe->pendingThreadID != threadID) return;
  recipe->pendingThreadID = std::nullopt;
  changed();
}

void Automations::settleLostRuns() {
  for (const auto& recipe : recipes_) {
    if (!recipe.pendingThreadID) continue;
    const Uuid id = recipe.id, threadID = *recipe.pendingThreadID;
    const ThreadExecutionKey key{recipe.workspaceID, threadID};
    if (launching_.contains(key)) continue;
    const ChatThread* thread = core_.tree.thread(key);
    if (thread && !thread->runs.empty()) {
      forgetPending(id, threadID);
    } else {
      launch(id, threadID, {});
    }
  }
}

}  // namespace vantrell
