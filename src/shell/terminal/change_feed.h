// Turns the engine's changes of one conversation into calls of a RunObserver. While a stored
// session is played back it is silent; the transcript that stands afterwards is reported whole.
// Main queue; the model and the observer must outlive it.
#pragma once

#include "engine/app_model.h"
#include "shell/terminal/run_observer.h"

namespace vantrell::shell {

class ChangeFeed {
 public:
  ChangeFeed(AppModel& model, ThreadExecutionKey key, RunObserver& observer)
      : model_(model), key_(key), observer_(observer) {}

  /// A change of this conversation. Called while the engine is at work.
  void changed(const Change& change);

 private:
  void transcriptChanged(const Change& change);
  void executionChanged();
  void runChanged(const RunRecord& run);
  /// Whether a playback is going on. At its end the transcript is reported, and `justEnded` is set.
  bool isReplaying(bool& justEnded);

  AppModel& model_;
  const ThreadExecutionKey key_;
  RunObserver& observer_;
  bool wasReplaying_ = false;
  bool wasStalled_ = false;
};

}  // namespace vantrell::shell
