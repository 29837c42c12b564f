// Who takes a task's next turn, with which model: models, effort, route, handoff.
#include <fmt/format.h>

#include "app/runtime_survey.h"
#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/model_catalog.h"
#include "engine/providers/router.h"
#include "engine/providers/session_controls.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "views/labels.h"
#include "views/session_rows.h"

namespace vantrell::shell {

namespace {

// ---- models, effort -----------------------------------------------------------------------------

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

std::vector<views::OptionRow> rowsFor(const Choice& choice, Control control,
                                      const std::vector<ProviderModelOption>& models) {
  if (control == Control::model) return views::modelRows(models, choice.modelID);
  return views::effortRows(effortsOf(models, choice.modelID), choice.effort);
}

UsageError notOffered(const Choice& choice, Control control, const std::string& id,
                      const std::vector<ProviderModelOption>& models) {
  const auto rows = rowsFor(choice, control, models);
  std::vector<std::string_view> known;
  for (const auto& row : rows) known.push_back(row.id);
  const bool isModel = control == Control::model;
  return {fmt::format("{} has no {} \"{}\".{} \"vantrell {} {} --task {}\" lists them.",
                      isModel ? choice.label() : "The model", isModel ? "model" : "effort",
                      onOneLine(id), suggestion(id, known), isModel ? "models" : "effort",
                      rawText(choice.provider), shortID(choice.task->threadID))};
}

/// Keeps the choice with the task; it must be among what the provider offers.
void choose(CommandContext& context, const Choice& choice, Control control, const std::string& id,
            const RuntimeSurvey::Models& models) {
  context.change([&](AppModel& model) -> Outcome {
    if (models.areReported) model.catalog().reported(choice.provider, models.options);
    const auto taken = control == Control::model
                           ? model.controls().chooseModel(choice.provider, *choice.task, id)
                           : model.controls().chooseEffort(choice.provider, *choice.task, id);
    if (!taken) return std::unexpected(notOffered(choice, control, id, models.options));
    Choice now = choice;
    now.take(*model.tree().thread(*choice.task));
    return context.tell(wordsFor(now));
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

JsonObject asJson(const Choice& choice, Control control, const RuntimeSurvey::Models& models,
                  const std::string& origin) {
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
  return all;
}

std::string inWords(const CommandContext& context, const Choice& choice, Control control,
                    const RuntimeSurvey::Models& models, const std::string& origin) {
  TextTable table(
      {{""}, {"ID"}, {control == Control::model ? "EFFORTS" : "", 10}, {"ABOUT", 12}, {"NAME"}});
  for (const auto& row : rowsFor(choice, control, models.options)) {
    table.add({{choice.task && row.isChosen ? "✓" : "", look::green},
               {row.id, look::bold},
               {row.efforts},
               {row.detail, look::dim},
               {row.label}});
  }
  const auto& style = context.style();
  return fmt::format(
      "{}{}\n{}{}", style.bold(choice.label()), origin.empty() ? "" : style.dim(" · " + origin),
      table.text(style, context.console.columns()), choice.task ? "\n" + wordsFor(choice) : "");
}

template <Control control>
void showOptions(CommandContext& context) {
  const auto choice = readChoice(context);
  if (!choice) return context.misused(choice.error());
  auto& survey = context.survey();
  const auto tell = [&context, &survey, choice = *choice](const RuntimeSurvey::Models& models) {
    if (const auto id = context.arguments.value("--use")) {
      return choose(context, choice, control, *id, models);
    }
    const auto local = survey.facts(AgentProvider::local).local;
    const auto origin = control == Control::model
                            ? views::originOfModels(choice.provider, models.areReported, local)
                            : std::string();
    context.finish(context.report(json::writePrettySorted(asJson(choice, control, models, origin)),
                                  inWords(context, choice, control, models, origin)));
  };
  survey.askModels(choice->provider, context.whileAlive(tell));
}

// ---- route --------------------------------------------------------------------------------------

JsonObject asJson(const Settings& settings, const RoutingPreview& preview) {
  Json::Array candidates;
  for (const auto& each : preview.candidates) {
    candidates.emplace_back(JsonObject{{"provider", rawText(each.provider)},
                                       {"available", each.available},
                                       {"exhausted", each.exhausted},
                                       {"reason", each.reason},
                                       {"usageLabel", orNull(each.usageLabel)}});
  }
  return {{"route", rawText(settings.routingMode())},
          {"noMeteredAPIs", settings.noMeteredAPIs()},
          {"provider", preview.provider ? Json(rawText(*preview.provider)) : Json()},
          {"reason", preview.reason},
          {"candidates", std::move(candidates)}};
}

std::string inWords(const Console& console, const Settings& settings, const RoutingPreview& preview,
                    std::optional<AgentProvider> next) {
  const auto mode = settings.routingMode();
  TextTable table({{""}, {"ID"}, {"WHY", 20}, {"ALLOWANCE"}, {"PROVIDER"}});
  for (const auto& row : views::routingRows(preview, next)) {
    table.add({{row.isNext ? "▸" : "", look::green},
               {std::string(rawText(row.provider)), look::bold},
               {row.reason, row.isReady ? nullptr : look::dim},
               {row.allowance.empty() ? "-" : row.allowance, look::dim},
               {std::string(row.label)}});
  }
  return fmt::format(
      "{} {}: {}\n\n{}\n{}{}\n{}", console.style().bold("Route"), rawText(mode),
      views::detail(mode), table.text(console.style(), console.columns()),
      views::routingSentence(preview, next), next ? "" : " \"vantrell providers\" says what to do.",
      settings.noMeteredAPIs() ? "" : "Providers that are billed per use may be chosen.\n");
}

void showRoute(CommandContext& context) {
  context.open({}, [&context](VantrellApp& app) {
    AppModel& model = app.model();
    const auto task = context.givenTask(model.tree().workspaces());
    if (!task) return context.misused(task.error());
    const auto key = *task ? *task : model.selection().key();
    const auto show = [&context, &model, key] {
      const auto preview = model.router().routingPreview(key);
      const auto next = model.router().expectedProvider({}, key);
      context.finish(context.report(asJson(model.settings(), preview),
                                    inWords(context.console, model.settings(), preview, next)));
    };
    context.providers().whenPreviewIsKnown(key, context.whileAlive(show));
  });
}

void route(CommandContext& context) {
  if (context.arguments.words.empty()) return showRoute(context);
  if (!context.arguments.given.empty()) {
    return context.misused(
        "--task and --json are for showing the route. Leave them out to set it.");
  }
  const auto& word = context.word(0);
  const auto mode = fromRawText<ProviderRoutingMode>(word);
  if (!mode) return context.misused(notAmong("The route", word, choicesOf<ProviderRoutingMode>));
  context.change([&](AppModel& model) {
    return context.after(model.router().setRoutingMode(*mode, model.selection().key()), [&] {
      context.tell(fmt::format("route is {} now. {}\n", word, views::detail(*mode)));
    });
  });
}

// ---- handoff ------------------------------------------------------------------------------------

void handOff(CommandContext& context) {
  const auto named = readProvider(context.word(1));
  if (!named) return context.misused(named.error());
  context.openTask([&context, provider = *named](AppModel&, const ThreadExecutionKey& task) {
    const auto handOver = [&context, provider, task](bool isAvailable) {
      if (!isAvailable) {
        return context.fail(whatToDoFor(context.app(), provider) + " Nothing was changed.");
      }
      AppModel& model = context.model();
      const auto scope = context.arguments.has("--next") ? ProviderHandoffScope::nextMessage
                                                         : ProviderHandoffScope::continueTask;
      context.finish(context.after(model.router().handoff(provider, scope, task), [&] {
        const ChatThread& thread = *model.tree().thread(task);
        context.report(JsonObject{{"workspaceID", task.workspaceID.text()},
                                  {"threadID", task.threadID.text()},
                                  {"provider", rawText(provider)},
                                  {"scope", rawText(scope)}},
                       fmt::format("{}  {}\n{}\n", shortID(task.threadID), titleOf(thread),
                                   thread.entries.back().text));
      }));
    };
    context.providers().whetherAvailable(provider, task, {}, context.whileAlive(handOver));
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption ofTaskOption{"--task", "ID", "of this task"};
constexpr CommandOption modelOptions[] = {
    ofTaskOption,
    {"--use", "MODEL", "choose it for the task; default goes back to the provider's own choice"},
    wholeJsonOption,
};
constexpr CommandOption effortOptions[] = {
    ofTaskOption,
    {"--use", "EFFORT", "choose it for the task; default goes back to the model's own"},
    wholeJsonOption,
};
constexpr CommandOption routeOptions[] = {
    {"--task", "ID", "for the next turn of this task (default: the selected one)"}, jsonOption};
constexpr CommandOption handoffOptions[] = {
    {"--next", "", "for the next turn only (default: for the task, until you choose another)"},
    jsonOption,
};

constexpr Command commands[] = {
    {"models", "[PROVIDER]", "the models of a provider, and which one a task uses", modelOptions,
     showOptions<Control::model>,
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
     showOptions<Control::effort>,
     "Lists the reasoning efforts of the model that a task has chosen with a provider, or of\n"
     "the provider's usual model. A choice is kept with the task, for that provider.",
     "Example:\n"
     "  vantrell effort --task 3F2A91C0 --use high"},
    {"route", "[ROUTE]", "who takes the next turn, and why; or set the route", routeOptions, route,
     "Without a ROUTE: which providers could take the next turn, in their order, and which\n"
     "one will. Nothing is sent to any of them.",
     "ROUTE is automatic, local_first, or a provider (grok, codex, kimi, glm, claude, local,\n"
     "tasklet). On the first two, a task goes to the next provider by itself when an\n"
     "allowance is exhausted; on a fixed one it never does. What is chosen for a task\n"
     "(vantrell handoff) comes before the route."},
    {"handoff", "ID PROVIDER", "let another provider go on with a task", handoffOptions, handOff,
     "Chooses who takes the task's next turn, before any route. A new provider is told the\n"
     "request, the plan, what was said so far and the state of the repository; a session\n"
     "that it has of the task goes on."},
};

}  // namespace

std::span<const Command> modelCommands() {
  return commands;
}

}  // namespace vantrell::shell
