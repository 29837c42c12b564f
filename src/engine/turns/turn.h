// What one turn carries along, from its prompt to its end. Plain value.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "records/values/chat_thread.h"

namespace vantrell {

struct Turn {
  ThreadExecutionKey key;
  Uuid runID;
  std::string originalPrompt;  // as assembled
  std::set<AgentProvider> attempted;
  bool clientWasReady = false;          // when the turn began
  std::function<void()> whenCompleted;  // the agent has finished: the next prompt may go out
};

}  // namespace vantrell
