#include "shell/terminal/begin_command.h"

#include <fmt/format.h>

#include "records/values/application.h"
#include "shell/terminal/command_groups.h"

namespace vantrell::shell {

namespace {

const std::vector<Command>& commands() {
  static const auto all = allCommands();
  return all;
}

void begin(const Invocation& invocation, CommandContext& context) {
  using Kind = Invocation::Kind;
  switch (invocation.kind) {
    case Kind::welcome: return welcome(context);
    case Kind::tour: return practiceTour(context);
    case Kind::command: return invocation.command->begin(context);
    case Kind::help:
      context.console.say(invocation.command ? helpOf(*invocation.command, invocation.name)
                                             : helpText(commands()));
      break;
    case Kind::reference: context.console.write(referenceText(commands())); break;
    case Kind::version:
      context.console.write(fmt::format("{} {}\n", applicationName, applicationVersion));
      break;
  }
  context.finish(exitStatus::completed);
}

}  // namespace

std::expected<Invocation, UsageError> readArguments(std::span<const std::string> arguments) {
  const std::vector<std::string_view> words(arguments.begin(), arguments.end());
  return readCommandLine(commands(), words);
}

bool canBeHandedOver(const Invocation& invocation) {
  using Kind = Invocation::Kind;
  return invocation.kind == Kind::command ? !invocation.command->staysHere
                                          : invocation.kind == Kind::tour;
}

std::unique_ptr<CommandContext> beginCommand(MainQueue& main, Caller caller,
                                             std::expected<Invocation, UsageError> invocation,
                                             std::function<void(int status)> ended) {
  std::vector<std::string_view> names;
  for (const Command& command : commands()) names.push_back(command.name);
  auto context = std::make_unique<CommandContext>(
      main, std::move(caller), std::move(names),
      invocation ? invocation->arguments : CommandArguments(), std::move(ended));
  invocation ? begin(*invocation, *context) : context->misused(invocation.error());
  return context;
}

}  // namespace vantrell::shell
