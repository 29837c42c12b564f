#include "engine/thread_execution_runtime.h"

namespace vantrell {

void ThreadExecutionRuntime::endClient() {
  connectTimer.cancel();
  const auto ended = std::exchange(client, nullptr);
  unansweredPrompts = 0;
  if (isReplaying) openTools.clear();  // they go with the transcript that was being rebuilt
  endReplay();
  if (ended) ended->stop();
}

void ThreadExecutionRuntime::endReplay() {
  isReplaying = false;
  replayBackup = nullptr;
  replay.reset();
}

}  // namespace vantrell
