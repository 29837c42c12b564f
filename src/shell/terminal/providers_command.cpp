#include <fmt/format.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/local/local_runtime_service.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/runtime_survey.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/terminal_style.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/text_table.h"

namespace vantrell::shell {

namespace {

/// What is set and found for a provider without a program; null for the others.
Json serviceOf(const RuntimeSurvey& survey, AgentProvider provider) {
  if (provider == AgentProvider::tasklet) {
    const auto& problem = survey.webhook().problem();
    return JsonObject{{"webhookIsSet", survey.webhook().isConfigured()},
                      {"problem", problem.empty() ? Json() : Json(problem)}};
  }
  if (provider != AgentProvider::local) return {};
  const auto url = LocalRuntimeService::configuredURL(survey.defaults());
  const auto& status = survey.localRuntime();
  const auto* connection = status.connection();
  return JsonObject{
      {"kind", rawText(LocalRuntimeService::configuredKind(survey.defaults()))},
      {"url", url.empty() ? Json() : Json(url)},
      {"found", connection ? Json(connection->name) : Json()},
      {"baseURL", connection ? Json(connection->baseURL.text()) : Json()},
      {"models", connection ? Json(static_cast<std::int64_t>(connection->models.size())) : Json()},
      {"problem", status.reason() ? Json(*status.reason()) : Json()}};
}

auto styleOf(views::ProviderMark mark) {
  if (mark == views::ProviderMark::ready) return &TerminalStyle::green;
  return mark == views::ProviderMark::absent ? &TerminalStyle::dim : &TerminalStyle::yellow;
}

/// One table, with what to do about each provider below its row: as a column it would leave no room
/// for the rest.
std::string tableOf(const std::vector<views::ProviderRow>& rows, const TerminalStyle& style) {
  TextTable table({{.heading = ""},
                   {.heading = "ID"},
                   {.heading = "PROVIDER", .leavesAt = 1},
                   {.heading = "VERSION", .least = 8},
                   {.heading = "SIGN-IN"},
                   {.heading = "PROGRAM", .least = 12, .cutsFront = true}});
  for (const auto& row : rows) {
    const auto place = row.isThere ? nullptr : &TerminalStyle::dim;
    table.add({{std::string(views::sign(row.mark)), styleOf(row.mark)},
               {std::string(rawText(row.provider)), &TerminalStyle::bold},
               {std::string(row.label)},
               {row.version},
               {row.signIn},
               {row.place, place}});
  }
  const std::string lines = table.text(style, columnsForTables(STDOUT_FILENO));
  const auto tableLines = text::split(lines, '\n');
  std::string text(tableLines.front());
  text += '\n';
  for (std::size_t i = 0; i < rows.size(); ++i) {
    text.append(tableLines[i + 1]).push_back('\n');
    for (const auto& remark : rows[i].remarks) text += "     " + style.dim(remark) + "\n";
  }
  return text +
         "\n"
         "A program that lies elsewhere: vantrell settings kimi-path /path/to/kimi\n"
         "A model server elsewhere: vantrell settings local-runtime custom, and "
         "local-url ADDRESS\n";
}

JsonObject jsonOf(const RuntimeSurvey& survey, AgentProvider provider) {
  const auto& status = survey.status(provider);
  const auto step = views::nextStep(survey.facts(provider));
  const auto orNull = [](const auto& value) { return value ? Json(*value) : Json(); };
  JsonObject next{{"kind", rawText(step.kind)}, {"text", step.words}};
  if (!step.command.empty()) next.set("command", step.command);
  JsonObject object{
      {"id", rawText(provider)},
      {"label", ProviderRegistry::descriptor(provider).label},
      {"installed", status.isInstalled()},
      {"path", orNull(status.isInstalled() ? std::optional(status.path) : std::nullopt)},
      {"version", orNull(status.version)},
      {"signedIn", orNull(status.signedIn)},
      {"answered", orNull(status.isInstalled() ? std::optional(!status.hasRunOut) : std::nullopt)},
      {"unusableCustomPath", orNull(survey.unusableCustomPath(provider))},
      {"service", serviceOf(survey, provider)},
      {"next", std::move(next)}};
  return object;
}

int run(const CommandArguments& arguments, const Environment& environment) {
  RuntimeSurvey survey;
  survey.askAll(environment);
  StandardOutput output;
  if (arguments.has(jsonOption.name)) {
    Json::Array all;
    for (const auto provider : allAgentProviders) all.emplace_back(jsonOf(survey, provider));
    output.write(asTyped(json::writePrettySorted(Json(std::move(all)))) + "\n");
    return output.finish(exitStatus::completed);
  }
  std::vector<views::ProviderRow> rows;
  for (const auto provider : allAgentProviders) {
    rows.push_back(views::providerRow(survey.facts(provider)));
  }
  output.write(asTyped(tableOf(rows, TerminalStyle::of(STDOUT_FILENO, environment))));
  return output.finish(exitStatus::completed);
}

}  // namespace

const Command providersCommand{
    .name = "providers",
    .summary = "which agents are installed and signed in, and what to do next",
    .options = std::span(&jsonOption, 1),
    .introduction =
        "Looks for the program of every provider and asks it for its version and whether it is\n"
        "signed in. Install commands are the vendors' own; they are shown for you to run. For\n"
        "local models it looks for a server, and for Tasklet whether a webhook is stored.",
    .run = run,
};

}  // namespace vantrell::shell
