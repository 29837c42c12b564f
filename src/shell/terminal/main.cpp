// vantrell: the entry point in the terminal.
#include <csignal>
#include <fmt/format.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/process/own_process.h"
#include "platform/process/process.h"
#include "platform/queues/run_loop.h"
#include "platform/terminal/terminal.h"
#include "records/values/application.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/command_line.h"

using namespace vantrell;
using namespace vantrell::shell;

namespace {

/// For what the agents started to end.
constexpr std::chrono::milliseconds endOfChildren{5000}, whenAbandoned{200};

void begin(const Invocation& invocation, std::span<const Command> commands,
           CommandContext& context) {
  using Kind = Invocation::Kind;
  switch (invocation.kind) {
    case Kind::welcome: return welcome(context);
    case Kind::tour: return practiceTour(context);
    case Kind::command: return invocation.command->begin(context);
    case Kind::help:
      context.console.say(invocation.command ? helpOf(*invocation.command, invocation.name)
                                             : helpText(commands));
      break;
    case Kind::reference: context.console.write(referenceText(commands)); break;
    case Kind::version:
      context.console.write(fmt::format("{} {}\n", applicationName, applicationVersion));
      break;
  }
  context.finish(exitStatus::completed);
}

}  // namespace

int main(int count, char** words) {
  if (const auto prepared = prepareOwnProcess(); !prepared) {
    fmt::print(stderr, "vantrell: {}\n", prepared.error());
    return exitStatus::failed;
  }
  const auto commands = allCommands();
  std::vector<std::string_view> names;
  for (const Command& command : commands) names.push_back(command.name);
  const std::vector<std::string_view> arguments(words + 1, words + count);
  auto invocation = readCommandLine(commands, arguments);

  RunLoop loop;
  Caller caller{.input = STDIN_FILENO,
                .streams = {.output = STDOUT_FILENO, .error = STDERR_FILENO},
                .folder = files::standardized("."),
                .environment = currentEnvironment(),
                .watchSignals = [&loop](std::function<void(int)> handler) -> std::shared_ptr<void> {
                  return loop.watchSignals({SIGINT, SIGTERM, SIGHUP}, std::move(handler));
                }};
  int status = exitStatus::failed;
  CommandContext context(loop, std::move(caller), std::move(names),
                         invocation ? std::move(invocation->arguments) : CommandArguments(),
                         [&](int ended) {
                           status = ended;
                           loop.quit();
                         });
  if (invocation) {
    begin(*invocation, commands, context);
  } else {
    context.misused(invocation.error());
  }
  loop.run();
  Process::waitForAll(context.wasAbandoned ? whenAbandoned : endOfChildren);
  return status;
}
