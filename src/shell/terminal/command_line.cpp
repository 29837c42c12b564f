#include "shell/terminal/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "platform/text/text.h"
#include "records/values/application.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

using namespace std::string_view_literals;

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

/// A value where none is taken, or none where one is. The parser would take the next argument for
/// an empty value.
std::optional<std::string> missingOrNeedlessValue(const Command& command, Arguments arguments) {
  for (std::size_t i = 0; i < arguments.size() && arguments[i] != "--"; ++i) {
    const auto name = optionName(arguments[i]);
    const auto* option = named(command.options, name);
    if (!option) continue;
    const auto value = arguments[i].substr(name.size());  // with its "="
    if (option->argument.empty()) {
      if (value.empty()) continue;
      return fmt::format("{} takes no value. Leave out \"{}\".", name, onOneLine(value));
    }
    if (value.empty() ? ++i == arguments.size() : value == "=") {
      return fmt::format("{0} needs a value: {0} {1}.", name, option->argument);
    }
  }
  return std::nullopt;
}

std::string unknownOption(const Command& command, std::string_view name, std::string_view option) {
  std::vector<std::string_view> known = {"--help"};
  for (const auto& each : command.options) known.push_back(each.name);
  std::string what =
      fmt::format("Unknown option {}.{}", onOneLine(option), suggestion(option, known));
  for (const auto& sub : command.subcommands) {
    if (!named(sub.options, option)) continue;
    what = fmt::format("{} belongs to \"{} {}\".", option, name, sub.name);
    break;
  }
  return fmt::format("{} \"vantrell {} --help\" lists the options.", what, name);
}

std::optional<std::string> wrongNumberOfWords(const Command& command, std::string_view name,
                                              const std::vector<std::string>& words) {
  // A word after the first bracket may be left out.
  const auto& parameters = command.parameters;
  const auto required = text::trimmed(parameters.substr(0, parameters.find('[')));
  const auto countOf = [](std::string_view listed) -> std::size_t {
    return listed.empty() ? 0 : std::ranges::count(listed, ' ') + 1;
  };
  const std::size_t most = parameters.contains("...") ? words.size() : countOf(parameters);
  std::vector<std::string_view> actions;
  for (const auto& sub : command.subcommands) actions.push_back(sub.name);
  if (!actions.empty() && !words.empty() && (words.size() > most || !command.begin)) {
    const auto near = suggestion(words.front(), actions);
    if (!near.empty() || most == 0) {
      return fmt::format("There is no \"{0} {1}\".{2} \"vantrell {0} --help\" lists what it does.",
                         name, onOneLine(words.front()), near);
    }
  }
  if (!command.begin) {
    return fmt::format("\"{0}\" needs more: {1}. \"vantrell {0} --help\" explains them.", name,
                       alternatives(actions));
  }
  const std::string usage =
      fmt::format("vantrell {}{}{}", name, parameters.empty() ? "" : " ", parameters);
  if (words.size() < countOf(required)) return fmt::format("\"{}\" needs more: {}", name, usage);
  if (words.size() <= most) return std::nullopt;
  return fmt::format("\"{}\" is too much: {}. Put a text with spaces in quotes.",
                     onOneLine(words[most]), usage);
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
  for (const auto& option : command.options) {
    const std::string spelled(option.name);
    if (option.argument.empty()) {
      app.add_flag(spelled);
      continue;
    }
    app.add_option(spelled, [](const CLI::results_t&) { return true; })
        ->take_all()
        ->check([&option](const std::string& value) { return wrongValue(option, value); });
  }
  if (auto wrong = missingOrNeedlessValue(command, arguments)) return usageError(*std::move(wrong));
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::CallForHelp&) {
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    // Our own sentence, after the name of the option.
    const std::string_view what = error.what();
    return usageError(std::string(what.substr(what.find(": ") + 2)));
  }
  for (const auto& extra : app.remaining()) {
    if (extra != "--") return usageError(unknownOption(command, name, optionName(extra)));
  }
  if (auto wrong = wrongNumberOfWords(command, name, read.words)) {
    return usageError(*std::move(wrong));
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

std::string unknownStart(std::span<const Command> commands, Arguments arguments) {
  const auto first = arguments.front();
  if (first.starts_with('-')) {
    const auto name = optionName(first);
    static constexpr std::string_view known[] = {"--help", "--version", "--practice"};
    return fmt::format("Unknown option {}.{} \"vantrell --help\" lists the commands.",
                       onOneLine(name), suggestion(name, known));
  }
  std::vector<std::string_view> known = {"help"};
  for (const Command& command : commands) known.push_back(command.name);
  const auto meant = suggestion(first, known);
  return fmt::format("Unknown command \"{}\".{}", onOneLine(first),
                     meant.empty()
                         ? fmt::format(" To start a task: vantrell run \"{}\"",
                                       onOneLine(fmt::format("{}", fmt::join(arguments, " "))))
                         : meant);
}

// ---- help ---------------------------------------------------------------------------------------

/// What many commands take, explained wherever one of them has such a parameter.
constexpr std::pair<std::string_view, std::string_view> parameterTexts[] = {
    {"ID", "ID is any beginning of a task's ID that no other task has."},
    {"PROVIDER", "PROVIDER is grok, codex, kimi, glm, claude, local or tasklet."},
    {"PROJECT", "PROJECT is the name, the folder or a beginning of the ID of a project."},
};

/// Whether the command or one below it satisfies the predicate.
bool anyOf(const Command& command, const auto& predicate) {
  return predicate(command) ||
         std::ranges::any_of(command.subcommands, [&](const auto& sub) { return predicate(sub); });
}

std::string parametersExplained(const Command& command) {
  std::string text;
  for (const auto& [word, explained] : parameterTexts) {
    const auto takes = [wanted = fmt::format(" {} ", word)](const Command& each) {
      std::string listed = fmt::format(" {} ", each.parameters);
      std::ranges::replace_if(listed, [](char mark) { return ".[]"sv.contains(mark); }, ' ');
      return listed.contains(wanted);
    };
    if (anyOf(command, takes)) text += fmt::format("{}\n", explained);
  }
  return text.empty() ? text : "\n" + text;
}

std::string usageLine(const Command& command, std::string_view name) {
  return fmt::format("vantrell {}{}{}{}\n", name, command.options.empty() ? "" : " [options]",
                     command.parameters.empty() ? "" : " ", command.parameters);
}

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
  if (first != "--practice") return usageError(unknownStart(commands, arguments));
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
  return text;
}

std::string helpOf(const Command& command, std::string_view name) {
  std::string help = "Usage: " + (command.begin ? usageLine(command, name) : "");
  std::vector<std::pair<std::string, std::string_view>> lines;
  for (const auto& sub : command.subcommands) {
    if (!help.ends_with(": ")) help += "       ";
    help += usageLine(sub, fmt::format("{} {}", name, sub.name));
    lines.emplace_back(sub.name, sub.summary);
  }
  help += fmt::format("\n{}\n{}\n",
                      command.introduction.empty() ? command.summary : command.introduction,
                      parametersExplained(command));
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
    const bool asks = anyOf(command, [](const Command& each) {
      return named(each.options, yesOption.name) != nullptr;
    });
    help += fmt::format("\nExit status: 0 done, 1 failed or refused, 2 wrong usage{}.\n",
                        asks ? ", 130 not confirmed" : "");
  }
  return help;
}

std::string referenceText(std::span<const Command> commands) {
  std::string text = fmt::format("```text\n{}```\n", helpText(commands));
  for (const auto& each : commands) appendReference(text, each, std::string(each.name));
  return text;
}

}  // namespace vantrell::shell
