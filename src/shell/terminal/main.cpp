// vantrell: the front door in the terminal.
#include <fmt/format.h>
#include <string_view>
#include <vector>

#include "platform/process/own_process.h"
#include "platform/process/process.h"
#include "records/values/application.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/practice_tour.h"
#include "shell/terminal/welcome.h"

int main(int count, char** arguments) {
  using namespace vantrell;
  using namespace vantrell::shell;
  if (const auto prepared = prepareOwnProcess(); !prepared) {
    complain(prepared.error());
    return exitStatus::failed;
  }
  const std::vector<std::string_view> words(arguments + 1, arguments + count);
  const auto invocation = readCommandLine(words);
  if (!invocation) return refuse(invocation.error());
  const Environment environment = currentEnvironment();
  switch (invocation->kind) {
    case Invocation::Kind::welcome: return welcome(environment);
    case Invocation::Kind::tour: return practiceTour(environment);
    case Invocation::Kind::command:
      return invocation->command->run(invocation->arguments, environment);
    case Invocation::Kind::help: tell(helpText()); break;
    case Invocation::Kind::commandHelp: tell(helpOf(*invocation->command)); break;
    case Invocation::Kind::version:
      tell(fmt::format("{} {}\n", applicationName, applicationVersion));
      break;
  }
  return exitStatus::completed;
}
