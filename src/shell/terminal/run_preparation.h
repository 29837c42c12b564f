// What can be said about a run before the program takes hold of its state: folders, files,
// programs. A wrong argument so changes nothing. Any thread.
#pragma once

#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/process/process.h"
#include "records/values/chat_thread.h"
#include "shell/terminal/run_arguments.h"

namespace vantrell {
class AppModel;
}

namespace vantrell::shell {

/// How a run begins that is more than a prompt to its task. Main queue.
struct RunBeginning {
  /// The conversation in which it runs, made of the task and the prompt; unset: the task's own.
  std::function<std::expected<ThreadExecutionKey, UsageError>(AppModel&, const ThreadExecutionKey&,
                                                              const std::string& prompt)>
      conversation;
  /// Sends what it is about, unless that is under way already; unset: the prompt.
  std::function<void(AppModel&)> start;
};

struct RunPlan {
  RunArguments arguments;
  std::string folder;  // absolute
  std::vector<ChatAttachment> attachments;
  bool promptWasRead = false;                // from standard input, which is used up then
  std::optional<std::string> executable;     // absolute; of the provider that was named
  std::optional<std::string> practiceAgent;  // absolute, when it is asked for
  RunBeginning beginning;
};

std::expected<RunPlan, UsageError> prepareRun(RunArguments arguments,
                                              const Environment& environment);

/// The program that `--executable` names, as a shell finds it: a name without a slash lies in one
/// of the folders of PATH.
std::expected<std::string, UsageError> findProgram(std::string_view name,
                                                   const Environment& environment);

/// The providers whose program does the work, in the order in which one is looked for when none is
/// named.
inline constexpr AgentProvider agentsToTry[] = {AgentProvider::grok, AgentProvider::codex,
                                                AgentProvider::kimi, AgentProvider::glm,
                                                AgentProvider::claude};

/// The practice agent beside this program, or where the environment says.
std::string practiceAgentPath(const Environment& environment);

}  // namespace vantrell::shell
