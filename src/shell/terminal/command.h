// What a command of the program is, as data: its name, its options, its help, and what it does. One
// reader (command_line.h) serves them all.
#pragma once

#include <expected>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "records/values/raw_text.h"

namespace vantrell::shell {

class CommandContext;

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
/// How a command ended: its exit status, or wrong usage.
using Outcome = std::expected<int, UsageError>;

std::unexpected<UsageError> usageError(std::string text);
/// " Did you mean run?", or nothing.
std::string suggestion(std::string_view word, std::span<const std::string_view> known);
/// "ask, auto or full_access".
std::string alternatives(std::span<const std::string_view> words);
/// `The mode cannot be "foo"; use ask, auto or full_access.`
std::string notAmong(std::string_view what, std::string_view given,
                     std::span<const std::string_view> choices);

/// Every text that a value of the enumeration has, for an option's choices.
template <HasRawTexts E>
inline constexpr auto choicesOf = rawTexts(E{});

struct CommandOption {
  std::string_view name;      // "--project"
  std::string_view argument;  // as help shows it; empty: takes none
  std::string_view help;
  std::span<const std::string_view> choices{};  // the only values, if not empty
  bool isCount = false;                         // a whole number from 1
};

/// What follows the name of a command on the command line, checked against its description.
class CommandArguments {
 public:
  /// What is not an option, in order.
  std::vector<std::string> words;

  bool has(std::string_view option) const { return value(option).has_value(); }
  /// The last value given; empty for an option without argument.
  std::optional<std::string> value(std::string_view option) const;
  std::vector<std::string> values(std::string_view option) const;
  /// Of an option that is a count.
  std::optional<std::size_t> count(std::string_view option) const;
  /// Of an option whose choices are those of the enumeration.
  template <HasRawTexts E>
  std::optional<E> choice(std::string_view option) const {
    const auto text = value(option);
    return text ? fromRawText<E>(*text) : std::nullopt;
  }

  struct Given {
    std::string_view option;
    std::string value;
  };
  std::vector<Given> given;
};

struct Command {
  std::string_view name;
  /// What follows the name, which also says how many words it takes: "ID [TITLE]", "ID...".
  std::string_view parameters{};
  /// One line for the list of commands.
  std::string_view summary;
  std::span<const CommandOption> options{};
  /// Begins the command and returns; its end is reported to the context, within this call or later
  /// on the main queue. Null: only its subcommands do something.
  void (*begin)(CommandContext& context) = nullptr;
  /// Paragraphs of its help before the options, if the summary does not say it all, and after them.
  /// What ID and PROVIDER are and the usual exit statuses are added.
  std::string_view introduction{};
  std::string_view closing{};
  std::span<const Command> subcommands{};
  /// Never carried out by another process that owns the state: it needs this one's terminal.
  bool staysHere = false;
};

// Options of many commands.
inline constexpr CommandOption jsonOption{"--json", "", "for scripts: JSON, one object a line"};
inline constexpr CommandOption yesOption{"--yes", "", "do it without being asked"};
inline constexpr CommandOption limitOption{"--limit", "N", "no more than the first N", {}, true};
inline constexpr CommandOption ofProjectOption{"--project", "PROJECT",
                                               "only in this project: its name, folder or ID"};
inline constexpr CommandOption offOption{"--off", "", "take it back"};
/// Of commands that print one value, laid out, whatever it holds.
inline constexpr CommandOption wholeJsonOption{jsonOption.name, "",
                                               "for scripts: all of it as JSON"};
inline constexpr CommandOption onlyJson[] = {jsonOption};
inline constexpr CommandOption onlyYes[] = {yesOption};
inline constexpr CommandOption yesAndJson[] = {yesOption, jsonOption};
inline constexpr CommandOption offAndJson[] = {offOption, jsonOption};
inline constexpr CommandOption onlyWholeJson[] = {wholeJsonOption};
inline constexpr std::span<const CommandOption> noOptions;

}  // namespace vantrell::shell
