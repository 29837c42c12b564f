#include "automations/automation_store.h"

#include <fmt/format.h>
#include <mutex>
#include <utility>

#include "engine/core/changes.h"
#include "records/stores/orchestration_store.h"

namespace vantrell {

static constexpr auto fieldsOf(const AutomationRecipe*) {
  using R = AutomationRecipe;
  return fields(field("id", &R::id), field("name", &R::name), field("prompt", &R::prompt),
                field("workspaceID", &R::workspaceID), field("provider", &R::provider),
                field("trigger", &R::trigger), field("enabled", &R::enabled),
                field("nextRunAt", &R::nextRunAt), field("lastRunAt", &R::lastRunAt),
                field("requiresApproval", &R::requiresApproval),
                field("lastProjectFingerprint", &R::lastProjectFingerprint),
                field("preferredHostID", &R::preferredHostID),
                field("pendingThreadID", &R::pendingThreadID));
}

struct AutomationStore::Write {
  std::shared_ptr<const Recipes> recipes;
  std::vector<Work> waiting;               // main queue
  std::function<files::Result<>()> write;  // from its start on
  std::once_flag once;
  files::Result<> result;  // once it has run

  /// On the thread that comes first; another one waits for it.
  void run() {
    std::call_once(once, [this] { result = write(); });
  }
};

AutomationStore::AutomationStore(MainQueue& main, Changes& changes, OrchestrationStore& files,
                                 Executor& background)
    : main_(main), changes_(changes), files_(files), background_(background) {}

AutomationStore::~AutomationStore() {
  flush();
}

AutomationStore::Recipes AutomationStore::load(OrchestrationStore& files) {
  return files.load(fileName, Recipes());
}

void AutomationStore::save(Recipes recipes, Work done) {
  if (!pending_) pending_ = std::make_shared<Write>();
  pending_->recipes = std::make_shared<const Recipes>(std::move(recipes));
  if (done) pending_->waiting.push_back(std::move(done));
  start();
}

void AutomationStore::start() {
  if (underWay_ || !pending_) return;
  failed_ = nullptr;
  underWay_ = std::exchange(pending_, nullptr);
  underWay_->write = files_.prepareSharedSave(underWay_->recipes, fileName);
  background_.post([this, write = underWay_, &main = main_, life = std::weak_ptr(life_)] {
    write->run();
    main.post([this, write, life] {
      if (!life.expired()) finished(write);
    });
  });
}

void AutomationStore::finished(const std::shared_ptr<Write>& write) {
  if (write != underWay_) return;  // flush() was faster
  underWay_ = nullptr;
  if (!write->result) {
    failed_ = write;
    changes_.saveFailed(
        fmt::format("The automations could not be saved: {}", write->result.error().description));
  }
  start();
  for (auto& done : std::exchange(write->waiting, {})) main_.post(std::move(done));
}

bool AutomationStore::flush() {
  const auto finishAll = [this] {
    while (const auto write = underWay_) {
      write->run();
      finished(write);
    }
  };
  finishAll();
  if (failed_) {  // a last try
    save(*failed_->recipes, nullptr);
    finishAll();
  }
  return !failed_;
}

}  // namespace vantrell
