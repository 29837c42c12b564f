#include "shell/terminal/run_arguments.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--project", "DIR", "work in this folder (default: the current one)"},
    {"--task", "ID", "go on with this task; any beginning of its ID that no other has"},
    providerOption,
    executableOption,
    practiceOption,
    {"--model", "M", "model, kept with the task"},
    {"--effort", "E", "reasoning effort, kept with the task"},
    modeOption,
    workflowOption,
    {"--attach", "PATH", "a file or folder to look at; may be given several times"},
    answerOption,
    runJsonOption,
};

/// The value of an option that takes one of some words; the sentence of a wrong one is put in
/// `failure`, unless there is one already.
template <HasRawTexts E>
std::optional<E> choice(const CommandArguments& arguments, std::string_view option,
                        std::optional<std::string>& failure) {
  const auto value = arguments.value(option);
  if (!value) return std::nullopt;
  const auto known = fromRawText<E>(*value);
  if (!known && !failure) {
    constexpr auto words = rawTexts(E{});
    failure =
        fmt::format("{} takes one of {}, not \"{}\".", option, fmt::join(words, ", "), *value);
  }
  return known;
}

/// What is wrong with the prompt.
std::optional<std::string> wrongPrompt(const CommandArguments& arguments) {
  if (arguments.words.empty()) {
    return "What should be done? Give a prompt: vantrell run \"explain this project\" (or - to "
           "read it from standard input).";
  }
  if (arguments.words.size() > 1) {
    return fmt::format("The prompt is one argument. Put it in quotes: vantrell run \"{}\"",
                       fmt::join(arguments.words, " "));
  }
  return std::nullopt;
}

/// What does not go together.
std::optional<std::string> contradiction(const CommandArguments& arguments, bool hasTask) {
  if (arguments.has("--practice") && arguments.has("--provider")) {
    return "--practice and --provider each say who does the task. Give one of them.";
  }
  if (arguments.has("--task") && arguments.has("--project")) {
    return "--task goes on in the task's own project. Leave out --project.";
  }
  if (arguments.value("--mode") == rawText(GrokPermissionMode::fullAccess) &&
      arguments.value("--workflow") == rawText(TaskWorkflowMode::plan)) {
    return "A plan never runs with full access. Use --mode ask or --mode auto for it.";
  }
  if (arguments.has("--executable") && !arguments.has("--provider") &&
      !arguments.has("--practice") && !hasTask) {
    return "--executable names the program of a runtime. Say of which with --provider kimi, glm "
           "or grok.";
  }
  return std::nullopt;
}

}  // namespace

std::span<const CommandOption> runOptions() {
  return options;
}

std::optional<std::string> whatIsWrongWithAnswer(const std::optional<std::string>& answer) {
  if (!answer || answer == "allow_once" || answer == "allow_always" || answer == "reject_once") {
    return std::nullopt;
  }
  return fmt::format("--answer takes allow_once, allow_always or reject_once, not \"{}\".",
                     *answer);
}

std::expected<RunArguments, UsageError> readRunArguments(const CommandArguments& arguments) {
  auto run = readTurnOptions(arguments, arguments.value("--task"));
  if (!run) return run;
  if (auto wrong = wrongPrompt(arguments)) return usageError(*std::move(wrong));
  run->prompt = arguments.words.front();
  run->takesPrompt = true;
  return run;
}

std::expected<RunArguments, UsageError> readTurnOptions(const CommandArguments& arguments,
                                                        std::optional<std::string> task) {
  RunArguments run;
  run.takesPrompt = false;
  std::optional<std::string> failure = whatIsWrongWithAnswer(arguments.value("--answer"));
  run.project = arguments.value("--project");
  run.task = std::move(task);
  run.provider = choice<AgentProvider>(arguments, "--provider", failure);
  run.executable = arguments.value("--executable");
  run.practice = arguments.has("--practice");
  run.model = arguments.value("--model");
  run.effort = arguments.value("--effort");
  run.mode = choice<GrokPermissionMode>(arguments, "--mode", failure);
  run.workflow = choice<TaskWorkflowMode>(arguments, "--workflow", failure);
  run.attachments = arguments.values("--attach");
  run.answer = arguments.value("--answer");
  run.json = arguments.has("--json");
  if (!failure) failure = contradiction(arguments, run.task.has_value());
  if (failure) return usageError(std::move(*failure));
  return run;
}

}  // namespace vantrell::shell
