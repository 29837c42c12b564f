// What the engine asks of, and tells to, what stands above it: the front end and the features that
// serve other clients. Everything else is read from the state when a change is announced. The
// implementation outlives the engine; called on the main queue, in the middle of a step.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "records/values/chat_thread.h"

namespace vantrell {

enum class TaskEventKind { completed, needsAttention };
enum class ImagineEventKind { completed, needsAttention };

class EngineEvents {
 public:
  virtual ~EngineEvents() = default;

  /// Asks the user for a folder; the reply comes only when one was chosen, and may come late.
  virtual void chooseFolder(std::string_view /*title*/, std::string_view /*prompt*/,
                            std::function<void(std::string path)> /*reply*/) {}
  /// A turn begins: the right to notify may be asked for, once.
  virtual void prepareNotifications() {}
  /// A task has ended its turn, or wants the user.
  virtual void taskEvent(TaskEventKind, std::string_view /*message*/, const ThreadExecutionKey&) {}
  virtual void imagineEvent(ImagineEventKind, std::string_view /*message*/) {}
};

}  // namespace vantrell
