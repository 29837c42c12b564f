#include "shell/terminal/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "platform/text/near_word.h"
#include "platform/text/text.h"
#include "records/values/application.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

using Arguments = std::span<const std::string_view>;

std::string_view optionName(std::string_view argument) {
  return argument.substr(0, argument.find('='));
}

template <typename Named>
const Named* named(std::span<const Named> all, std::string_view name) {
  const auto found = std::ranges::find(all, name, &Named::name);
  return found == all.end() ? nullptr : &*found;
}

std::optional<std::size_t> countIn(std::string_view text) {
  std::size_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  const bool isCount = error == std::errc() && end == text.data() + text.size() && count > 0;
  return isCount ? std::optional(count) : std::nullopt;
}

/// What is wrong with an option's value; empty: nothing.
std::string wrongValue(const CommandOption& option, const std::string& value) {
  if (option.isCount && !countIn(value)) {
    return fmt::format("{} cannot be \"{}\"; use a whole number from 1.", option.name,
                       onOneLine(value));
  }
  const auto& choices = option.choices;
  if (choices.empty() || std::ranges::find(choices, value) != choices.end()) return {};
  return notAmong(option.name, value, choices);
}

std::string usageLine(const Command& command, std::string_view name) {
  return fmt::format("vantrell {}{}{}{}", name, command.options.empty() ? "" : " [options]",
                     command.parameters.empty() ? "" : " ", command.parameters);
}

/// Whether there are as many words as the parameters say; one after the first bracket may be left
/// out.
bool isRightCount(std::size_t words, std::string_view parameters) {
  const auto countOf = [](std::string_view listed) { return text::words(listed, 10).size(); };
  return words >= countOf(parameters.substr(0, parameters.find('['))) &&
         (words <= countOf(parameters) || parameters.contains("..."));
}

std::string wrongWords(const Command& command, std::string_view name,
                       const std::vector<std::string>& words) {
  std::vector<std::string_view> actions;
  for (const auto& sub : command.subcommands) actions.push_back(sub.name);
  const auto meant = words.empty() ? "" : suggestion(words.front(), actions);
  if (!command.begin) {
    return fmt::format("\"{0}\" takes {1}.{2} \"vantrell {0} --help\" explains them.", name,
                       alternatives(actions), meant);
  }
  return fmt::format(
      "\"{0}\" is used as in: {1}.{2} Put a text with spaces in quotes. \"vantrell {0} "
      "--help\" explains the rest.",
      name, usageLine(command, name), meant);
}

/// Reads the arguments of one command, whose subcommand has been chosen already; nullopt when help
/// is asked for.
std::expected<std::optional<CommandArguments>, UsageError> readArguments(const Command& command,
                                                                         std::string_view name,
                                                                         Arguments arguments) {
  CommandArguments read;
  CLI::App app;
  app.set_help_flag("-h,--help");
  app.allow_extras();
  app.add_option("WORDS", read.words);
  std::vector<std::string_view> names = {"--help"};
  for (const auto& option : command.options) {
    names.push_back(option.name);
    const std::string spelled(option.name);
    if (option.argument.empty()) {
      app.add_flag(spelled);
      continue;
    }
    app.add_option(spelled, [](const CLI::results_t&) { return true; })
        ->type_name(std::string(option.argument))
        ->take_all()
        ->check([&option](const std::string& value) { return wrongValue(option, value); });
  }
  for (const auto argument : arguments) {
    if (argument == "--") break;
    const auto option = optionName(argument);
    const auto* known = named(command.options, option);
    if (!known || option.size() == argument.size()) continue;
    if (known->argument.empty()) return usageError(fmt::format("{} takes no value.", option));
    // The parser would take the next argument for an empty value.
    if (argument.ends_with('=')) return usageError(fmt::format("{} needs a value.", argument));
  }
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::CallForHelp&) {
    return std::nullopt;
  } catch (const CLI::ValidationError& error) {
    // Our own sentence, after the name of the option.
    const std::string_view what = error.what();
    return usageError(std::string(what.substr(what.find(": ") + 2)));
  } catch (const CLI::ParseError& error) {
    return usageError(fmt::format("{}. \"vantrell {} --help\" lists the options.",
                                  onOneLine(error.what()), name));
  }
  for (const auto& extra : app.remaining()) {
    if (extra == "--") continue;
    const auto option = optionName(extra);
    return usageError(fmt::format("Unknown option {}.{} \"vantrell {} --help\" lists the options.",
                                  onOneLine(option), suggestion(option, names), name));
  }
  if (!command.begin || !isRightCount(read.words.size(), command.parameters)) {
    return usageError(wrongWords(command, name, read.words));
  }
  for (const auto& option : command.options) {
    for (const auto& value : app.get_option(std::string(option.name))->results()) {
      read.given.push_back({option.name, option.argument.empty() ? "" : value});
    }
  }
  return read;
}

/// Where among the arguments the first word is that is neither an option nor the value of one.
std::size_t firstWord(const Command& command, Arguments arguments) {
  const auto takesValue = [&](std::string_view name) {
    const auto takes = [name](const Command& each) {
      const auto* option = named(each.options, name);
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
    if (const auto* sub = named(command.subcommands, arguments[place])) {
      std::vector<std::string_view> rest(arguments.begin(), arguments.end());
      rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(place));
      return readCommand(*sub, fmt::format("{} {}", name, sub->name), rest);
    }
  }
  auto read = readArguments(command, name, arguments);
  if (!read) return std::unexpected(std::move(read.error()));
  if (!*read) return Invocation{Invocation::Kind::help, &command, std::move(name), {}};
  return Invocation{Invocation::Kind::command, &command, std::move(name), **std::move(read)};
}

std::expected<Invocation, UsageError> readHelp(std::span<const Command> commands,
                                               Arguments topics) {
  if (topics.empty()) return Invocation{Invocation::Kind::help};
  if (topics.front() == "--reference") return Invocation{Invocation::Kind::reference};
  const Command* command = named(commands, topics.front());
  for (const auto topic : topics.subspan(1)) {
    if (command) command = named(command->subcommands, topic);
  }
  const std::string name = fmt::format("{}", fmt::join(topics, " "));
  if (command) return Invocation{Invocation::Kind::help, command, name, {}};
  return usageError(fmt::format("There is no help on \"{}\". \"vantrell help\" lists the commands.",
                                onOneLine(name)));
}

std::string unknownStart(std::span<const Command> commands, std::string_view first) {
  std::vector<std::string_view> known = {"help", "--help", "--version", "--practice"};
  for (const Command& command : commands) known.push_back(command.name);
  return fmt::format(
      "There is no command \"{}\".{} \"vantrell help\" lists the commands. To start a task: "
      "vantrell run \"prompt\"",
      onOneLine(optionName(first)), suggestion(optionName(first), known));
}

// ---- help ---------------------------------------------------------------------------------------

void appendReference(std::string& text, const Command& command, const std::string& name) {
  text += fmt::format("\n### {}\n\n```text\n{}```\n", name, helpOf(command, name));
  for (const auto& sub : command.subcommands) {
    const bool hasOwn = std::ranges::any_of(sub.options, [&](const CommandOption& option) {
      return option.name != jsonOption.name && !named(command.options, option.name);
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
  const auto nearest = text::nearWord(word, known);
  return nearest.empty() ? "" : fmt::format(" Did you mean {}?", nearest);
}

std::string alternatives(std::span<const std::string_view> words) {
  if (words.size() < 2) return words.empty() ? "" : std::string(words.front());
  return fmt::format("{} or {}", fmt::join(words.first(words.size() - 1), ", "), words.back());
}

std::string notAmong(std::string_view what, std::string_view given,
                     std::span<const std::string_view> choices) {
  return fmt::format("{} cannot be \"{}\"; use {}.{}", what, onOneLine(given),
                     alternatives(choices), suggestion(given, choices));
}

std::optional<std::string> CommandArguments::value(std::string_view option) const {
  auto all = values(option);
  return all.empty() ? std::nullopt : std::optional(std::move(all.back()));
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

std::expected<Invocation, UsageError> readCommandLine(std::span<const Command> commands,
                                                      Arguments arguments) {
  using Kind = Invocation::Kind;
  if (arguments.empty()) return Invocation{Kind::welcome};
  const std::string_view first = arguments.front();
  const auto rest = arguments.subspan(1);
  if (const Command* command = named(commands, first)) {
    return readCommand(*command, std::string(first), rest);
  }
  if (first == "help") return readHelp(commands, rest);
  if (first == "--help" || first == "-h") return Invocation{Kind::help};
  if (first == "--version") return Invocation{Kind::version};
  if (first != "--practice") return usageError(unknownStart(commands, first));
  if (rest.empty()) return Invocation{Kind::tour};
  return usageError(
      "--practice alone starts the walk-through. To run a task with the practice agent: "
      "vantrell run --practice \"SAY:hello\"");
}

std::string helpText(std::span<const Command> commands) {
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
  for (const auto& each : commands) {
    text += fmt::format("  {:<10} {}\n", each.name, each.summary);
  }
  return text +
         "\n"
         "ID is any beginning of a task's ID that no other task has. PROJECT is the name, the\n"
         "folder or a beginning of the ID of a project. PROVIDER is grok, codex, kimi, glm,\n"
         "claude, local or tasklet.\n"
         "\n"
         "Exit status: 0 done, 1 failed or refused, 2 wrong usage, 130 stopped or not confirmed.\n";
}

std::string helpOf(const Command& command, std::string_view name) {
  std::string usage, list;
  const auto addToList = [&list](std::string_view what, std::string_view words) {
    list += fmt::format("  {:<17} {}\n", what, words);
  };
  if (command.begin) usage = usageLine(command, name) + "\n";
  for (const auto& sub : command.subcommands) {
    const auto line = usageLine(sub, fmt::format("{} {}", name, sub.name));
    usage += fmt::format("{}{}\n", usage.empty() ? "" : "       ", line);
    addToList(sub.name, sub.summary);
  }
  if (!command.subcommands.empty()) list += '\n';
  for (const auto& option : command.options) {
    addToList(fmt::format("{} {}", option.name, option.argument), option.help);
  }
  addToList("--help", "this text");
  const auto about = command.introduction.empty() ? command.summary : command.introduction;
  return fmt::format("Usage: {}\n{}\n\n{}{}{}{}", usage, about, list,
                     command.closing.empty() ? "" : "\n", command.closing,
                     command.closing.empty() ? "" : "\n");
}

std::string referenceText(std::span<const Command> commands) {
  std::string text = fmt::format("```text\n{}```\n", helpText(commands));
  for (const auto& each : commands) appendReference(text, each, std::string(each.name));
  return text;
}

}  // namespace vantrell::shell
