#include "shell/terminal/welcome.h"

#include <fmt/format.h>
#include <unistd.h>

#include "runtimes/provider_registry.h"
#include "runtimes/runtime_locator.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/practice_tour.h"
#include "shell/terminal/run_preparation.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

int welcome(const Environment& environment) {
  const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
  tell(
      fmt::format("{} is a workspace for software work with coding agents: it drives the\n"
                  "agents that you already use, shows what they do, and asks before they act.\n\n",
                  style.bold("Vantrell")));
  bool foundOne = false;
  for (const auto provider : runnableProviders) {
    const auto label = ProviderRegistry::descriptor(provider).label;
    const auto program = findExecutable(provider, std::nullopt, environment);
    foundOne = foundOne || program;
    tell(fmt::format("  {} {:<16} {}\n", program ? style.green("✓") : style.dim("○"), label,
                     program ? *program : style.dim("not found")));
  }
  tell("\n");
  if (!foundOne) {
    tell(
        "For real work, install Kimi Code, OpenCode (for GLM) or the Grok CLI, and sign in there.\n"
        "Until then, here is a walk-through.\n\n");
    return practiceTour(environment);
  }
  tell(
      "Start a task in the folder of a project:\n"
      "    vantrell run \"explain this project\"\n"
      "A walk-through without any account: vantrell --practice\n"
      "All options: vantrell run --help\n");
  return 0;
}

}  // namespace vantrell::shell
