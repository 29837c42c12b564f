#include <csignal>
#include <fmt/format.h>
#include <unistd.h>

#include "platform/process/foreground_program.h"
#include "platform/terminal/terminal.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/catalog/runtime_login.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/provider_names.h"
#include "shell/terminal/runtime_survey.h"

namespace vantrell::shell {

namespace {

int notFound(AgentProvider provider) {
  complain(
      fmt::format("{} is not installed, or lies where it is not looked for. To install it: {}\n"
                  "If it lies elsewhere: vantrell settings {}-path /path/to/{}",
                  ProviderRegistry::descriptor(provider).label, installCommand(provider),
                  programName(provider), programName(provider)));
  return exitStatus::failed;
}

void tellResult(RuntimeSurvey& survey, AgentProvider provider) {
  survey.ask(provider);
  const auto label = ProviderRegistry::descriptor(provider).label;
  const auto signedIn = survey.status(provider).signedIn;
  if (!signedIn) {
    tell(fmt::format("The log-in of {} ended without an error.\n", label));
  } else if (*signedIn) {
    tell(fmt::format("{} is signed in.\n", label));
  } else {
    tell(fmt::format(
        "The log-in of {} ended without an error, but it says that it is not signed in.\n", label));
  }
}

int run(const CommandArguments& arguments, const Environment&) {
  const auto provider = readProgramOwner(arguments.words.front());
  if (!provider) return refuse(provider.error());
  const RuntimeLoginFlow& flow = *loginFlow(*provider);
  RuntimeSurvey survey;
  const auto program = survey.find(*provider);
  if (!program) return notFound(*provider);
  const std::string command = loginCommandLine(flow, *program);
  if (flow.wantsTerminal && !terminal::isTerminal(STDIN_FILENO)) {
    complain(fmt::format("This log-in asks questions, and there is no terminal. Type in one: {}",
                         command));
    return exitStatus::failed;
  }
  tell(fmt::format("Running {}\n", command));
  // Device codes and questions are the user's to see and to answer.
  const auto ended = runInForeground(*program, flow.arguments, runtimeEnvironment(*provider));
  if (!ended) {
    complain(ended.error().description);
    return exitStatus::failed;
  }
  if (ended->code() != 0) {
    complain(flow.failure);
    return ended->code() == 128 + SIGINT ? exitStatus::stopped : exitStatus::failed;
  }
  tellResult(survey, *provider);
  return exitStatus::completed;
}

}  // namespace

const Command loginCommand{
    .name = "login",
    .parameters = "ID",
    .summary = "sign in to a provider, with the provider's own program",
    .fewestWords = 1,
    .mostWords = 1,
    .introduction =
        "Runs the log-in of the provider's program here, so that you see its codes and links and\n"
        "answer its questions. ID is grok, codex, kimi, glm or claude. Vantrell itself never sees\n"
        "a password or a key.",
    .closing = "Exit status: 0 it ended without an error, 1 failed, 2 wrong usage, 130 stopped.",
    .run = run,
};

}  // namespace vantrell::shell
