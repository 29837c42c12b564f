#include "shell/terminal/session_choice.h"

#include <fmt/format.h>

#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/provider_names.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/with_app.h"

namespace vantrell::shell {

namespace {

/// Of the stored conversations; absent where they cannot be opened, which has been told then.
std::expected<std::optional<SessionChoice>, UsageError> choiceOf(
    const std::string& task, std::optional<AgentProvider> named) {
  std::optional<SessionChoice> choice;
  std::optional<UsageError> error;
  withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto key = findTask(state.workspaces, task);
    if (!key) {
      error = key.error();
      return exitStatus::usage;
    }
    const auto& thread = threadOf(state.workspaces, *key);
    const auto provider = named ? named : providerOf(thread);
    if (!provider) {
      error = UsageError{
          "Nobody has worked on this task yet. Name the provider too, as in vantrell models codex "
          "--task ID."};
      return exitStatus::usage;
    }
    choice = SessionChoice{.provider = *provider,
                           .task = *key,
                           .modelID = thread.modelID(*provider),
                           .effort = thread.effort(*provider)};
    return exitStatus::completed;
  });
  if (error) return std::unexpected(std::move(*error));
  return choice;
}

template <typename Option>
std::vector<std::string_view> idsOf(const std::vector<Option>& options) {
  std::vector<std::string_view> ids;
  for (const auto& option : options) ids.push_back(option.id);
  return ids;
}

UsageError notOffered(const SessionChoice& session, SessionControl control, const std::string& id,
                      const RuntimeSurvey::Models& models) {
  const std::string_view name = rawText(session.provider);
  if (control == SessionControl::effort) {
    const auto efforts = effortsOf(models.options, session.modelID);
    return {fmt::format(
        "The model has no effort \"{}\".{} \"vantrell effort {} --task {}\" lists "
        "them.",
        onOneLine(id), suggestion(id, idsOf(efforts)), name, shortID(session.task->threadID))};
  }
  std::string text = fmt::format("{} offers no model \"{}\".{} \"vantrell models {}\" lists them.",
                                 ProviderRegistry::descriptor(session.provider).label,
                                 onOneLine(id), suggestion(id, idsOf(models.options)), name);
  if (!models.areReported && session.provider != AgentProvider::tasklet) {
    text += fmt::format(
        " Its program was not asked for all it has: to name one all the same, vantrell run "
        "--provider {} --task {} --model {} \"...\"",
        name, shortID(session.task->threadID), onOneLine(id));
  }
  return {text};
}

/// "3F2A91C0: gpt-5, effort high", or "the usual model".
std::string wordsFor(const SessionChoice& session) {
  return fmt::format("{} with {}: {}, {}", shortID(session.task->threadID),
                     ProviderRegistry::descriptor(session.provider).label,
                     session.modelID ? "model " + onOneLine(*session.modelID) : "the usual model",
                     session.effort ? "effort " + onOneLine(*session.effort) : "the usual effort");
}

}  // namespace

std::expected<SessionChoice, UsageError> readSessionChoice(const CommandArguments& arguments) {
  std::optional<AgentProvider> named;
  if (!arguments.words.empty()) {
    const auto provider = readProvider(arguments.words.front());
    if (!provider) return std::unexpected(provider.error());
    named = *provider;
  }
  const auto task = arguments.value(taskOption.name);
  if (!task && arguments.has("--use")) {
    return usageError("A choice is kept with a task. Say with which: --task ID.");
  }
  if (!task && !named) {
    return usageError("Of which provider? Name it, as in codex, or a task with --task ID.");
  }
  if (!task) return SessionChoice{.provider = *named};
  auto choice = choiceOf(*task, named);
  if (!choice) return std::unexpected(std::move(choice.error()));
  if (!*choice) return usageError("The task could not be looked up.");
  return **std::move(choice);
}

std::expected<int, UsageError> choose(const SessionChoice& session, SessionControl control,
                                      const std::string& id, const RuntimeSurvey::Models& models) {
  std::optional<SessionChoice> now;
  const int status = withApp({}, [&](RunLoop&, VantrellApp& app) {
    auto& model = app.model();
    model.catalog->reported(session.provider, models.options);
    const bool isTaken = control == SessionControl::model
                             ? model.controls.chooseModel(session.provider, *session.task, id)
                             : model.controls.chooseEffort(session.provider, *session.task, id);
    if (!isTaken) return exitStatus::usage;
    now = session;
    const ChatThread& thread = *model.tree.thread(*session.task);
    now->modelID = thread.modelID(session.provider);
    now->effort = thread.effort(session.provider);
    return exitStatus::completed;
  });
  if (status == exitStatus::usage) {
    return std::unexpected(notOffered(session, control, id, models));
  }
  if (status != exitStatus::completed) return status;
  tell(fmt::format("{}\n", wordsFor(*now)));
  if (control == SessionControl::model && session.effort && !now->effort) {
    tell(fmt::format("The model has no effort {}: it is the usual one now.\n",
                     onOneLine(*session.effort)));
  }
  return status;
}

std::string closingLine(const SessionChoice& session, std::string_view command,
                        std::string_view what) {
  if (session.task) return wordsFor(session) + "\n";
  return fmt::format("To choose one for a task: vantrell {} {} --task ID --use {}\n", command,
                     rawText(session.provider), what);
}

Json effortsAsJson(const std::vector<ProviderEffortOption>& efforts) {
  Json::Array all;
  for (const auto& effort : efforts) {
    all.emplace_back(
        JsonObject{{"id", effort.id}, {"label", effort.label}, {"detail", effort.detail}});
  }
  return all;
}

Json asJson(const SessionChoice& session) {
  if (!session.task) return {};
  return JsonObject{{"threadID", session.task->threadID.text()},
                    {"model", session.modelID.value_or("default")},
                    {"effort", session.effort.value_or("default")}};
}

}  // namespace vantrell::shell
