#include "shell/terminal/user_path.h"

#include <unistd.h>

#include "platform/terminal/terminal.h"

namespace vantrell::shell {

bool wasStartedInATerminal() {
  return terminal::isTerminal(STDIN_FILENO) || terminal::isTerminal(STDOUT_FILENO) ||
         terminal::isTerminal(STDERR_FILENO);
}

void awaitUserPath(RunLoop& loop, InstalledRuntimes& desk) {
  desk.readUserPath([&loop] { loop.quit(); });
  loop.run();
}

}  // namespace vantrell::shell
