// The file of the recipes, "automations.json" among the orchestration records. It is written in
// the background, the newest state first; a failure is announced, and the next save writes all of
// it again. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "automations/automation_recipe.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

class Changes;
class OrchestrationStore;

class AutomationStore {
 public:
  using Recipes = std::vector<AutomationRecipe>;

  /// What is given must outlive it.
  AutomationStore(MainQueue& main, Changes& changes, OrchestrationStore& files,
                  Executor& background);
  /// flush().
  ~AutomationStore();
  AutomationStore(const AutomationStore&) = delete;
  AutomationStore& operator=(const AutomationStore&) = delete;

  /// Those of a file; none where it is missing or cannot be read. Such a file is quarantined before
  /// another takes its place. For a command that only looks as well.
  static Recipes load(OrchestrationStore& files);
  static constexpr const char* fileName = "automations.json";

  /// `done` is called on the main queue when they are on the disk, or could not be written.
  void save(Recipes recipes, Work done);
  /// Waits for that; false when the last write failed. It blocks: for the end of the process.
  bool flush();

 private:
  struct Write;

  void start();
  void finished(const std::shared_ptr<Write>& write);

  MainQueue& main_;
  Changes& changes_;
  OrchestrationStore& files_;
  Executor& background_;
  std::shared_ptr<Write> pending_, underWay_, failed_;
  std::shared_ptr<void> life_ = std::make_shared<int>();  // what the background posts ends with us
};

}  // namespace vantrell
