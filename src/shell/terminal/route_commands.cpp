// Who takes the next turn: route, handoff.
#include <fmt/format.h>

#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/router.h"
#include "platform/values/json.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/provider_names.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "views/labels.h"
#include "views/session_rows.h"

namespace vantrell::shell {

namespace {

// ---- route --------------------------------------------------------------------------------------

Json asJson(const Settings& settings, const RoutingPreview& preview) {
  Json::Array candidates;
  for (const auto& each : preview.candidates) {
    candidates.emplace_back(
        JsonObject{{"provider", rawText(each.provider)},
                   {"available", each.available},
                   {"exhausted", each.exhausted},
                   {"reason", each.reason},
                   {"usageLabel", each.usageLabel ? Json(*each.usageLabel) : Json()}});
  }
  return JsonObject{{"route", rawText(settings.routingMode())},
                    {"noMeteredAPIs", settings.noMeteredAPIs()},
                    {"provider", preview.provider ? Json(rawText(*preview.provider)) : Json()},
                    {"reason", preview.reason},
                    {"candidates", std::move(candidates)}};
}

std::string inWords(const Console& console, const Settings& settings, const RoutingPreview& preview,
                    std::optional<AgentProvider> next) {
  const auto mode = settings.routingMode();
  std::string text = fmt::format("{} {}: {}\n\n", console.style().bold("Route"), rawText(mode),
                                 views::detail(mode));
  TextTable table({{""}, {"ID"}, {"PROVIDER"}, {.heading = "WHY", .least = 20}, {"ALLOWANCE"}});
  for (const auto& row : views::routingRows(preview, next)) {
    table.add({{row.isNext ? "▸" : "", &TerminalStyle::green},
               {std::string(rawText(row.provider)), &TerminalStyle::bold},
               {std::string(row.label)},
               {row.reason, row.isReady ? nullptr : &TerminalStyle::dim},
               {row.allowance.empty() ? "-" : row.allowance, &TerminalStyle::dim}});
  }
  text += table.text(console.style(), console.columns());
  text += fmt::format("\n{}{}\n", views::routingSentence(preview, next),
                      next ? "" : " \"vantrell providers\" says what to do.");
  if (!settings.noMeteredAPIs()) text += "Providers that are billed per use may be chosen.\n";
  return text;
}

/// Goes on once all that the choice between these depends on is known.
void prepareAll(CommandContext& context, VantrellApp& app, std::vector<AgentProvider> providers,
                std::function<void()> then) {
  if (providers.empty()) return app.model().runtimes().readUserPath(std::move(then));
  const auto provider = providers.back();
  providers.pop_back();
  app.services().prepare(provider, [&context, &app, providers, then = std::move(then)] {
    prepareAll(context, app, providers, then);
  });
}

void showRoute(CommandContext& context) {
  context.open({}, [&context](VantrellApp& app) {
    AppModel& model = app.model();
    std::optional<ThreadExecutionKey> task;
    if (const auto id = context.arguments.value("--task")) {
      const auto found = findTask(model.tree().workspaces(), *id);
      if (!found) return context.misused(found.error());
      task = *found;
    }
    const auto key = task ? task : model.selection().key();
    const auto look = [&model, key] { return model.router().routingPreview(key); };
    std::vector<AgentProvider> providers;
    for (const auto& each : look().candidates) providers.push_back(each.provider);
    prepareAll(context, app, std::move(providers), [&context, &model, key, look] {
      const auto preview = look();
      const auto next = model.router().expectedProvider({}, key);
      context.console.say(context.isJson()
                              ? json::write(asJson(model.settings(), preview)) + "\n"
                              : inWords(context.console, model.settings(), preview, next));
      context.finish(exitStatus::completed);
    });
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
  constexpr auto& routes = choicesOf<ProviderRoutingMode>;
  if (!mode) {
    return context.misused(fmt::format("The route cannot be \"{}\"; use {}.{}", word,
                                       alternatives(routes), suggestion(word, routes)));
  }
  context.change([&](AppModel& model) -> Outcome {
    const auto done = model.router().setRoutingMode(*mode, model.selection().key());
    if (!done) return context.refused(done.error());
    context.console.write(fmt::format("route is {} now. {}\n", word, views::detail(*mode)));
    return exitStatus::completed;
  });
}

// ---- handoff ------------------------------------------------------------------------------------

void handOff(CommandContext& context) {
  const auto named = readProvider(context.word(1));
  if (!named) return context.misused(named.error());
  context.open({}, [&context, provider = *named](VantrellApp& app) {
    const auto task = findTask(app.model().tree().workspaces(), context.word(0));
    if (!task) return context.misused(task.error());
    whetherAvailable(
        context, app, provider, *task, [&context, &app, provider, task = *task](bool isAvailable) {
          if (!isAvailable) {
            return context.fail(whatToDoFor(app, provider) + " Nothing was changed.");
          }
          AppModel& model = app.model();
          const auto scope = context.arguments.has("--next") ? ProviderHandoffScope::nextMessage
                                                             : ProviderHandoffScope::continueTask;
          const auto done = model.router().handoff(provider, scope, task);
          if (!done) return context.finish(context.refused(done.error()));
          const ChatThread& thread = *model.tree().thread(task);
          context.console.write(
              context.isJson() ? json::write(JsonObject{{"workspaceID", task.workspaceID.text()},
                                                        {"threadID", task.threadID.text()},
                                                        {"provider", rawText(provider)},
                                                        {"scope", rawText(scope)}}) +
                                     "\n"
                               : fmt::format("{}  {}\n{}\n", shortID(task.threadID),
                                             titleOf(thread), thread.entries.back().text));
          context.finish(exitStatus::completed);
        });
  });
}

constexpr CommandOption routeOptions[] = {
    {"--task", "ID", "for the next turn of this task (default: the selected one)"},
    {"--json", "", "for scripts: all of it as one JSON object"},
};
constexpr CommandOption handoffOptions[] = {
    {"--next", "", "for the next turn only (default: for the task, until you choose another)"},
    {"--json", "", "for scripts: what was chosen, one JSON object"},
};

constexpr Command commands[] = {
    {.name = "route",
     .parameters = "[ROUTE]",
     .summary = "who takes the next turn, and why; or set the route",
     .options = routeOptions,
     .maxWords = 1,
     .begin = route,
     .introduction = "Without a ROUTE: which providers could take the next turn, in their order, "
                     "and which one\n"
                     "will. Agents and servers are looked for; nothing is sent to any of them.",
     .closing =
         "ROUTE is automatic, local_first, or the ID of one provider (grok, codex, kimi, glm,\n"
         "claude, local, tasklet). On the first two, a task goes to the next provider by itself\n"
         "when an allowance is exhausted; on a fixed one it never does. What is chosen for a\n"
         "task (vantrell handoff) comes before the route."},
    {.name = "handoff",
     .parameters = "ID PROVIDER",
     .summary = "let another provider go on with a task",
     .options = handoffOptions,
     .minWords = 2,
     .maxWords = 2,
     .begin = handOff,
     .introduction =
         "Chooses who takes the task's next turn. A new provider is told the request, the plan,\n"
         "what was said so far and the state of the repository; a session that it has of the task\n"
         "goes on.",
     .closing =
         "ID is any beginning of a task's ID that no other task has. PROVIDER is an ID as\n"
         "\"vantrell providers\" lists them. The choice comes before the route, also a fixed\n"
         "one.\n"
         "\n"
         "Exit status: 0 done, 1 failed or the provider cannot be used now, 2 wrong usage."},
};

}  // namespace

std::span<const Command> routeCommands() {
  return commands;
}

}  // namespace vantrell::shell
