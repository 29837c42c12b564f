#include "engine/core/thread_execution_runtime.h"

namespace vantrell {

void ThreadExecutionRuntime::endClient() {
  connectTimer.cancel();
  const auto ended = std::exchange(client, nullptr);
  unansweredPrompts = 0;
  stoppedTurnEnded = nullptr;
  if (isReplaying) openTools.clear();  // they go with the transcript that was being rebuilt
  endReplay();
  if (ended) ended->stop();
}

void ThreadExecutionRuntime::tellStoppedTurnEnded(bool isClientUsable) {
  const auto waiting = std::exchange(stoppedTurnEnded, nullptr);
  if (waiting) waiting(isClientUsable);
}

void ThreadExecutionRuntime::endReplay() {
  isReplaying = false;
  replayBackup = nullptr;
  replay.reset();
}

}  // namespace vantrell
