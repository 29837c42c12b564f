// When a command waits for the PATH of the user's login shell. What was started in a terminal has
// that PATH already; what a desktop menu, a timer or a service has started has not, and would
// neither find every program nor start it with the interpreter that it needs. Main queue.
#pragma once

#include "engine/providers/installed_runtimes.h"
#include "platform/queues/run_loop.h"

namespace vantrell::shell {

/// Whether one of the three standard streams is a terminal.
bool wasStartedInATerminal();

/// Runs the loop until that PATH counts in every search and start; it is asked for once. The loop
/// must not be running already.
void awaitUserPath(RunLoop& loop, InstalledRuntimes& desk);

/// What `look` finds. That PATH is read before, where nobody sits at a terminal, else only when
/// nothing is found without it.
template <typename Look>
auto findWithUserPath(RunLoop& loop, InstalledRuntimes& desk, const Look& look) {
  if (wasStartedInATerminal()) {
    if (auto found = look()) return found;
  }
  awaitUserPath(loop, desk);
  return look();
}

}  // namespace vantrell::shell
