// The program's state for a command that is done at once: opened, changed, kept. Blocks; the
// calling thread becomes the main thread.
#pragma once

#include <functional>

#include "app/vantrell_app.h"
#include "platform/queues/run_loop.h"

namespace vantrell::shell {

/// Does the work with the opened program and answers its exit status. Where the program cannot be
/// opened, or a change could not be stored, says so on standard error and answers
/// exitStatus::failed.
int withApp(VantrellOptions options, const std::function<int(RunLoop&, VantrellApp&)>& work);

}  // namespace vantrell::shell
