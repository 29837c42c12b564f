#include "shell/terminal/arguments.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <span>

#include "shell/terminal/nearest_word.h"

namespace vantrell::shell {

namespace {

using Failure = std::optional<std::string>;

std::string list(std::span<const std::string_view> words) {
  return fmt::format("{}", fmt::join(words, ", "));
}

template <HasRawTexts E>
Failure readChoice(std::optional<E>& into, std::string_view option, std::string_view value) {
  into = fromRawText<E>(value);
  if (into) return std::nullopt;
  constexpr auto words = rawTexts(E{});
  return fmt::format("{} takes one of {}, not \"{}\".", option, list(words), value);
}

Failure readMode(RunArguments& run, std::string_view value) {
  if (value == rawText(GrokPermissionMode::fullAccess)) {
    return "Full Access takes a confirmation that this version of the terminal does not have yet. "
           "Use --mode ask or --mode auto.";
  }
  run.mode = fromRawText<GrokPermissionMode>(value);
  if (run.mode) return std::nullopt;
  return fmt::format("--mode takes ask or auto, not \"{}\".", value);
}

Failure readAnswer(RunArguments& run, std::string_view value) {
  for (const std::string_view kind : {"allow_once", "allow_always", "reject_once"}) {
    if (value != kind) continue;
    run.answer = value;
    return std::nullopt;
  }
  return fmt::format("--answer takes allow_once, allow_always or reject_once, not \"{}\".", value);
}

template <auto member>
Failure readText(RunArguments& run, std::string_view value) {
  run.*member = std::string(value);
  return std::nullopt;
}
template <auto member>
Failure readFlag(RunArguments& run, std::string_view) {
  run.*member = true;
  return std::nullopt;
}

struct Option {
  std::string_view name;
  std::string_view argument;  // as help shows it; empty: takes none
  std::string_view help;
  Failure (*read)(RunArguments& run, std::string_view value);
};

using Run = RunArguments;
constexpr Option runOptions[] = {
    {"--project", "DIR", "work in this folder (default: the current one)", readText<&Run::project>},
    {"--task", "ID", "go on with this task; the first 4 characters of its ID do",
     readText<&Run::task>},
    {"--provider", "ID", "kimi, glm or grok (default: the task's last one, or the first found)",
     [](Run& run, std::string_view value) {
       return readChoice(run.provider, "--provider", value);
     }},
    {"--executable", "PATH", "the runtime's program, when it is not in a usual place",
     readText<&Run::executable>},
    {"--practice", "", "use the practice agent: no model, no account, no cost",
     readFlag<&Run::practice>},
    {"--model", "M", "model, kept with the task", readText<&Run::model>},
    {"--effort", "E", "reasoning effort, kept with the task", readText<&Run::effort>},
    {"--mode", "MODE", "ask (before acting) or auto, for this run", readMode},
    {"--workflow", "FLOW", "build, plan or review, for this run",
     [](Run& run, std::string_view value) {
       return readChoice(run.workflow, "--workflow", value);
     }},
    {"--attach", "PATH", "a file or folder to look at; may be given several times",
     [](Run& run, std::string_view value) -> Failure {
       run.attachments.emplace_back(value);
       return std::nullopt;
     }},
    {"--answer", "KIND", "answer every question: allow_once, allow_always or reject_once",
     readAnswer},
    {"--json", "", "one JSON object a line, for scripts", readFlag<&Run::json>},
};

constexpr std::string_view commands[] = {"run", "help"};

bool asksForHelp(std::string_view argument) {
  return argument == "--help" || argument == "-h";
}

std::unexpected<UsageError> usage(std::string text) {
  return std::unexpected(UsageError{std::move(text)});
}

std::string suggestion(std::string_view word, std::span<const std::string_view> known) {
  const auto nearest = nearestWord(word, known);
  return nearest ? fmt::format(" Did you mean {}?", *nearest) : std::string();
}

std::unexpected<UsageError> unknownOption(std::string_view name) {
  std::vector<std::string_view> known = {"--help"};
  for (const auto& option : runOptions) known.push_back(option.name);
  return usage(fmt::format("Unknown option {}.{} \"vantrell run --help\" lists the options.", name,
                           suggestion(name, known)));
}

/// The words behind "run".
class RunReader {
 public:
  explicit RunReader(std::span<const std::string_view> arguments) : arguments_(arguments) {}

  std::expected<Invocation, UsageError> read() {
    bool onlyWords = false;
    while (next_ < arguments_.size()) {
      const std::string_view argument = arguments_[next_++];
      if (onlyWords || argument == "-" || !argument.starts_with('-')) {
        words_.push_back(argument);
      } else if (argument == "--") {
        onlyWords = true;
      } else if (asksForHelp(argument)) {
        return Invocation{Invocation::Kind::runHelp};
      } else if (auto failure = readOption(argument)) {
        return std::unexpected(std::move(*failure));
      }
    }
    if (auto failure = contradiction()) return usage(std::move(*failure));
    run_.prompt = words_.front();
    return Invocation{Invocation::Kind::run, std::move(run_)};
  }

 private:
  std::optional<UsageError> readOption(std::string_view argument) {
    const std::size_t equals = argument.find('=');
    const std::string_view name = argument.substr(0, equals);
    const auto option = std::ranges::find(runOptions, name, &Option::name);
    if (option == std::end(runOptions)) return unknownOption(name).error();
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
    if (auto failure = option->read(run_, value)) return UsageError{std::move(*failure)};
    return std::nullopt;
  }

  /// What does not go together, or is missing.
  Failure contradiction() const {
    if (words_.empty()) {
      return "What should be done? Give a prompt: vantrell run \"explain this project\" (or - to "
             "read it from standard input).";
    }
    if (words_.size() > 1) {
      return fmt::format("The prompt is one argument. Put it in quotes: vantrell run \"{}\"",
                         fmt::join(words_, " "));
    }
    if (run_.practice && run_.provider) {
      return "--practice and --provider each say who does the task. Give one of them.";
    }
    if (run_.task && run_.project) {
      return "--task goes on in the task's own project. Leave out --project.";
    }
    if (run_.executable && !run_.provider && !run_.practice) {
      return "--executable names the program of a runtime. Say of which with --provider kimi, glm "
             "or grok.";
    }
    return std::nullopt;
  }

  std::span<const std::string_view> arguments_;
  std::size_t next_ = 0;
  RunArguments run_;
  std::vector<std::string_view> words_;
};

}  // namespace

std::expected<Invocation, UsageError> readArguments(
    const std::vector<std::string_view>& arguments) {
  using Kind = Invocation::Kind;
  if (arguments.empty()) return Invocation{Kind::welcome};
  const std::string_view first = arguments.front();
  if (first == "run") return RunReader(std::span(arguments).subspan(1)).read();
  if (asksForHelp(first)) return Invocation{Kind::help};
  if (first == "--version") return Invocation{Kind::version};
  if (first == "help") {
    if (arguments.size() == 1) return Invocation{Kind::help};
    if (arguments[1] == "run") return Invocation{Kind::runHelp};
    return usage(
        fmt::format("There is no help on \"{}\". Try \"vantrell help run\".", arguments[1]));
  }
  if (first == "--practice") {
    if (arguments.size() == 1) return Invocation{Kind::tour};
    return usage(
        "--practice alone starts the walk-through. To run a task with the practice agent: "
        "vantrell run --practice \"SAY:hello\"");
  }
  if (first.starts_with('-')) {
    static constexpr std::string_view known[] = {"--help", "--version", "--practice"};
    const bool isRunOption = std::ranges::find(runOptions, first.substr(0, first.find('=')),
                                               &Option::name) != std::end(runOptions);
    return usage(
        isRunOption
            ? fmt::format("{} belongs to \"run\": vantrell run {} ... \"prompt\"", first, first)
            : fmt::format("Unknown option {}.{} \"vantrell --help\" lists what there is.", first,
                          suggestion(first, known)));
  }
  const auto nearest = nearestWord(first, commands);
  if (nearest) {
    return usage(fmt::format("Unknown command \"{}\". Did you mean {}?", first, *nearest));
  }
  return usage(fmt::format("Unknown command \"{}\". To start a task: vantrell run \"{}\"", first,
                           fmt::join(arguments, " ")));
}

// ---- help ---------------------------------------------------------------------------------------

std::string helpText() {
  return fmt::format(
      "vantrell {} - a workspace for software work with coding agents\n"
      "\n"
      "Usage:\n"
      "  vantrell run [options] \"prompt\"   do one task here, in the terminal\n"
      "  vantrell --practice               a short walk-through, without any account\n"
      "  vantrell                          what is installed, and what to do next\n"
      "  vantrell help run                 all options of run\n"
      "  vantrell --version\n",
      VANTRELL_VERSION);
}

std::string runHelpText() {
  std::string options;
  for (const auto& option : runOptions) {
    options += fmt::format("  {:<18} {}\n", fmt::format("{} {}", option.name, option.argument),
                           option.help);
  }
  return fmt::format(
      "Usage: vantrell run [options] \"prompt\"\n"
      "\n"
      "Does one task with a coding agent and shows what it says and does. It asks before the "
      "agent\n"
      "acts, as far as the mode says so. A prompt of - is read from standard input.\n"
      "\n"
      "{}"
      "  --                 what follows is the prompt, even if it begins with a dash\n"
      "  --help             this text\n"
      "\n"
      "Ctrl-C stops the task, a second one leaves at once.\n"
      "\n"
      "Exit status: 0 completed, 1 failed, 2 wrong usage, 130 stopped.\n"
      "\n"
      "Examples:\n"
      "  vantrell run \"find out why the tests fail\"\n"
      "  vantrell run --workflow plan --attach notes.txt \"plan the next release\"\n"
      "  vantrell run --task 3F2A91C0 \"now write the changelog\"\n"
      "  vantrell run --json --answer reject_once - < prompt.txt | jq .\n",
      options);
}

}  // namespace vantrell::shell
