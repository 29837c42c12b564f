#include "engine/core/thread_execution_runtime.h"

namespace vantrell {

void ThreadExecutionRuntime::endClient() {
  connectTimer.cancel();
  const auto ended = std::exchange(client, nullptr);
  unansweredPrompts = 0;
  stoppedTurnEnded = nullptr;
  endReplay();
  if (ended) ended->stop();
}

void ThreadExecutionRuntime::tellStoppedTurnEnded(bool isClientUsable) {
  const auto waiting = std::exchange(stoppedTurnEnded, nullptr);
  if (waiting) waiting(isClientUsable);
}

void ThreadExecutionRuntime::beginReplay(std::size_t length) {
  lengthBeforePlayback = length;
  isReplaying = true;
  playback = std::make_unique<Transcript>();
}

void ThreadExecutionRuntime::endReplay() {
  isReplaying = false;
  playback.reset();
}

}  // namespace vantrell
