// Every command of the program, in the order in which help lists them. To add one: its own file, a
// line here and a line in the table of commands.cpp.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "shell/terminal/command.h"

namespace vantrell::shell {

extern const Command runCommand;
extern const Command providersCommand;
extern const Command loginCommand;
extern const Command modelsCommand;
extern const Command effortCommand;
extern const Command usageCommand;
extern const Command routeCommand;
extern const Command handoffCommand;
extern const Command activityCommand;
extern const Command statusCommand;
extern const Command tasksCommand;
extern const Command showCommand;
extern const Command artifactsCommand;
extern const Command searchCommand;
extern const Command exportCommand;
extern const Command sayCommand;
extern const Command newCommand;
extern const Command renameCommand;
extern const Command moveCommand;
extern const Command pinCommand;
extern const Command archiveCommand;
extern const Command deleteCommand;
extern const Command checkpointCommand;
extern const Command isolateCommand;
extern const Command projectsCommand;
extern const Command imagineCommand;
extern const Command queueCommand;
extern const Command branchCommand;
extern const Command retryCommand;
extern const Command compareCommand;
extern const Command forkCommand;
extern const Command contextCommand;
extern const Command diffCommand;
extern const Command reviewCommand;
extern const Command hooksCommand;
extern const Command settingsCommand;

std::span<const Command* const> allCommands();

/// What a command line asks for; `command` is null where help or a special page is wanted.
struct Invocation {
  enum class Kind { welcome, tour, command, help, commandHelp, version };
  Kind kind = Kind::welcome;
  const Command* command = nullptr;
  CommandArguments arguments{};
};

/// Arguments without the program's own name.
std::expected<Invocation, UsageError> readCommandLine(std::span<const std::string_view> arguments);

std::string helpText();

}  // namespace vantrell::shell
