// Reads a command line against the descriptions of the commands, and writes their help and their
// reference. Pure functions, any thread.
#pragma once

#include <expected>
#include <span>
#include <string>
#include <string_view>

#include "shell/terminal/command.h"

namespace vantrell::shell {

/// What a command line asks for. `command` is one of those given; it is null for help without a
/// topic and for special pages.
struct Invocation {
  enum class Kind { welcome, tour, command, help, version, reference };
  Kind kind = Kind::welcome;
  const Command* command = nullptr;
  std::string name;  // of the command, as it is typed: "queue add"
  CommandArguments arguments{};
};

/// Arguments without the program's own name. An option may be spelled `--name value` or
/// `--name=value`; after `--` everything is a word.
std::expected<Invocation, UsageError> readCommandLine(std::span<const Command> commands,
                                                      std::span<const std::string_view> arguments);

/// The list of commands.
std::string helpText(std::span<const Command> commands);
/// All about one, `name` being what is typed for it.
std::string helpOf(const Command& command, std::string_view name);
/// The help of every command, and of those subcommands that have options of their own, as Markdown.
std::string referenceText(std::span<const Command> commands);

}  // namespace vantrell::shell
