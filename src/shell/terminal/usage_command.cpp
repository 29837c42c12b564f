#include <fmt/format.h>
#include <unistd.h>

#include "app/user_state.h"
#include "engine/turns/usage_reset.h"
#include "platform/values/json.h"
#include "records/stores/orchestration_store.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/full_access_confirmation.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/provider_names.h"
#include "shell/terminal/runtime_survey.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/task_change.h"
#include "shell/terminal/text_table.h"
#include "views/run_rows.h"
#include "views/usage_rows.h"

namespace vantrell::shell {

namespace {

std::vector<UsageLedgerEvent> storedLedger() {
  OrchestrationStore store(UserFolders{}.orOwn().support, Date::current, [](const auto&) {});
  return UsageLedger::load(store);
}

std::string tableOf(const std::vector<views::UsageRow>& rows, const TerminalStyle& style) {
  TextTable table({{.heading = "ID"},
                   {.heading = "PROVIDER", .leavesAt = 2},
                   {.heading = "NOW", .least = 12},
                   {.heading = "RESETS", .leavesAt = 1},
                   {.heading = "LAST REPORTED", .least = 12, .leavesAt = 3}});
  for (const auto& row : rows) {
    const auto look = !row.now             ? &TerminalStyle::dim
                      : row.now->exhausted ? &TerminalStyle::yellow
                                           : nullptr;
    table.add({{std::string(rawText(row.provider)), &TerminalStyle::bold},
               {std::string(row.label)},
               {row.nowWords, look},
               {row.now && row.now->resetsAt ? views::minuteOf(*row.now->resetsAt) : "-"},
               {row.last ? row.lastWords : "-", &TerminalStyle::dim}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

Json dateOrNull(const std::optional<Date>& date) {
  return date ? Json(iso8601(*date)) : Json();
}

Json asJson(const views::UsageRow& row) {
  const auto orNull = [](const auto& value) { return value ? Json(*value) : Json(); };
  Json now;
  if (row.now) {
    now = JsonObject{{"usedPercent", orNull(row.now->primaryUsedPercent)},
                     {"longerUsedPercent", orNull(row.now->secondaryUsedPercent)},
                     {"exhausted", row.now->exhausted},
                     {"resetsAt", dateOrNull(row.now->resetsAt)},
                     {"plan", orNull(row.now->planType)},
                     {"resetCredits", orNull(row.now->manualResetCredits)}};
  }
  Json last;
  if (row.last) {
    last = JsonObject{{"usedPercent", orNull(row.last->usedPercent)},
                      {"exhausted", row.last->exhausted},
                      {"resetsAt", dateOrNull(row.last->resetAt)},
                      {"recordedAt", iso8601(row.last->recordedAt)}};
  }
  return JsonObject{{"id", rawText(row.provider)}, {"now", now}, {"lastReported", last}};
}

/// Spends a credit, if a person at the terminal wants that.
std::expected<int, UsageError> reset(RuntimeSurvey& survey, const Person& person) {
  if (!person.isPresent) {
    return usageError(
        "A reset spends a credit for good, so it takes a person at a terminal who agrees. Nothing "
        "was done.");
  }
  const auto usage = survey.askModels(AgentProvider::codex).usage;
  const auto credits = usage ? usage->manualResetCredits.value_or(0) : 0;
  if (credits < 1) {
    complain(usage ? *usageResetMessage("noCredit")
                   : "Codex did not tell what it knows of credits. \"vantrell providers\" says "
                     "whether it is installed and signed in.");
    return exitStatus::failed;
  }
  const auto mayDo =
      confirmed({},
                fmt::format("Codex: {}. Spend a reset credit? It cannot be had back.",
                            views::wordsFor(*usage)),
                person);
  if (!mayDo) return std::unexpected(mayDo.error());
  if (!*mayDo) return exitStatus::stopped;
  const auto problem = usageResetMessage(survey.resetCodexUsage());
  if (problem) {
    complain(*problem);
    return exitStatus::failed;
  }
  const auto fresh = survey.askModels(AgentProvider::codex).usage;
  tell(fmt::format("Codex has reset the allowance. {}\n",
                   fresh ? "Now: " + views::wordsFor(*fresh) + "." : ""));
  return exitStatus::completed;
}

int run(const CommandArguments& arguments, const Environment& environment) {
  std::optional<AgentProvider> named;
  if (!arguments.words.empty()) {
    const auto provider = readProvider(arguments.words.front());
    if (!provider) return refuse(provider.error());
    named = *provider;
  }
  RuntimeSurvey survey;
  if (arguments.has("--reset")) {
    if (named && *named != AgentProvider::codex) {
      return refuse({fmt::format("{} has no reset credits. Only Codex has.",
                                 ProviderRegistry::descriptor(*named).label)});
    }
    if (arguments.has(jsonOption.name)) return refuse({"--reset asks a person. Leave out --json."});
    const auto status = reset(survey, Person::atTheTerminal());
    return status ? *status : refuse(status.error());
  }
  const auto ledger = storedLedger();
  const Date today = Date::current();
  std::vector<views::UsageRow> rows;
  for (const auto provider : allAgentProviders) {
    if (named && *named != provider) continue;
    std::optional<ProviderUsage> now;
    if (provider == AgentProvider::codex) now = survey.askModels(provider).usage;
    rows.push_back(views::usageRow(provider, now ? &*now : nullptr, ledger, today));
  }
  StandardOutput output;
  if (arguments.has(jsonOption.name)) {
    Json::Array all;
    for (const auto& row : rows) all.push_back(asJson(row));
    output.write(json::writePrettySorted(Json(std::move(all))) + "\n");
    return output.finish(exitStatus::completed);
  }
  output.write(tableOf(rows, TerminalStyle::of(STDOUT_FILENO, environment)));
  return output.finish(exitStatus::completed);
}

constexpr CommandOption options[] = {
    {"--reset", "", "spend a reset credit of Codex; asks at the terminal"},
    jsonOption,
};

}  // namespace

const Command usageCommand{
    .name = "usage",
    .parameters = "[ID]",
    .summary = "how much of each provider's allowance is used",
    .options = options,
    .mostWords = 1,
    .introduction =
        "Shows what is known of the providers' allowances, of all or of one. Codex is asked;\n"
        "the others tell nothing, or only during a task. What was reported last in a task\n"
        "stands beside it, with its date.",
    .closing =
        "Exit status: 0 done, 1 failed, or no credit to spend, 2 wrong usage, 130 not wanted\n"
        "after all.\n"
        "\n"
        "Examples:\n"
        "  vantrell usage\n"
        "  vantrell usage codex --json | jq '.[0].now.usedPercent'\n"
        "  vantrell usage --reset",
    .run = run,
};

}  // namespace vantrell::shell
