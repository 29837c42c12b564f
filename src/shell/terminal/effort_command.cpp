#include <fmt/format.h>
#include <unistd.h>

#include "platform/values/json.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/session_choice.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/text_table.h"
#include "views/session_rows.h"

namespace vantrell::shell {

namespace {

int run(const CommandArguments& arguments, const Environment& environment) {
  const auto session = readSessionChoice(arguments);
  if (!session) return refuse(session.error());
  RuntimeSurvey survey;
  const auto models = survey.askModels(session->provider);
  if (const auto id = arguments.value("--use")) {
    const auto status = choose(*session, SessionControl::effort, *id, models);
    return status ? *status : refuse(status.error());
  }
  const auto efforts = effortsOf(models.options, session->modelID);
  StandardOutput output;
  if (arguments.has(jsonOption.name)) {
    output.write(json::writePrettySorted(JsonObject{{"provider", rawText(session->provider)},
                                                    {"model", session->modelID.value_or("default")},
                                                    {"efforts", effortsAsJson(efforts)},
                                                    {"chosen", asJson(*session)}}) +
                 "\n");
    return output.finish(exitStatus::completed);
  }
  const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
  TextTable table({{.heading = ""},
                   {.heading = "ID"},
                   {.heading = "NAME", .leavesAt = 1},
                   {.heading = "ABOUT", .least = 12}});
  for (const auto& row : views::effortRows(efforts, session->effort)) {
    table.add({{session->task && row.isChosen ? "✓" : "", &TerminalStyle::green},
               {row.id, &TerminalStyle::bold},
               {row.label},
               {row.detail, &TerminalStyle::dim}});
  }
  std::string text = style.bold(ProviderRegistry::descriptor(session->provider).label) + "\n" +
                     table.text(style, columnsForTables(STDOUT_FILENO)) + "\n";
  text += closingLine(*session, "effort", "EFFORT");
  output.write(asTyped(text));
  return output.finish(exitStatus::completed);
}

constexpr CommandOption options[] = {
    taskOption,
    {"--use", "EFFORT", "choose it for the task; default goes back to the model's own"},
    jsonOption,
};

}  // namespace

const Command effortCommand{
    .name = "effort",
    .parameters = "[ID]",
    .summary = "how much a provider's model thinks, for a task",
    .options = options,
    .mostWords = 1,
    .introduction =
        "Lists the reasoning efforts of the model that a task has chosen with a provider, or of\n"
        "the provider's usual model, and marks the chosen one. ID is the provider's; without\n"
        "it, the provider that works on the task.",
    .closing =
        "A choice is kept with the task, for that provider.\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage, or no such effort.\n"
        "\n"
        "Examples:\n"
        "  vantrell effort codex\n"
        "  vantrell effort --task 3F2A91C0 --use high",
    .run = run,
};

}  // namespace vantrell::shell
