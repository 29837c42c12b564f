// Writes to the standard streams on a thread of its own, in order, so that a host that does not
// read never keeps the agent from hearing a cancel. Main queue; ends with the process.
#pragma once

#include <functional>
#include <string>

#include "platform/queues/dispatch.h"

namespace vantrell::practice {

class OutputWriter {
 public:
  /// Called on the main queue when standard output cannot be written any more: the host is gone.
  std::function<void()> onBroken;

  OutputWriter(MainQueue& main, BackgroundPool& pool);

  /// `whenWritten` runs on the main queue once the system has taken the bytes, or would not.
  void write(int descriptor, std::string bytes, Work whenWritten = {});

 private:
  MainQueue& main_;
  SerialQueue queue_;
};

}  // namespace vantrell::practice
