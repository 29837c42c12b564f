// What the commands that let an agent work are told on their command line, and how it is carried
// out: which conversation goes on, who does it, in which modes. Main queue.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/run_choices.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/run_observer.h"

namespace vantrell::shell {

// Their options.

inline constexpr auto answerKinds =
    std::to_array<std::string_view>({"allow_once", "allow_always", "reject_once"});
inline constexpr CommandOption projectOption{
    "--project", "PROJECT", "a project's name, folder or ID (default: the current folder)"};
inline constexpr CommandOption folderOption{"--project", "DIR",
                                            "work in this folder (default: the current one)"};
inline constexpr CommandOption taskOption{
    "--task", "ID", "go on with this task; any beginning of its ID that no other has"};
inline constexpr CommandOption providerOption{
    "--provider", "ID",
    "who does it, as in codex (default: the task's last one, or the first found)",
    choicesOf<AgentProvider>};
inline constexpr CommandOption executableOption{
    "--executable", "PATH", "the agent's program, when it is not in a usual place"};
inline constexpr CommandOption practiceOption{
    "--practice", "", "use the practice agent: no model, no account, no cost"};
inline constexpr CommandOption modeOption{
    "--mode", "MODE", "ask (before acting), auto or full_access (to be confirmed), for this run",
    choicesOf<GrokPermissionMode>};
inline constexpr CommandOption workflowOption{
    "--workflow", "FLOW", "build, plan or review, for this run", choicesOf<TaskWorkflowMode>};
inline constexpr CommandOption attachOption{
    "--attach", "PATH", "a file or folder to look at; may be given several times"};
inline constexpr CommandOption answerOption{
    "--answer", "KIND", "answer every question: allow_once, allow_always or reject_once",
    answerKinds};

struct RunPlan {
  std::string folder;                  // absolute
  std::optional<std::string> project;  // as it was given
  std::optional<std::string> task;     // its ID, or the beginning of it
  RunChoices choices{.isDriven = true};
  std::optional<std::string> model, effort;  // kept with the task
  std::optional<std::string> answer;         // kind of option
  std::vector<ChatAttachment> attachments;
  std::string prompt;
};

/// Goes on with the plan of the command line about `task`, with the prompt that is the last word if
/// it takes one. What is wrong ends the command before anything is changed.
void withPlan(CommandContext& context, std::optional<std::string> task, bool takesPrompt,
              std::function<void(RunPlan)> then);
/// Goes on with the prompt, read from the input where it is "-". An empty one ends the command.
void withPrompt(CommandContext& context, const std::string& given,
                std::function<void(std::string)> then);
std::expected<std::vector<ChatAttachment>, UsageError> attachmentsOf(const CommandContext& context);

/// The program that `--executable` names, as a shell finds it: a name without a slash is looked for
/// in the folders of PATH.
std::expected<std::string, UsageError> findProgram(const CommandContext& context,
                                                   std::string_view name);
/// The practice agent beside this program, or where the environment says.
std::string practiceAgentPath(const CommandContext& context);

/// How a run begins that is more than a prompt to its task.
struct RunVariant {
  /// Each works in a conversation of its own, and all must be there; empty: the one that the plan
  /// or the route names.
  std::vector<AgentProvider> providers;
  /// The conversations in which it runs, made of the task; unset: the task's own. The error is the
  /// outcome of the command.
  using Conversations = std::expected<std::vector<ThreadExecutionKey>, Outcome>;
  std::function<Conversations(AppModel&, const ThreadExecutionKey& task)> conversations;
  /// Sends what one is about; unset: the prompt.
  std::function<Result<>(AppModel&, const ThreadExecutionKey&)> start;
};
/// For `start`, where the making of the conversation has begun it.
inline Result<> hasBegun(AppModel&, const ThreadExecutionKey&) {
  return {};
}
/// Runs the turn, and calls back with its exit status; the default ends the command with it.
void beginRun(CommandContext& context, RunPlan plan, RunVariant variant = {},
              std::function<void(int status)> ended = nullptr);

// For the parts of it that other commands need as well.

/// What shows a run: a transcript for a person, or with --json events, which name the conversation
/// if `threadID` is given.
std::unique_ptr<RunObserver> makePrinter(CommandContext& context, std::string threadID,
                                         std::function<void(std::string_view)> write);
/// Why a provider cannot be used now, and what helps.
std::string whatToDoFor(const VantrellApp& app, AgentProvider provider);
/// What a provider is called where there is little room.
std::string shortNameOf(AgentProvider provider, const RunChoices& choices);

}  // namespace vantrell::shell
