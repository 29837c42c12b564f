#include "shell/terminal/commands.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "records/values/application.h"
#include "shell/terminal/run_arguments.h"

namespace vantrell::shell {

namespace {

constexpr const Command* table[] = {
    // Working.
    &runCommand,
    &queueCommand,
    &retryCommand,
    &branchCommand,
    &compareCommand,
    &imagineCommand,
    // Who works: programs, models, allowances, routes.
    &providersCommand,
    &loginCommand,
    &modelsCommand,
    &effortCommand,
    &usageCommand,
    &routeCommand,
    &handoffCommand,
    // Tasks.
    &activityCommand,
    &statusCommand,
    &tasksCommand,
    &showCommand,
    &artifactsCommand,
    &exportCommand,
    &sayCommand,
    &searchCommand,
    &newCommand,
    &forkCommand,
    &renameCommand,
    &moveCommand,
    &pinCommand,
    &archiveCommand,
    &deleteCommand,
    // What they change, and the way back.
    &diffCommand,
    &reviewCommand,
    &checkpointCommand,
    &isolateCommand,
    // Projects.
    &projectsCommand,
    &contextCommand,
    &hooksCommand,
    // The program.
    &settingsCommand,
};

bool asksForHelp(std::string_view argument) {
  return argument == "--help" || argument == "-h";
}

const Command* find(std::string_view name) {
  const auto found = std::ranges::find(table, name, &Command::name);
  return found == std::end(table) ? nullptr : *found;
}

bool isOptionOfRun(std::string_view argument) {
  return std::ranges::find(runOptions(), argument.substr(0, argument.find('=')),
                           &CommandOption::name) != runOptions().end();
}

std::expected<Invocation, UsageError> readHelp(std::span<const std::string_view> topics) {
  using Kind = Invocation::Kind;
  if (topics.empty()) return Invocation{Kind::help};
  if (const Command* command = find(topics.front())) return Invocation{Kind::commandHelp, command};
  return usageError(fmt::format("There is no help on \"{}\". \"vantrell help\" lists the commands.",
                                topics.front()));
}

std::expected<Invocation, UsageError> readOption(std::string_view option) {
  static constexpr std::string_view known[] = {"--help", "--version", "--practice"};
  return usageError(
      isOptionOfRun(option)
          ? fmt::format("{} belongs to \"run\": vantrell run {} ... \"prompt\"", option, option)
          : fmt::format("Unknown option {}.{} \"vantrell --help\" lists what there is.", option,
                        suggestion(option, known)));
}

}  // namespace

std::span<const Command* const> allCommands() {
  return table;
}

std::expected<Invocation, UsageError> readCommandLine(std::span<const std::string_view> arguments) {
  using Kind = Invocation::Kind;
  if (arguments.empty()) return Invocation{Kind::welcome};
  const std::string_view first = arguments.front();
  const auto rest = arguments.subspan(1);
  if (const Command* command = find(first)) {
    auto read = readCommandArguments(*command, rest);
    if (!read) return std::unexpected(std::move(read.error()));
    if (!*read) return Invocation{Kind::commandHelp, command};
    return Invocation{Kind::command, command, **std::move(read)};
  }
  if (asksForHelp(first)) return Invocation{Kind::help};
  if (first == "--version") return Invocation{Kind::version};
  if (first == "help") return readHelp(rest);
  if (first == "--practice") {
    if (rest.empty()) return Invocation{Kind::tour};
    return usageError(
        "--practice alone starts the walk-through. To run a task with the practice agent: "
        "vantrell run --practice \"SAY:hello\"");
  }
  if (first.starts_with('-')) return readOption(first);
  std::vector<std::string_view> known = {"help"};
  for (const Command* command : table) known.push_back(command->name);
  if (const auto meant = suggestion(first, known); !meant.empty()) {
    return usageError(fmt::format("Unknown command \"{}\".{}", first, meant));
  }
  return usageError(fmt::format("Unknown command \"{}\". To start a task: vantrell run \"{}\"",
                                first, fmt::join(arguments, " ")));
}

std::string helpText() {
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
  for (const Command* command : table) {
    text += fmt::format("  {:<10} {}\n", command->name, command->summary);
  }
  return text;
}

}  // namespace vantrell::shell
