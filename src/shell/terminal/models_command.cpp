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

std::string tableOf(const SessionChoice& session, const std::vector<ProviderModelOption>& models,
                    const TerminalStyle& style) {
  TextTable table({{.heading = ""},
                   {.heading = "ID"},
                   {.heading = "NAME", .leavesAt = 2},
                   {.heading = "EFFORTS", .least = 10},
                   {.heading = "ABOUT", .least = 12, .leavesAt = 1}});
  for (const auto& row : views::modelRows(models, session.modelID)) {
    table.add({{session.task && row.isChosen ? "✓" : "", &TerminalStyle::green},
               {row.id, &TerminalStyle::bold},
               {row.label},
               {row.efforts.empty() ? "-" : row.efforts},
               {row.detail, &TerminalStyle::dim}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

Json asJson(const ProviderModelOption& model) {
  return JsonObject{{"id", model.id},
                    {"label", model.label},
                    {"detail", model.detail},
                    {"isDefault", model.isDefault},
                    {"efforts", effortsAsJson(model.efforts)}};
}

int run(const CommandArguments& arguments, const Environment& environment) {
  const auto session = readSessionChoice(arguments);
  if (!session) return refuse(session.error());
  RuntimeSurvey survey;
  const auto models = survey.askModels(session->provider);
  if (const auto id = arguments.value("--use")) {
    const auto status = choose(*session, SessionControl::model, *id, models);
    return status ? *status : refuse(status.error());
  }
  const std::string origin =
      views::originOfModels(session->provider, models.areReported, survey.localRuntime());
  StandardOutput output;
  if (arguments.has(jsonOption.name)) {
    Json::Array all;
    for (const auto& model : models.options) all.push_back(asJson(model));
    output.write(json::writePrettySorted(JsonObject{{"provider", rawText(session->provider)},
                                                    {"areReported", models.areReported},
                                                    {"origin", origin},
                                                    {"models", std::move(all)},
                                                    {"chosen", asJson(*session)}}) +
                 "\n");
    return output.finish(exitStatus::completed);
  }
  const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
  const auto label = ProviderRegistry::descriptor(session->provider).label;
  std::string text = style.bold(label) + (origin.empty() ? "" : style.dim(" · " + origin)) + "\n" +
                     tableOf(*session, models.options, style) + "\n";
  text += closingLine(*session, "models", "MODEL");
  output.write(asTyped(text));
  return output.finish(exitStatus::completed);
}

constexpr CommandOption options[] = {
    taskOption,
    {"--use", "MODEL", "choose it for the task; default goes back to the provider's own choice"},
    jsonOption,
};

}  // namespace

const Command modelsCommand{
    .name = "models",
    .parameters = "[ID]",
    .summary = "the models of a provider, and which one a task uses",
    .options = options,
    .mostWords = 1,
    .introduction =
        "Lists the models of a provider, with the reasoning efforts of each, and marks the one\n"
        "that a task has chosen. ID is grok, codex, kimi, glm, claude, local or tasklet;\n"
        "without it, the provider that works on the task. Grok, Codex and a server of local\n"
        "models are asked for theirs.",
    .closing =
        "A choice is kept with the task, for that provider. An effort that the model does not\n"
        "have is forgotten with it.\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage, or no such model.\n"
        "\n"
        "Examples:\n"
        "  vantrell models codex\n"
        "  vantrell models codex --task 3F2A91C0 --use gpt-5-codex\n"
        "  vantrell models local --json | jq -r '.models[].id'",
    .run = run,
};

}  // namespace vantrell::shell
