// What `vantrell run` is told on its command line. Pure functions, any thread.
#pragma once

#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "records/values/agent_provider.h"
#include "records/values/task_modes.h"
#include "shell/terminal/command.h"

namespace vantrell::shell {

struct RunArguments {
  std::optional<std::string> project;
  std::optional<AgentProvider> provider;
  std::optional<std::string> executable;
  std::optional<std::string> model;
  std::optional<std::string> effort;
  std::optional<GrokPermissionMode> mode;
  std::optional<TaskWorkflowMode> workflow;
  std::vector<std::string> attachments;
  std::optional<std::string> task;
  std::optional<std::string> answer;  // kind of option
  bool practice = false;
  bool json = false;
  std::string prompt;       // "-" stands for standard input
  bool takesPrompt = true;  // else it is known already

  bool operator==(const RunArguments&) const = default;
};

// The options of every command that lets an agent work.

inline constexpr CommandOption providerOption{
    "--provider", "ID",
    "who does it, as in codex (default: the task's last one, or the first found)"};
inline constexpr CommandOption executableOption{
    "--executable", "PATH", "the runtime's program, when it is not in a usual place"};
inline constexpr CommandOption practiceOption{
    "--practice", "", "use the practice agent: no model, no account, no cost"};
inline constexpr CommandOption modeOption{
    "--mode", "MODE", "ask (before acting), auto or full_access (to be confirmed), for this run"};
inline constexpr CommandOption workflowOption{"--workflow", "FLOW",
                                              "build, plan or review, for this run"};
inline constexpr CommandOption answerOption{
    "--answer", "KIND", "answer every question: allow_once, allow_always or reject_once"};
inline constexpr CommandOption runJsonOption{"--json", "", "one JSON object a line, for scripts"};

/// The options that readRunArguments() knows.
std::span<const CommandOption> runOptions();

/// What is wrong with the value of `--answer`, if there is one.
std::optional<std::string> whatIsWrongWithAnswer(const std::optional<std::string>& answer);

std::expected<RunArguments, UsageError> readRunArguments(const CommandArguments& arguments);
/// Those of a command whose words are its own, about `task` where it is about one. No prompt is
/// taken.
std::expected<RunArguments, UsageError> readTurnOptions(const CommandArguments& arguments,
                                                        std::optional<std::string> task);

}  // namespace vantrell::shell
