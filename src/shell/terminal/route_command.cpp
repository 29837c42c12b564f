// `vantrell route`: who would take the next turn, and why; sets the route.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include "platform/values/json.h"
#include "shell/terminal/awaiting.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/task_choice.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/terminal_style.h"
#include "shell/terminal/text_table.h"
#include "shell/terminal/user_path.h"
#include "shell/terminal/with_app.h"
#include "views/labels.h"
#include "views/session_rows.h"

namespace vantrell::shell {

namespace {

constexpr auto routes = rawTexts(ProviderRoutingMode{});

constexpr CommandOption options[] = {
    {"--task", "ID", "for the next turn of this task (default: the selected one)"},
    jsonOption,
};

Json asJson(const Settings& settings, const RoutingPreview& preview) {
  const auto orNull = [](const auto& value) { return value ? Json(*value) : Json(); };
  Json::Array candidates;
  for (const auto& each : preview.candidates) {
    candidates.emplace_back(JsonObject{{"provider", rawText(each.provider)},
                                       {"available", each.available},
                                       {"exhausted", each.exhausted},
                                       {"reason", each.reason},
                                       {"usageLabel", orNull(each.usageLabel)}});
  }
  JsonObject all{{"route", rawText(settings.routingMode())},
                 {"noMeteredAPIs", settings.noMeteredAPIs()},
                 {"provider", preview.provider ? Json(rawText(*preview.provider)) : Json()},
                 {"reason", preview.reason},
                 {"candidates", std::move(candidates)}};
  return all;
}

std::string inWords(const Settings& settings, const RoutingPreview& preview,
                    std::optional<AgentProvider> next, const TerminalStyle& style) {
  const auto mode = settings.routingMode();
  std::string text =
      fmt::format("{} {}: {}\n\n", style.bold("Route"), rawText(mode), views::detail(mode));
  TextTable table({{""}, {"ID"}, {"PROVIDER"}, {.heading = "WHY", .least = 20}, {"ALLOWANCE"}});
  for (const auto& row : views::routingRows(preview, next)) {
    table.add({{row.isNext ? "▸" : "", &TerminalStyle::green},
               {std::string(rawText(row.provider)), &TerminalStyle::bold},
               {std::string(row.label)},
               {row.reason, row.isReady ? nullptr : &TerminalStyle::dim},
               {row.allowance.empty() ? "-" : row.allowance, &TerminalStyle::dim}});
  }
  text += table.text(style, columnsForTables(STDOUT_FILENO));
  text += fmt::format("\n{}{}\n", views::routingSentence(preview, next),
                      next ? "" : " \"vantrell providers\" says what to do.");
  if (!settings.noMeteredAPIs()) text += "Providers that are billed per use may be chosen.\n";
  return text;
}

/// With all that it depends on found out.
RoutingPreview previewOf(RunLoop& loop, VantrellApp& app,
                         const std::optional<ThreadExecutionKey>& task) {
  Router& router = *app.model().router;
  const auto look = [&] {
    return task ? router.routingPreviewFor(*task) : router.routingPreview();
  };
  for (const auto& each : look().candidates) {
    await(loop, [&](std::function<void()> done) {
      app.services().prepare(each.provider, std::move(done));
    });
  }
  awaitUserPath(loop, *app.model().runtimes);
  return look();
}

int show(const CommandArguments& arguments, const Environment& environment) {
  return withApp({}, [&](RunLoop& loop, VantrellApp& app) {
    AppModel& model = app.model();
    std::optional<ThreadExecutionKey> task;
    if (const auto id = arguments.value("--task")) {
      const auto found = findTask(model.tree.workspaces(), *id);
      if (!found) return refuse(found.error());
      task = *found;
    }
    const auto key = task ? task : model.selection.key();
    if (key) countLastProviderAsActive(model, *key);
    const auto preview = previewOf(loop, app, task);
    const auto next = model.router->expectedProvider({}, key);
    StandardOutput out;
    out.write(arguments.has(jsonOption.name)
                  ? json::write(asJson(model.settings, preview)) + "\n"
                  : inWords(model.settings, preview, next,
                            TerminalStyle::of(STDOUT_FILENO, environment)));
    return out.finish(exitStatus::completed);
  });
}

int set(std::string_view word) {
  const auto mode = fromRawText<ProviderRoutingMode>(word);
  if (!mode) {
    return refuse({fmt::format("There is no route \"{}\".{} A route is one of {}.", word,
                               suggestion(word, routes), fmt::join(routes, ", "))});
  }
  return withApp({}, [&](RunLoop&, VantrellApp& app) {
    app.model().router->setRoutingMode(*mode);
    StandardOutput out;
    out.write(fmt::format("route is {} now. {}\n", word, views::detail(*mode)));
    return out.finish(exitStatus::completed);
  });
}

int run(const CommandArguments& arguments, const Environment& environment) {
  if (arguments.words.empty()) return show(arguments, environment);
  if (!arguments.given.empty()) {
    return refuse({"--task and --json are for showing the route. Leave them out to set it."});
  }
  return set(arguments.words.front());
}

}  // namespace

const Command routeCommand{
    .name = "route",
    .parameters = "[ROUTE]",
    .summary = "who takes the next turn, and why; or set the route",
    .options = options,
    .mostWords = 1,
    .introduction =
        "Without a ROUTE: which providers could take the next turn, in their order, and which one\n"
        "will. Agents and servers are looked for; nothing is sent to any of them.",
    .closing =
        "ROUTE is automatic, local_first, or the ID of one provider (grok, codex, kimi, glm,\n"
        "claude, local, tasklet). On the first two, a task goes to the next provider by itself\n"
        "when an allowance is exhausted; on a fixed one it never does. What is chosen for a\n"
        "task (vantrell handoff) comes before the route.\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage.",
    .run = run,
};

}  // namespace vantrell::shell
