// What `vantrell run` is told on its command line. Pure functions, any thread.
#pragma once

#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "records/agent_provider.h"
#include "records/task_modes.h"
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
  std::string prompt;  // "-" stands for standard input

  bool operator==(const RunArguments&) const = default;
};

/// The options that readRunArguments() knows.
std::span<const CommandOption> runOptions();

/// What is wrong with the value of `--answer`, if there is one.
std::optional<std::string> whatIsWrongWithAnswer(const std::optional<std::string>& answer);

std::expected<RunArguments, UsageError> readRunArguments(const CommandArguments& arguments);

}  // namespace vantrell::shell
