#include "shell/terminal/command.h"

#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "shell/terminal/nearest_word.h"
#include "shell/terminal/plain_words.h"

namespace vantrell::shell {

namespace {

bool asksForHelp(std::string_view argument) {
  return argument == "--help" || argument == "-h";
}

UsageError unknownOption(const Command& command, std::string_view name) {
  std::vector<std::string_view> known = {"--help"};
  for (const auto& option : command.options) known.push_back(option.name);
  return {fmt::format("Unknown option {}.{} \"vantrell {} --help\" lists the options.", name,
                      suggestion(name, known), command.name)};
}

class Reader {
 public:
  Reader(const Command& command, std::span<const std::string_view> arguments)
      : command_(command), arguments_(arguments) {}

  std::expected<std::optional<CommandArguments>, UsageError> read() {
    bool onlyWords = false;
    while (next_ < arguments_.size()) {
      const std::string_view argument = arguments_[next_++];
      if (onlyWords || argument == "-" || !argument.starts_with('-')) {
        result_.words.emplace_back(argument);
      } else if (argument == "--") {
        onlyWords = true;
      } else if (asksForHelp(argument)) {
        return std::nullopt;
      } else if (auto failure = readOption(argument)) {
        return std::unexpected(std::move(*failure));
      }
    }
    if (auto failure = wrongNumberOfWords()) return std::unexpected(std::move(*failure));
    return std::move(result_);
  }

 private:
  std::optional<UsageError> readOption(std::string_view argument) {
    const std::size_t equals = argument.find('=');
    const std::string_view name = argument.substr(0, equals);
    const auto option = std::ranges::find(command_.options, name, &CommandOption::name);
    if (option == command_.options.end()) return unknownOption(command_, name);
    std::string_view value;
    if (option->argument.empty()) {
      if (equals != std::string_view::npos) {
        return UsageError{
            fmt::format("{} takes no value. Leave out \"{}\".", name, argument.substr(equals))};
      }
    } else if (equals != std::string_view::npos) {
      value = argument.substr(equals + 1);
    } else if (next_ < arguments_.size()) {
      value = arguments_[next_++];
    }
    if (!option->argument.empty() && value.empty()) {
      return UsageError{fmt::format("{} needs a value: {} {}.", name, name, option->argument)};
    }
    result_.given.push_back({option->name, std::string(value)});
    return std::nullopt;
  }

  std::optional<UsageError> wrongNumberOfWords() const {
    const std::size_t count = result_.words.size();
    if (count >= command_.fewestWords && count <= command_.mostWords) return std::nullopt;
    const std::string way =
        fmt::format("vantrell {}{}{}", command_.name, command_.parameters.empty() ? "" : " ",
                    command_.parameters);
    if (count < command_.fewestWords) {
      return UsageError{fmt::format("\"{}\" needs more: {}", command_.name, way)};
    }
    return UsageError{fmt::format("\"{}\" is too much: {}. A text with spaces stands in quotes.",
                                  result_.words[command_.mostWords], way)};
  }

  const Command& command_;
  std::span<const std::string_view> arguments_;
  std::size_t next_ = 0;
  CommandArguments result_;
};

}  // namespace

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

std::expected<std::optional<CommandArguments>, UsageError> readCommandArguments(
    const Command& command, std::span<const std::string_view> arguments) {
  return Reader(command, arguments).read();
}

std::string helpOf(const Command& command) {
  std::size_t width = 18;
  for (const auto& option : command.options) {
    width = std::max(width, option.name.size() + option.argument.size() + 1);
  }
  const auto line = [width](std::string_view left, std::string_view right) {
    return fmt::format("  {:<{}} {}\n", left, width, right);
  };
  std::string help = fmt::format(
      "Usage: vantrell {}{}{}{}\n\n{}\n\n", command.name,
      command.options.empty() ? "" : " [options]", command.parameters.empty() ? "" : " ",
      command.parameters, command.introduction.empty() ? command.summary : command.introduction);
  for (const auto& option : command.options) {
    help += line(fmt::format("{} {}", option.name, option.argument), option.help);
  }
  help += line("--help", "this text");
  if (!command.closing.empty()) help += fmt::format("\n{}\n", command.closing);
  return help;
}

std::unexpected<UsageError> usageError(std::string text) {
  return std::unexpected(UsageError{std::move(text)});
}

std::expected<std::optional<std::size_t>, UsageError> countOption(const CommandArguments& arguments,
                                                                  std::string_view option) {
  const auto value = arguments.value(option);
  if (!value) return std::nullopt;
  std::size_t count = 0;
  const char* const end = value->data() + value->size();
  const auto read = std::from_chars(value->data(), end, count);
  if (read.ec == std::errc() && read.ptr == end && count > 0) return count;
  return usageError(fmt::format("{} takes a whole number from 1, not \"{}\".", option, *value));
}

std::string suggestion(std::string_view word, std::span<const std::string_view> known) {
  const auto nearest = nearestWord(word, known);
  return nearest ? fmt::format(" Did you mean {}?", *nearest) : std::string();
}

int refuse(const UsageError& error) {
  complain(error.text);
  return exitStatus::usage;
}

}  // namespace vantrell::shell
