#include "shell/terminal/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "records/values/application.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

using Arguments = std::span<const std::string_view>;

bool asksForHelp(std::string_view argument) {
  return argument == "--help" || argument == "-h";
}

std::string_view optionName(std::string_view argument) {
  return argument.substr(0, argument.find('='));
}

const CommandOption* optionOf(const Command& command, std::string_view name) {
  const auto found = std::ranges::find(command.options, name, &CommandOption::name);
  return found == command.options.end() ? nullptr : &*found;
}

/// The edits that turn one word into the other.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t j = 0; j <= to.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

std::optional<std::size_t> countIn(std::string_view text) {
  std::size_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  const bool isCount = error == std::errc() && end == text.data() + text.size() && count > 0;
  return isCount ? std::optional(count) : std::nullopt;
}

bool isIn(std::span<const std::string_view> words, std::string_view word) {
  return std::ranges::find(words, word) != words.end();
}

/// What is wrong with an option's value; empty: nothing.
std::string wrongValue(const CommandOption& option, const std::string& value) {
  if (option.isCount && !countIn(value)) {
    return fmt::format("{} cannot be \"{}\"; use a whole number from 1.", option.name,
                       onOneLine(value));
  }
  if (option.choices.empty() || isIn(option.choices, value)) return {};
  return fmt::format("{} cannot be \"{}\"; use {}.{}", option.name, onOneLine(value),
                     alternatives(option.choices), suggestion(value, option.choices));
}

/// Which subcommand takes the option: `--yes belongs to "settings import".`
std::string ownerOf(std::string_view option, const Command& command, std::string_view name) {
  for (const auto& sub : command.subcommands) {
    if (optionOf(sub, option)) {
      return fmt::format("{} belongs to \"{} {}\".", option, name, sub.name);
    }
  }
  return {};
}

/// Reads the arguments of one command, whose subcommand has been chosen already.
class Reader {
 public:
  Reader(const Command& command, std::string_view name, Arguments arguments)
      : command_(command), name_(name), arguments_(arguments) {
    app_.set_help_flag("-h,--help");
    app_.allow_extras();
    words_ = app_.add_option("WORDS", read_.words);
    for (const auto& option : command.options) {
      const std::string spelled(option.name);
      if (option.argument.empty()) {
        app_.add_flag(spelled)->disable_flag_override();
        continue;
      }
      app_.add_option(spelled, [](const CLI::results_t&) { return true; })
          ->take_all()
          ->check([&option](const std::string& value) { return wrongValue(option, value); });
    }
  }

  /// Nullopt when help is asked for.
  std::expected<std::optional<CommandArguments>, UsageError> read() {
    std::vector<std::string> reversed(arguments_.rbegin(), arguments_.rend());
    if (auto empty = emptyValue()) return usageError(*std::move(empty));
    try {
      app_.parse(reversed);
    } catch (const CLI::CallForHelp&) {
      return std::nullopt;
    } catch (const CLI::ValidationError& error) {
      // Our own sentence, after the name of the option.
      const std::string_view what = error.what();
      return usageError(std::string(what.substr(what.find(": ") + 2)));
    } catch (const CLI::ParseError&) {
      return usageError(wrongArgument());
    }
    for (const auto& extra : app_.remaining()) {
      if (extra != "--") return usageError(unknownOption(optionName(extra)));
    }
    if (auto wrong = wrongNumberOfWords()) return usageError(*std::move(wrong));
    for (const auto& option : command_.options) {
      const auto* given = app_.get_option(std::string(option.name));
      if (option.argument.empty()) {
        if (given->count() > 0) read_.given.push_back({option.name, ""});
      } else {
        for (const auto& value : given->results()) read_.given.push_back({option.name, value});
      }
    }
    return std::move(read_);
  }

 private:
  /// The parser would take the next argument for an empty value.
  std::optional<std::string> emptyValue() const {
    for (const auto argument : arguments_) {
      if (argument == "--") break;
      const auto* option = optionOf(command_, optionName(argument));
      const bool isEmpty = option && argument.size() == option->name.size() + 1;
      if (isEmpty && !option->argument.empty()) return needsValue(*option);
    }
    return std::nullopt;
  }
  static std::string needsValue(const CommandOption& option) {
    return fmt::format("{0} needs a value: {0} {1}.", option.name, option.argument);
  }

  std::string unknownOption(std::string_view option) const {
    std::vector<std::string_view> known = {"--help"};
    for (const auto& each : command_.options) known.push_back(each.name);
    const auto owner = ownerOf(option, command_, name_);
    return fmt::format("{} \"vantrell {} --help\" lists the options.",
                       owner.empty() ? fmt::format("Unknown option {}.{}", onOneLine(option),
                                                   suggestion(option, known))
                                     : owner,
                       name_);
  }

  /// A value too few, at the end, or one where none is taken.
  std::string wrongArgument() const {
    for (const auto argument : arguments_) {
      const auto* option = optionOf(command_, optionName(argument));
      if (option && option->argument.empty() && argument.contains('=')) {
        return fmt::format("{} takes no value. Leave out \"{}\".", option->name,
                           onOneLine(argument.substr(argument.find('='))));
      }
    }
    const auto* last = arguments_.empty() ? nullptr : optionOf(command_, arguments_.back());
    return last ? needsValue(*last) : unknownOption(arguments_.empty() ? "" : arguments_.back());
  }

  std::optional<std::string> wrongNumberOfWords() const {
    const auto& words = read_.words;
    std::vector<std::string_view> actions;
    for (const auto& sub : command_.subcommands) actions.push_back(sub.name);
    const bool isTooMuch = words.size() > command_.maxWords;
    if (!actions.empty() && !words.empty() && (isTooMuch || !command_.begin)) {
      const auto near = suggestion(words.front(), actions);
      if (!near.empty() || command_.maxWords == 0) {
        return fmt::format(
            "There is no \"{0} {1}\".{2} \"vantrell {0} --help\" lists what it does.", name_,
            onOneLine(words.front()), near);
      }
    }
    const std::string usage = fmt::format(
        "vantrell {}{}{}", name_, command_.parameters.empty() ? "" : " ", command_.parameters);
    if (!command_.begin) {
      return fmt::format("\"{0}\" needs more: {1}. \"vantrell {0} --help\" explains them.", name_,
                         alternatives(actions));
    }
    if (words.size() < command_.minWords) {
      return fmt::format("\"{}\" needs more: {}", name_, usage);
    }
    if (!isTooMuch) return std::nullopt;
    return fmt::format("\"{}\" is too much: {}. Put a text with spaces in quotes.",
                       onOneLine(words[command_.maxWords]), usage);
  }

  const Command& command_;
  const std::string_view name_;
  const Arguments arguments_;
  CLI::App app_;
  CLI::Option* words_;
  CommandArguments read_;
};

/// Where among the arguments the first word is that is neither an option nor the value of one.
std::size_t firstWord(const Command& command, Arguments arguments) {
  const auto takesValue = [&](std::string_view name) {
    const auto takes = [name](const Command& each) {
      const auto* option = optionOf(each, name);
      return option && !option->argument.empty();
    };
    return takes(command) || std::ranges::any_of(command.subcommands, takes);
  };
  std::size_t place = 0;
  while (place < arguments.size() && arguments[place].starts_with('-') && arguments[place] != "-") {
    if (arguments[place] == "--") return arguments.size();
    place += takesValue(arguments[place]) ? 2 : 1;
  }
  return place;
}

std::expected<Invocation, UsageError> readCommand(const Command& command, std::string name,
                                                  Arguments arguments) {
  const std::size_t place = firstWord(command, arguments);
  if (place < arguments.size()) {
    const auto sub = std::ranges::find(command.subcommands, arguments[place], &Command::name);
    if (sub != command.subcommands.end()) {
      std::vector<std::string_view> rest(arguments.begin(), arguments.end());
      rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(place));
      return readCommand(*sub, fmt::format("{} {}", name, sub->name), rest);
    }
  }
  auto read = Reader(command, name, arguments).read();
  if (!read) return std::unexpected(std::move(read.error()));
  if (!*read) return Invocation{Invocation::Kind::help, &command, std::move(name), {}};
  return Invocation{Invocation::Kind::command, &command, std::move(name), **std::move(read)};
}

const Command* find(std::span<const Command* const> commands, std::string_view name) {
  const auto found = std::ranges::find(commands, name, &Command::name);
  return found == commands.end() ? nullptr : *found;
}

std::expected<Invocation, UsageError> readHelp(std::span<const Command* const> commands,
                                               Arguments topics) {
  if (topics.empty()) return Invocation{Invocation::Kind::help};
  if (topics.front() == "--reference") return Invocation{Invocation::Kind::reference};
  const Command* command = find(commands, topics.front());
  std::string name(topics.front());
  for (const auto topic : topics.subspan(1)) {
    if (!command) break;
    const auto sub = std::ranges::find(command->subcommands, topic, &Command::name);
    command = sub == command->subcommands.end() ? nullptr : &*sub;
    name += " " + std::string(topic);
  }
  if (command) return Invocation{Invocation::Kind::help, command, name, {}};
  return usageError(fmt::format("There is no help on \"{}\". \"vantrell help\" lists the commands.",
                                onOneLine(fmt::format("{}", fmt::join(topics, " ")))));
}

UsageError unknownStart(std::span<const Command* const> commands, Arguments arguments) {
  const auto first = arguments.front();
  if (first.starts_with('-')) {
    const auto name = optionName(first);
    if (const auto* run = find(commands, "run"); run && optionOf(*run, name)) {
      return {fmt::format("{0} belongs to \"run\": vantrell run {0} ... \"prompt\"", name)};
    }
    static constexpr std::string_view known[] = {"--help", "--version", "--practice"};
    return {fmt::format("Unknown option {}.{} \"vantrell --help\" lists the commands.",
                        onOneLine(name), suggestion(name, known))};
  }
  std::vector<std::string_view> known = {"help"};
  for (const Command* command : commands) known.push_back(command->name);
  const auto meant = suggestion(first, known);
  return {fmt::format("Unknown command \"{}\".{}", onOneLine(first),
                      meant.empty()
                          ? fmt::format(" To start a task: vantrell run \"{}\"",
                                        onOneLine(fmt::format("{}", fmt::join(arguments, " "))))
                          : meant)};
}

std::string usageLine(const Command& command, std::string_view name) {
  return fmt::format("vantrell {}{}{}{}\n", name, command.options.empty() ? "" : " [options]",
                     command.parameters.empty() ? "" : " ", command.parameters);
}

void appendReference(std::string& text, const Command& command, const std::string& name) {
  text += fmt::format("\n### {}\n\n```text\n{}```\n", name, helpOf(command, name));
  for (const auto& sub : command.subcommands) {
    const bool hasOwn = std::ranges::any_of(sub.options, [&](const CommandOption& option) {
      return option.name != jsonOption.name && !optionOf(command, option.name);
    });
    if (hasOwn || !sub.subcommands.empty()) {
      appendReference(text, sub, fmt::format("{} {}", name, sub.name));
    }
  }
}

}  // namespace

std::unexpected<UsageError> usageError(std::string text) {
  return std::unexpected(UsageError{std::move(text)});
}

std::string suggestion(std::string_view word, std::span<const std::string_view> known) {
  std::string_view nearest;
  std::size_t fewest = 0;
  for (const auto candidate : known) {
    const std::size_t edits = distance(word, candidate);
    if (edits * 3 > candidate.size() || (!nearest.empty() && edits >= fewest)) continue;
    nearest = candidate;
    fewest = edits;
  }
  return nearest.empty() ? "" : fmt::format(" Did you mean {}?", nearest);
}

std::string alternatives(std::span<const std::string_view> words) {
  if (words.size() < 2) return words.empty() ? "" : std::string(words.front());
  return fmt::format("{} or {}", fmt::join(words.first(words.size() - 1), ", "), words.back());
}

std::optional<std::string> CommandArguments::value(std::string_view option) const {
  const auto found = std::find_if(given.rbegin(), given.rend(),
                                  [&](const Given& each) { return each.option == option; });
  return found == given.rend() ? std::nullopt : std::optional(found->value);
}

std::vector<std::string> CommandArguments::values(std::string_view option) const {
  std::vector<std::string> all;
  for (const auto& each : given) {
    if (each.option == option) all.push_back(each.value);
  }
  return all;
}

std::optional<std::size_t> CommandArguments::count(std::string_view option) const {
  const auto text = value(option);
  return text ? countIn(*text) : std::nullopt;
}

std::expected<Invocation, UsageError> readCommandLine(std::span<const Command* const> commands,
                                                      Arguments arguments) {
  using Kind = Invocation::Kind;
  if (arguments.empty()) return Invocation{Kind::welcome};
  const std::string_view first = arguments.front();
  const auto rest = arguments.subspan(1);
  if (const Command* command = find(commands, first)) {
    return readCommand(*command, std::string(first), rest);
  }
  if (first == "help") return readHelp(commands, rest);
  if (asksForHelp(first)) return Invocation{Kind::help};
  if (first == "--version") return Invocation{Kind::version};
  if (first == "--practice") {
    if (rest.empty()) return Invocation{Kind::tour};
    return usageError(
        "--practice alone starts the walk-through. To run a task with the practice agent: "
        "vantrell run --practice \"SAY:hello\"");
  }
  return std::unexpected(unknownStart(commands, arguments));
}

std::string helpText(std::span<const Command* const> commands) {
  std::string text = fmt::format(
      "vantrell {} - a workspace for software work with coding agents\n"
      "\n"
      "Usage:\n"
      "  vantrell                  what is installed, and what to do next\n"
      "  vantrell --practice       a short walk-through, without any account\n"
      "  vantrell COMMAND ...      one of the commands below\n"
      "  vantrell help COMMAND     all about one of them\n"
      "  vantrell --version\n"
      "\n"
      "Commands:\n",
      applicationVersion);
  for (const Command* command : commands) {
    text += fmt::format("  {:<10} {}\n", command->name, command->summary);
  }
  return text;
}

std::string helpOf(const Command& command, std::string_view name) {
  std::string help = "Usage: " + (command.begin ? usageLine(command, name) : "");
  for (const auto& sub : command.subcommands) {
    if (!help.ends_with(": ")) help += "       ";
    help += usageLine(sub, fmt::format("{} {}", name, sub.name));
  }
  help += fmt::format("\n{}\n\n",
                      command.introduction.empty() ? command.summary : command.introduction);
  std::vector<std::pair<std::string, std::string_view>> lines;
  for (const auto& sub : command.subcommands) lines.emplace_back(sub.name, sub.summary);
  const std::size_t actions = lines.size();
  for (const auto& option : command.options) {
    lines.emplace_back(fmt::format("{} {}", option.name, option.argument), option.help);
  }
  lines.emplace_back("--help", "this text");
  std::size_t width = 12;
  for (const auto& line : lines) width = std::max(width, line.first.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i == actions && i > 0) help += '\n';
    help += fmt::format("  {:<{}} {}\n", lines[i].first, width, lines[i].second);
  }
  if (!command.closing.empty()) help += fmt::format("\n{}\n", command.closing);
  if (!command.closing.contains("Exit status") && !name.contains(' ')) {
    help += "\nExit status: 0 done, 1 failed, 2 wrong usage.\n";
  }
  return help;
}

std::string referenceText(std::span<const Command* const> commands) {
  std::string text = fmt::format("```text\n{}```\n", helpText(commands));
  for (const Command* command : commands) {
    appendReference(text, *command, std::string(command->name));
  }
  return text;
}

}  // namespace vantrell::shell
