#include "shell/terminal/welcome.h"

#include <fmt/format.h>
#include <unistd.h>

#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/practice_tour.h"
#include "shell/terminal/run_preparation.h"
#include "shell/terminal/runtime_survey.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

int welcome(const Environment& environment) {
  const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
  tell(
      fmt::format("{} is a workspace for software work with coding agents: it drives the\n"
                  "agents that you already use, shows what they do, and asks before they act.\n\n",
                  style.bold("Vantrell")));
  RuntimeSurvey survey;
  bool foundOne = false;
  for (const auto provider : agentsToTry) {
    const auto label = ProviderRegistry::descriptor(provider).label;
    const auto program = survey.find(provider);
    foundOne = foundOne || program;
    tell(fmt::format("  {} {:<16} {}\n", program ? style.green("✓") : style.dim("○"), label,
                     program ? *program : style.dim("not found")));
  }
  tell("\n");
  if (!foundOne) {
    tell(
        "For real work, install one of these and sign in: vantrell providers says how.\n"
        "Until then, here is a walk-through.\n\n");
    return practiceTour(environment);
  }
  tell(
      "Start a task in the folder of a project:\n"
      "    vantrell run \"explain this project\"\n"
      "Versions, sign-in and the other agents: vantrell providers\n"
      "A walk-through without any account: vantrell --practice\n"
      "All options: vantrell run --help\n");
  return 0;
}

}  // namespace vantrell::shell
