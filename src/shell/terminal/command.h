// What a command of the program is: its name, its options, its help, and what it does. One reader
// serves them all, so that every command takes options in the same way and answers mistakes with
// what to do. Pure functions, any thread.
#pragma once

#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/process/process.h"

namespace vantrell::shell {

/// The exit statuses of the program.
namespace exitStatus {
inline constexpr int completed = 0;
inline constexpr int failed = 1;
inline constexpr int usage = 2;
inline constexpr int stopped = 130;  // as a shell shows the end by Ctrl-C
}  // namespace exitStatus

/// One or more sentences: what is wrong, and what to do.
struct UsageError {
  std::string text;
};

struct CommandOption {
  std::string_view name;      // "--project"
  std::string_view argument;  // as help shows it; empty: takes none
  std::string_view help;
};

/// What stands behind the name of a command.
class CommandArguments {
 public:
  /// What is no option, in order.
  std::vector<std::string> words;

  bool has(std::string_view option) const { return value(option).has_value(); }
  /// The last value given; empty for an option without argument.
  std::optional<std::string> value(std::string_view option) const;
  std::vector<std::string> values(std::string_view option) const;

  struct Given {
    std::string_view option;
    std::string value;
  };
  std::vector<Given> given;
};

struct Command {
  std::string_view name;
  /// What stands behind the name: "ID TITLE".
  std::string_view parameters;
  /// One line for the list of commands.
  std::string_view summary;
  std::span<const CommandOption> options;
  /// How many words it takes.
  std::size_t fewestWords = 0;
  std::size_t mostWords = 0;
  /// Paragraphs before and behind the options in its help.
  std::string_view introduction;
  std::string_view closing;
  /// Does it all and answers the exit status. May block; the calling thread is the main thread.
  int (*run)(const CommandArguments& arguments, const Environment& environment);
};

/// `--json`, as many commands have it.
inline constexpr CommandOption jsonOption{"--json", "", "for scripts: JSON on standard output"};

/// Absent when help is asked for. An option may be spelled `--name value` or `--name=value`; behind
/// `--` everything is a word. The number of words is checked here.
std::expected<std::optional<CommandArguments>, UsageError> readCommandArguments(
    const Command& command, std::span<const std::string_view> arguments);

std::string helpOf(const Command& command);

std::unexpected<UsageError> usageError(std::string text);
/// The value of an option that takes a count of 1 or more.
std::expected<std::optional<std::size_t>, UsageError> countOption(const CommandArguments& arguments,
                                                                  std::string_view option);
/// " Did you mean run?", or nothing.
std::string suggestion(std::string_view word, std::span<const std::string_view> known);
/// Says it on standard error; the status of wrong usage.
int refuse(const UsageError& error);

}  // namespace vantrell::shell
