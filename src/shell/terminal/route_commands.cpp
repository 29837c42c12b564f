// Who takes the next turn: route, handoff.
#include <fmt/format.h>

#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/router.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "views/labels.h"
#include "views/session_rows.h"

namespace vantrell::shell {

namespace {

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

/// Goes on once all that the choice between these depends on is known.
void prepareAll(VantrellApp& app, std::vector<AgentProvider> providers,
                std::function<void()> then) {
  if (providers.empty()) return app.model().runtimes().readUserPath(std::move(then));
  const auto provider = providers.back();
  providers.pop_back();
  app.services().prepare(
      provider, [&app, providers, then = std::move(then)] { prepareAll(app, providers, then); });
}

void showRoute(CommandContext& context) {
  context.open({}, [&context](VantrellApp& app) {
    AppModel& model = app.model();
    const auto task = context.givenTask(model.tree().workspaces());
    if (!task) return context.misused(task.error());
    const auto key = *task ? *task : model.selection().key();
    std::vector<AgentProvider> providers;
    for (const auto& each : model.router().routingPreview(key).candidates) {
      providers.push_back(each.provider);
    }
    const auto show = [&context, &model, key] {
      const auto preview = model.router().routingPreview(key);
      const auto next = model.router().expectedProvider({}, key);
      context.report(asJson(model.settings(), preview),
                     inWords(context.console, model.settings(), preview, next));
      context.finish(exitStatus::completed);
    };
    prepareAll(app, std::move(providers), context.whileAlive(show));
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
      context.console.write(fmt::format("route is {} now. {}\n", word, views::detail(*mode)));
    });
  });
}

// ---- handoff ------------------------------------------------------------------------------------

void handOff(CommandContext& context) {
  const auto named = readProvider(context.word(1));
  if (!named) return context.misused(named.error());
  context.open({}, [&context, provider = *named](VantrellApp& app) {
    const auto task = findTask(app.model().tree().workspaces(), context.word(0));
    if (!task) return context.misused(task.error());
    const auto handOver = [&context, &app, provider, task = *task](bool isAvailable) {
      if (!isAvailable) return context.fail(whatToDoFor(app, provider) + " Nothing was changed.");
      AppModel& model = app.model();
      const auto scope = context.arguments.has("--next") ? ProviderHandoffScope::nextMessage
                                                         : ProviderHandoffScope::continueTask;
      context.finish(context.after(model.router().handoff(provider, scope, task), [&] {
        const ChatThread& thread = *model.tree().thread(task);
        context.report({{"workspaceID", task.workspaceID.text()},
                        {"threadID", task.threadID.text()},
                        {"provider", rawText(provider)},
                        {"scope", rawText(scope)}},
                       fmt::format("{}  {}\n{}\n", shortID(task.threadID), titleOf(thread),
                                   thread.entries.back().text));
      }));
    };
    whetherAvailable(context, app, provider, *task, {}, handOver);
  });
}

constexpr CommandOption routeOptions[] = {
    {"--task", "ID", "for the next turn of this task (default: the selected one)"}, jsonOption};
constexpr CommandOption handoffOptions[] = {
    {"--next", "", "for the next turn only (default: for the task, until you choose another)"},
    jsonOption,
};

constexpr Command commands[] = {
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

std::span<const Command> routeCommands() {
  return commands;
}

}  // namespace vantrell::shell
