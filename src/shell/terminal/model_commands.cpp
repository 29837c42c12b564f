// What a provider's model is and how much it thinks: models, effort.
#include <fmt/format.h>

#include "engine/core/workspace_tree.h"
#include "engine/providers/model_catalog.h"
#include "engine/providers/session_controls.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/command_groups.h"
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

  std::string_view label() const { return ProviderRegistry::descriptor(provider).label; }
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
  if (!context.arguments.has("--task")) {
    if (context.arguments.has("--use")) {
      return usageError("A choice is kept with a task. Say with which: --task ID.");
    }
    if (named) return Choice{.provider = *named};
    return usageError("Of which provider? Name it, as in codex, or a task with --task ID.");
  }
  const auto stored = context.stored();
  if (!stored) return usageError(stored.error());
  const auto key = context.givenTask(stored->workspaces);
  if (!key) return std::unexpected(key.error());
  const auto& thread = threadOf(stored->workspaces, **key);
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
  return fmt::format("{} with {}: {}, {}\n", shortID(choice.task->threadID), choice.label(),
                     choice.modelID ? "model " + onOneLine(*choice.modelID) : "the usual model",
                     choice.effort ? "effort " + onOneLine(*choice.effort) : "the usual effort");
}

UsageError notOffered(const Choice& choice, Control control, const std::string& id,
                      const RuntimeSurvey::Models& models) {
  std::vector<std::string_view> known;
  const auto efforts = effortsOf(models.options, choice.modelID);
  const bool isModel = control == Control::model;
  for (const auto& each : models.options) {
    if (isModel) known.push_back(each.id);
  }
  for (const auto& each : efforts) {
    if (!isModel) known.push_back(each.id);
  }
  const std::string_view name = rawText(choice.provider);
  const std::string task = shortID(choice.task->threadID);
  std::string text =
      fmt::format("{} has no {} \"{}\".{} \"vantrell {} {} --task {}\" lists them.",
                  isModel ? choice.label() : "The model", isModel ? "model" : "effort",
                  onOneLine(id), suggestion(id, known), isModel ? "models" : "effort", name, task);
  if (isModel && !models.areReported && choice.provider != AgentProvider::tasklet) {
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
    context.console.write(wordsFor(now));
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

void writeJson(CommandContext& context, const Choice& choice, Control control,
               const RuntimeSurvey::Models& models, const std::string& origin) {
  JsonObject all{{"provider", rawText(choice.provider)}};
  if (control == Control::effort) {
    all.set("model", choice.modelID.value_or("default"));
    all.set("efforts", effortsAsJson(effortsOf(models.options, choice.modelID)));
  } else {
    Json::Array options;
    for (const auto& model : models.options) {
      options.emplace_back(JsonObject{{"id", model.id},
                                      {"label", model.label},
                                      {"detail", model.detail},
                                      {"isDefault", model.isDefault},
                                      {"efforts", effortsAsJson(model.efforts)}});
    }
    all.set("areReported", models.areReported);
    all.set("origin", origin);
    all.set("models", std::move(options));
  }
  all.set("chosen", choice.task ? JsonObject{{"threadID", choice.task->threadID.text()},
                                             {"model", choice.modelID.value_or("default")},
                                             {"effort", choice.effort.value_or("default")}}
                                : Json());
  context.console.write(json::writePrettySorted(all) + "\n");
}

void writeTable(CommandContext& context, const Choice& choice, Control control,
                const RuntimeSurvey::Models& models, const std::string& origin) {
  const bool isModel = control == Control::model;
  const auto rows =
      isModel ? views::modelRows(models.options, choice.modelID)
              : views::effortRows(effortsOf(models.options, choice.modelID), choice.effort);
  TextTable table({{""}, {"ID"}, {isModel ? "EFFORTS" : "", 10}, {"ABOUT", 12}, {"NAME"}});
  for (const auto& row : rows) {
    table.add({{choice.task && row.isChosen ? "✓" : "", look::green},
               {row.id, look::bold},
               {row.efforts},
               {row.detail, look::dim},
               {row.label}});
  }
  const auto& style = context.style();
  context.console.write(fmt::format("{}{}\n{}", style.bold(choice.label()),
                                    origin.empty() ? "" : style.dim(" · " + origin),
                                    table.text(style, context.console.columns())));
  if (choice.task) context.console.write("\n" + wordsFor(choice));
}

template <Control control>
void show(CommandContext& context) {
  const auto choice = readChoice(context);
  if (!choice) return context.misused(choice.error());
  const auto survey = RuntimeSurvey::of(context);
  const auto tell = [&context, &survey = *survey,
                     choice = *choice](const RuntimeSurvey::Models& models) {
    if (const auto id = context.arguments.value("--use")) {
      return choose(context, choice, control, *id, models);
    }
    const auto local = survey.facts(AgentProvider::local).local;
    const auto origin = control == Control::model
                            ? views::originOfModels(choice.provider, models.areReported, local)
                            : std::string();
    (context.isJson() ? writeJson : writeTable)(context, choice, control, models, origin);
    context.finish(exitStatus::completed);
  };
  survey->askModels(choice->provider, tell);
}

constexpr CommandOption taskOption{"--task", "ID", "of this task"};
constexpr CommandOption allAsJson{"--json", "", "for scripts: all of it as JSON"};
constexpr CommandOption modelOptions[] = {
    taskOption,
    {"--use", "MODEL", "choose it for the task; default goes back to the provider's own choice"},
    allAsJson,
};
constexpr CommandOption effortOptions[] = {
    taskOption,
    {"--use", "EFFORT", "choose it for the task; default goes back to the model's own"},
    allAsJson,
};

constexpr Command commands[] = {
    {"models", "[PROVIDER]", "the models of a provider, and which one a task uses", modelOptions,
     show<Control::model>,
     "Lists the models of a provider, or of the one that works on the task, with the\n"
     "reasoning efforts of each. Grok, Codex and a server of local models are asked for\n"
     "theirs.",
     "A choice is kept with the task, for that provider. An effort that the model does\n"
     "not have is dropped with it.\n"
     "\n"
     "Examples:\n"
     "  vantrell models codex --task 3F2A91C0 --use gpt-5-codex\n"
     "  vantrell models local --json | jq -r '.models[].id'"},
    {"effort", "[PROVIDER]", "how much a provider's model thinks, for a task", effortOptions,
     show<Control::effort>,
     "Lists the reasoning efforts of the model that a task has chosen with a provider, or of\n"
     "the provider's usual model. A choice is kept with the task, for that provider.",
     "Example:\n"
     "  vantrell effort --task 3F2A91C0 --use high"},
};

}  // namespace

std::span<const Command> modelCommands() {
  return commands;
}

}  // namespace vantrell::shell
