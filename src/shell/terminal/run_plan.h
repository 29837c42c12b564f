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
  std::optional<AgentProvider> provider;
  std::optional<std::string> executable;     // absolute; of the provider that was named
  std::optional<std::string> practiceAgent;  // absolute, if it is asked for
  std::optional<std::string> model, effort;
  std::optional<GrokPermissionMode> mode;
  std::optional<TaskWorkflowMode> workflow;
  std::optional<std::string> answer;  // kind of option
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
  /// The conversation in which it runs, made of the task and the prompt; unset: the task's own.
  std::function<std::expected<ThreadExecutionKey, UsageError>(AppModel&, const ThreadExecutionKey&,
                                                              const std::string& prompt)>
      conversation;
  /// Sends what it is about, unless that is under way already; unset: the prompt.
  std::function<Result<>(AppModel&, const ThreadExecutionKey&)> start;
};
/// Runs the turn, and calls back with its exit status; the default ends the command with it.
void beginRun(CommandContext& context, RunPlan plan, RunVariant variant = {},
              std::function<void(int status)> ended = nullptr);

// For the parts of it that other commands need as well.

/// Selects the conversation that the plan names, else an untouched one in the plan's folder.
/// Choices of the plan that belong to it are stored with it.
std::expected<ThreadExecutionKey, UsageError> openTask(AppModel& model, const RunPlan& plan,
                                                       AgentProvider provider);
/// What the plan chooses for the turns that it drives.
RunChoices runChoicesOf(const RunPlan& plan);
/// Goes on with whether the provider can be used, for the task if there is one, once all that this
/// depends on is known.
void whetherAvailable(CommandContext& context, VantrellApp& app, AgentProvider provider,
                      std::optional<ThreadExecutionKey> task, const RunChoices& choices,
                      std::function<void(bool)> then);
/// Why a provider cannot be used now, and what helps.
std::string whatToDoFor(const VantrellApp& app, AgentProvider provider);

/// What shows a run: a transcript for a person, or with --json events, which name the conversation
/// if `threadID` is given.
std::unique_ptr<RunObserver> makePrinter(CommandContext& context, std::string threadID,
                                         std::function<void(std::string_view)> write);
/// Says who works where, how free, and how to go on with it later.
void introduceRun(CommandContext& context, RunObserver& printer, const ThreadExecutionKey& key,
                  AgentProvider provider, const RunChoices& choices, std::size_t earlierEntries);

}  // namespace vantrell::shell
