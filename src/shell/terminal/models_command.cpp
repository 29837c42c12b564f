#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include "platform/values/json.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/session_choice.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/text_table.h"

namespace vantrell::shell {

namespace {

/// Where the list comes from, and why it may not be all.
std::string originOf(const RuntimeSurvey& survey, AgentProvider provider, bool areReported) {
  const auto label = ProviderRegistry::descriptor(provider).label;
  if (provider == AgentProvider::local) {
    const auto& status = survey.localRuntime();
    if (areReported) return fmt::format("as {} tells them", status.connection()->name);
    return status.reason() ? *status.reason() : "no server was found";
  }
  if (areReported) return fmt::format("as {} tells them", label);
  switch (provider) {
    case AgentProvider::grok:
    case AgentProvider::codex:
      return "its program is not installed, or did not tell; \"vantrell providers\" says more";
    case AgentProvider::kimi:
    case AgentProvider::glm: return "what else it has, it only tells while it works on a task";
    case AgentProvider::claude: return "it takes full names too: vantrell run --model NAME";
    default: return "";
  }
}

std::string tableOf(const SessionChoice& session, const std::vector<ProviderModelOption>& models,
                    const TerminalStyle& style) {
  TextTable table({{.heading = ""},
                   {.heading = "ID"},
                   {.heading = "NAME", .leavesAt = 2},
                   {.heading = "EFFORTS", .least = 10},
                   {.heading = "ABOUT", .least = 12, .leavesAt = 1}});
  for (const auto& model : models) {
    std::vector<std::string> efforts;
    for (const auto& effort : model.efforts) {
      if (effort.id != "default") efforts.push_back(effort.id);
    }
    const bool isChosen = session.task && model.id == session.modelID.value_or("default");
    const bool isRecommended = model.isDefault && model.id != "default";
    table.add(
        {{isChosen ? "✓" : "", &TerminalStyle::green},
         {model.id, &TerminalStyle::bold},
         {model.label},
         {efforts.empty() ? "-" : fmt::format("{}", fmt::join(efforts, " "))},
         {isRecommended ? "recommended; " + model.detail : model.detail, &TerminalStyle::dim}});
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
  const std::string origin = originOf(survey, session->provider, models.areReported);
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
