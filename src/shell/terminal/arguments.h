// The command line, read by one table of options that serves the reader, the help and the
// suggestions. Pure functions, any thread.
#pragma once

#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/agent_provider.h"
#include "records/task_modes.h"

namespace vantrell::shell {

/// What `vantrell run` was asked for.
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

struct Invocation {
  enum class Kind { welcome, tour, run, help, runHelp, version };
  Kind kind = Kind::welcome;
  RunArguments run{};
};

/// One or more sentences: what is wrong, and what to do.
struct UsageError {
  std::string text;
};

/// Arguments without the program's own name.
std::expected<Invocation, UsageError> readArguments(const std::vector<std::string_view>& arguments);

std::string helpText();
std::string runHelpText();

}  // namespace vantrell::shell
