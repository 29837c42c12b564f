// Turns the engine's changes of one conversation into calls of a RunObserver. Main queue; the model
// and the observer must outlive it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "engine/app_model.h"
#include "shell/terminal/run_observer.h"

namespace vantrell::shell {

class ChangeFeed {
 public:
  ChangeFeed(AppModel& model, ThreadExecutionKey key, RunObserver& observer);

  // Called in the midst of the engine's work: whoever wants to answer posts.

  /// The open question has changed; null when there is none any more. Whether it is shown now is
  /// the listener's choice.
  std::function<void(std::shared_ptr<const PermissionRequest>)> onQuestion;
  /// Something about the conversation's execution or run has changed.
  std::function<void()> onProgress;
  std::function<void(std::string_view reason)> onSaveFailed;
  /// Something that the user should know about what is stored.
  std::function<void(std::string_view text)> onNotice;

 private:
  void changed(const Change& change);
  void transcriptChanged(const Change& change);
  void executionChanged();
  void runChanged(const RunRecord& run);

  AppModel& model_;
  const ThreadExecutionKey key_;
  RunObserver& observer_;
  bool wasStalled_ = false;
  std::shared_ptr<const PermissionRequest> question_;
  Changes::Observation observation_;
};

}  // namespace vantrell::shell
