// What a provider's model is and how much it thinks: models, effort.
#include <fmt/format.h>

#include "engine/core/workspace_tree.h"
#include "engine/providers/model_catalog.h"
#include "engine/providers/session_controls.h"
#include "platform/values/json.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/provider_names.h"
#include "shell/terminal/runtime_survey.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "views/session_rows.h"

namespace vantrell::shell {

namespace {

enum class Control { model, effort };

/// Which provider and task the command is about, and what is chosen there.
struct Choice {
  AgentProvider provider = AgentProvider::grok;
  std::optional<ThreadExecutionKey> task;
  std::optional<std::string> modelID, effort;

  std::string label() const { return std::string(ProviderRegistry::descriptor(provider).label); }
  void take(const ChatThread& thread) {
    modelID = thread.modelID(provider);
    effort = thread.effort(provider);
  }
};

std::expected<Choice, UsageError> readChoice(const CommandContext& context) {
  std::optional<AgentProvider> named;
  if (!context.arguments.words.empty()) {
    const auto provider = readProvider(context.word(0));
    if (!provider) return std::unexpected(provider.error());
    named = *provider;
  }
  const auto task = context.arguments.value("--task");
  if (!task && context.arguments.has("--use")) {
    return usageError("A choice is kept with a task. Say with which: --task ID.");
  }
  if (!task && !named) {
    return usageError("Of which provider? Name it, as in codex, or a task with --task ID.");
  }
  if (!task) return Choice{.provider = *named};
  const auto stored = context.stored();
  if (!stored) return usageError(stored.error());
  const auto key = findTask(stored->workspaces, *task);
  if (!key) return std::unexpected(key.error());
  const auto& thread = threadOf(stored->workspaces, *key);
  const auto provider = named ? named : providerOf(thread);
  if (!provider) {
    return usageError(
        "This task has no runs yet. Name the provider too, as in vantrell models codex --task ID.");
  }
  Choice choice{.provider = *provider, .task = *key};
  choice.take(thread);
  return choice;
}

/// "3F2A91C0 with Codex: model gpt-5, effort high".
std::string wordsFor(const Choice& choice) {
  return fmt::format("{} with {}: {}, {}", shortID(choice.task->threadID), choice.label(),
                     choice.modelID ? "model " + onOneLine(*choice.modelID) : "the usual model",
                     choice.effort ? "effort " + onOneLine(*choice.effort) : "the usual effort");
}

template <typename Option>
std::string suggestionAmong(const std::vector<Option>& options, const std::string& id) {
  std::vector<std::string_view> ids;
  for (const auto& option : options) ids.push_back(option.id);
  return suggestion(id, ids);
}

UsageError notOffered(const Choice& choice, Control control, const std::string& id,
                      const RuntimeSurvey::Models& models) {
  const std::string_view name = rawText(choice.provider);
  const std::string task = shortID(choice.task->threadID);
  if (control == Control::effort) {
    return {fmt::format(
        "The model has no effort \"{}\".{} \"vantrell effort {} --task {}\" lists them.",
        onOneLine(id), suggestionAmong(effortsOf(models.options, choice.modelID), id), name, task)};
  }
  std::string text =
      fmt::format("{} offers no model \"{}\".{} \"vantrell models {}\" lists them.", choice.label(),
                  onOneLine(id), suggestionAmong(models.options, id), name);
  if (!models.areReported && choice.provider != AgentProvider::tasklet) {
    text += fmt::format(
        " Its program was not asked for all it has: to name one anyway, vantrell run --provider {} "
        "--task {} --model {} \"...\"",
        name, task, onOneLine(id));
  }
  return {text};
}

/// Keeps the choice with the task; it must be among what the provider offers.
void choose(CommandContext& context, const Choice& choice, Control control, const std::string& id,
            const RuntimeSurvey::Models& models) {
  context.change([&](AppModel& model) -> Outcome {
    if (models.areReported) model.catalog().reported(choice.provider, models.options);
    const auto taken = control == Control::model
                           ? model.controls().chooseModel(choice.provider, *choice.task, id)
                           : model.controls().chooseEffort(choice.provider, *choice.task, id);
    if (!taken) return std::unexpected(notOffered(choice, control, id, models));
    Choice now = choice;
    now.take(*model.tree().thread(*choice.task));
    context.console.write(wordsFor(now) + "\n");
    if (control == Control::model && choice.effort && !now.effort) {
      context.console.write(fmt::format("The model has no effort {}: it is the usual one now.\n",
                                        onOneLine(*choice.effort)));
    }
    return exitStatus::completed;
  });
}

Json effortsAsJson(const std::vector<ProviderEffortOption>& efforts) {
  Json::Array all;
  for (const auto& effort : efforts) {
    all.emplace_back(
        JsonObject{{"id", effort.id}, {"label", effort.label}, {"detail", effort.detail}});
  }
  return all;
}

Json asJson(const Choice& choice) {
  if (!choice.task) return {};
  return JsonObject{{"threadID", choice.task->threadID.text()},
                    {"model", choice.modelID.value_or("default")},
                    {"effort", choice.effort.value_or("default")}};
}

Json modelsAsJson(const Choice& choice, const RuntimeSurvey::Models& models,
                  const std::string& origin) {
  Json::Array all;
  for (const auto& model : models.options) {
    all.emplace_back(JsonObject{{"id", model.id},
                                {"label", model.label},
                                {"detail", model.detail},
                                {"isDefault", model.isDefault},
                                {"efforts", effortsAsJson(model.efforts)}});
  }
  return JsonObject{{"provider", rawText(choice.provider)},
                    {"areReported", models.areReported},
                    {"origin", origin},
                    {"models", std::move(all)},
                    {"chosen", asJson(choice)}};
}

std::string table(const Console& console, const Choice& choice,
                  const std::vector<views::OptionRow>& rows, Control control) {
  std::vector<TableColumn> columns = {
      {.heading = ""}, {.heading = "ID"}, {.heading = "NAME", .leavesAt = 2}};
  if (control == Control::model) columns.push_back({.heading = "EFFORTS", .least = 10});
  columns.push_back({.heading = "ABOUT", .least = 12, .leavesAt = 1});
  TextTable lines(std::move(columns));
  for (const auto& row : rows) {
    std::vector<TableCell> cells = {{choice.task && row.isChosen ? "✓" : "", &TerminalStyle::green},
                                    {row.id, &TerminalStyle::bold},
                                    {row.label}};
    if (control == Control::model) cells.push_back({row.efforts.empty() ? "-" : row.efforts});
    cells.push_back({row.detail, &TerminalStyle::dim});
    lines.add(std::move(cells));
  }
  return lines.text(console.style(), console.columns());
}

template <Control control>
void show(CommandContext& context) {
  const auto read = readChoice(context);
  if (!read) return context.misused(read.error());
  const auto survey = std::make_shared<RuntimeSurvey>(context);
  context.keep(survey);
  survey->askModels(read->provider, [&context, choice = *read,
                                     survey = survey.get()](const RuntimeSurvey::Models& models) {
    if (const auto id = context.arguments.value("--use")) {
      return choose(context, choice, control, *id, models);
    }
    constexpr bool isModel = control == Control::model;
    const auto efforts = effortsOf(models.options, choice.modelID);
    const auto origin =
        isModel ? views::originOfModels(choice.provider, models.areReported, survey->localRuntime())
                : std::string();
    if (context.isJson()) {
      const Json all = isModel ? modelsAsJson(choice, models, origin)
                               : JsonObject{{"provider", rawText(choice.provider)},
                                            {"model", choice.modelID.value_or("default")},
                                            {"efforts", effortsAsJson(efforts)},
                                            {"chosen", asJson(choice)}};
      context.console.write(json::writePrettySorted(all) + "\n");
      return context.finish(exitStatus::completed);
    }
    const auto& style = context.style();
    const auto rows = isModel ? views::modelRows(models.options, choice.modelID)
                              : views::effortRows(efforts, choice.effort);
    context.console.say(fmt::format(
        "{}{}\n{}\n{}\n", style.bold(choice.label()),
        origin.empty() ? "" : style.dim(" · " + origin),
        table(context.console, choice, rows, control),
        choice.task ? wordsFor(choice)
                    : fmt::format("To choose one for a task: vantrell {} {} --task ID --use {}",
                                  isModel ? "models" : "effort", rawText(choice.provider),
                                  isModel ? "MODEL" : "EFFORT")));
    context.finish(exitStatus::completed);
  });
}

constexpr CommandOption ofTask{"--task", "ID",
                               "of this task; any beginning of its ID that no other has"};
constexpr CommandOption allAsJson{"--json", "", "for scripts: all of it as JSON"};
constexpr CommandOption modelOptions[] = {
    ofTask,
    {"--use", "MODEL", "choose it for the task; default goes back to the provider's own choice"},
    allAsJson,
};
constexpr CommandOption effortOptions[] = {
    ofTask,
    {"--use", "EFFORT", "choose it for the task; default goes back to the model's own"},
    allAsJson,
};

constexpr Command commands[] = {
    {.name = "models",
     .parameters = "[ID]",
     .summary = "the models of a provider, and which one a task uses",
     .options = modelOptions,
     .maxWords = 1,
     .begin = show<Control::model>,
     .introduction =
         "Lists the models of a provider, with the reasoning efforts of each, and marks the one\n"
         "that a task has chosen. ID is grok, codex, kimi, glm, claude, local or tasklet;\n"
         "without it, the provider that works on the task. Grok, Codex and a server of local\n"
         "models are asked for theirs.",
     .closing =
         "A choice is kept with the task, for that provider. An effort that the model does not\n"
         "have is dropped with it.\n"
         "\n"
         "Exit status: 0 done, 1 failed, 2 wrong usage, or no such model.\n"
         "\n"
         "Examples:\n"
         "  vantrell models codex\n"
         "  vantrell models codex --task 3F2A91C0 --use gpt-5-codex\n"
         "  vantrell models local --json | jq -r '.models[].id'"},
    {.name = "effort",
     .parameters = "[ID]",
     .summary = "how much a provider's model thinks, for a task",
     .options = effortOptions,
     .maxWords = 1,
     .begin = show<Control::effort>,
     .introduction =
         "Lists the reasoning efforts of the model that a task has chosen with a provider, or of\n"
         "the provider's usual model, and marks the chosen one. ID is the provider's; without\n"
         "it, the provider that works on the task.",
     .closing = "A choice is kept with the task, for that provider.\n"
                "\n"
                "Exit status: 0 done, 1 failed, 2 wrong usage, or no such effort.\n"
                "\n"
                "Examples:\n"
                "  vantrell effort codex\n"
                "  vantrell effort --task 3F2A91C0 --use high"},
};

}  // namespace

std::span<const Command> modelCommands() {
  return commands;
}

}  // namespace vantrell::shell
