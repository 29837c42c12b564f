// vantrell: the front door in the terminal.
#include <fmt/format.h>
#include <string_view>
#include <vector>

#include "platform/process.h"
#include "platform/terminal.h"
#include "records/application.h"
#include "shell/terminal/arguments.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/practice_tour.h"
#include "shell/terminal/run_command.h"
#include "shell/terminal/run_session.h"
#include "shell/terminal/welcome.h"

int main(int count, char** arguments) {
  using namespace vantrell;
  using namespace vantrell::shell;
  terminal::ignoreBrokenPipes();
  auto invocation = readArguments(std::vector<std::string_view>(arguments + 1, arguments + count));
  if (!invocation) {
    complain(invocation.error().text);
    return exitStatus::usage;
  }
  const Environment environment = currentEnvironment();
  switch (invocation->kind) {
    case Invocation::Kind::welcome: return welcome(environment);
    case Invocation::Kind::tour: return practiceTour(environment);
    case Invocation::Kind::run: return runCommand(std::move(invocation->run), environment);
    case Invocation::Kind::help: tell(helpText()); break;
    case Invocation::Kind::runHelp: tell(runHelpText()); break;
    case Invocation::Kind::version:
      tell(fmt::format("{} {}\n", applicationName, applicationVersion));
      break;
  }
  return exitStatus::completed;
}
