// Turns the announced changes of one conversation into calls of a RunObserver. While a stored
// session is played back it is silent; the transcript after it is reported whole.
// Main queue; the model and the observer must outlive it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/app_model.h"
#include "engine/core/changes.h"
#include "engine/core/plan_entry.h"
#include "shell/terminal/run_observer.h"

namespace vantrell::shell {

class ChangeFeed {
 public:
  ChangeFeed(const AppModel& model, ThreadExecutionKey key, RunObserver& observer);

  /// Reports what the announcement says of the conversation.
  void changed(const ChangeBatch& batch);

 private:
  void reportTranscript(const ConversationChanges& changes, const ChatThread& thread);
  /// Of runs whose end has not been reported.
  void reportEnds(const std::vector<RunRecord>& runs);
  void reportEntry(const ChatEntry& entry);
  void reportRun(const RunRecord& run);

  const AppModel& model_;
  const ThreadExecutionKey key_;
  RunObserver& observer_;
  std::map<std::string, std::size_t, std::less<>> shownLengths_;  // bytes of text, by entry
  std::shared_ptr<const std::vector<PlanEntry>> plan_;
  std::size_t runsReported_;  // to their ends
  bool wasReplaying_ = false;
  bool wasStalled_ = false;
};

}  // namespace vantrell::shell
