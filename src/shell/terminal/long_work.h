// What commands do around work that takes long and shows itself as it goes: the program is opened
// for it, and what it has written is read, and its children are gone, before the command ends.
// Blocks; the calling thread becomes the main thread.
#pragma once

#include <chrono>
#include <functional>

#include "app/vantrell_app.h"
#include "platform/queues/output_sink.h"
#include "platform/queues/run_loop.h"

namespace vantrell::shell {

/// How long output is waited for before somebody else writes to the terminal.
inline constexpr std::chrono::milliseconds momentToFlush{200};

struct LongWork {
  RunLoop& loop;
  VantrellApp& app;
  OutputSink& output;
  /// To be set by the work: the user would not wait for its end.
  bool wasAbandoned = false;
};

/// Does the work with the opened program and answers its exit status. Where the program cannot be
/// opened, or the output could not be written, says so on standard error and answers
/// exitStatus::failed.
int performLongWork(VantrellOptions options, const std::function<int(LongWork&)>& work);

}  // namespace vantrell::shell
