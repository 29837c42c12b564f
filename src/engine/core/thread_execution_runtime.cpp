#include "engine/core/thread_execution_runtime.h"

namespace vantrell {

void ThreadExecutionRuntime::endClient() {
  retryTimer.cancel();
  if (isReplaying) openTools.clear();  // they go with the transcript that was being rebuilt
  endReplay();
  session->end();
}

void ThreadExecutionRuntime::endReplay() {
  isReplaying = false;
  replayBackup = nullptr;
  replay.reset();
}

}  // namespace vantrell
