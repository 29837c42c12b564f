// What the commands of models and efforts have in common: which provider and which task they are
// about, what is chosen there, and the choice. Blocks; main thread.
#pragma once

#include <expected>
#include <optional>
#include <string>

#include "platform/values/json.h"
#include "records/values/chat_thread.h"
#include "shell/terminal/command.h"
#include "shell/terminal/runtime_survey.h"

namespace vantrell::shell {

inline constexpr CommandOption taskOption{
    "--task", "ID", "of this task; any beginning of its ID that no other has"};

struct SessionChoice {
  AgentProvider provider = AgentProvider::grok;
  /// The task, and what it has chosen for the provider, where one was named.
  std::optional<ThreadExecutionKey> task;
  std::optional<std::string> modelID;
  std::optional<std::string> effort;
};

/// From the provider's ID (the first word) and --task; without an ID, the provider that works on
/// the task.
std::expected<SessionChoice, UsageError> readSessionChoice(const CommandArguments& arguments);

enum class SessionControl { model, effort };
/// Keeps the choice with the task and answers the exit status. `models` are what the provider
/// offers: the choice must be among them.
std::expected<int, UsageError> choose(const SessionChoice& session, SessionControl control,
                                      const std::string& id, const RuntimeSurvey::Models& models);

/// A line for below a list: what is chosen or, without a task, how `command` chooses a `what`.
std::string closingLine(const SessionChoice& session, std::string_view command,
                        std::string_view what);
Json effortsAsJson(const std::vector<ProviderEffortOption>& efforts);
/// The members of what is chosen, or null without a task.
Json asJson(const SessionChoice& session);

}  // namespace vantrell::shell
