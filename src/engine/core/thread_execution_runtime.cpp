#include "engine/core/thread_execution_runtime.h"

namespace vantrell {

void ThreadExecutionRuntime::endClient() {
  retryTimer.cancel();
  endReplay();
  session->end();
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
