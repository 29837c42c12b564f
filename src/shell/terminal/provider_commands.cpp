// Who works: providers, login, usage.
#include <csignal>
#include <fmt/format.h>

#include "engine/turns/usage_reset.h"
#include "platform/process/foreground_program.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "records/stores/usage_ledger.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/catalog/runtime_login.h"
#include "runtimes/local/local_runtime_service.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/provider_names.h"
#include "shell/terminal/runtime_survey.h"
#include "shell/terminal/stored_orchestration.h"
#include "shell/terminal/text_table.h"
#include "views/run_rows.h"
#include "views/usage_rows.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption listOptions[] = {{"--json", "", "for scripts: all of it as JSON"}};

template <typename Value>
Json orNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json();
}

std::shared_ptr<RuntimeSurvey> surveyFor(CommandContext& context) {
  auto survey = std::make_shared<RuntimeSurvey>(context);
  context.keep(survey);
  return survey;
}

// ---- providers ----------------------------------------------------------------------------------

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
std::string tableOf(const std::vector<views::ProviderRow>& rows, const Console& console) {
  const auto& style = console.style();
  TextTable table({{.heading = ""},
                   {.heading = "ID"},
                   {.heading = "PROVIDER", .leavesAt = 1},
                   {.heading = "VERSION", .least = 8},
                   {.heading = "SIGN-IN"},
                   {.heading = "PROGRAM", .least = 12, .cutsFront = true}});
  for (const auto& row : rows) {
    table.add({{std::string(views::sign(row.mark)), styleOf(row.mark)},
               {std::string(rawText(row.provider)), &TerminalStyle::bold},
               {std::string(row.label)},
               {row.version},
               {row.signIn},
               {row.place, row.isThere ? nullptr : &TerminalStyle::dim}});
  }
  const std::string lines = table.text(style, console.columns());
  const auto tableLines = text::split(lines, '\n');
  std::string text(tableLines.front());
  text += '\n';
  for (std::size_t i = 0; i < rows.size(); ++i) {
    text.append(tableLines[i + 1]).push_back('\n');
    for (const auto& remark : rows[i].remarks) text += "     " + style.dim(remark) + "\n";
  }
  return text +
         "\n"
         "A program in another place: vantrell settings kimi-path /path/to/kimi\n"
         "A model server elsewhere: vantrell settings local-runtime custom, and "
         "local-url ADDRESS\n";
}

JsonObject jsonOf(const RuntimeSurvey& survey, AgentProvider provider) {
  const auto& status = survey.status(provider);
  const bool isThere = status.isInstalled();
  const auto step = views::nextStep(survey.facts(provider));
  JsonObject next{{"kind", rawText(step.kind)}, {"text", step.words}};
  if (!step.command.empty()) next.set("command", step.command);
  return JsonObject{{"id", rawText(provider)},
                    {"label", ProviderRegistry::descriptor(provider).label},
                    {"installed", isThere},
                    {"path", isThere ? Json(status.path) : Json()},
                    {"version", orNull(status.version)},
                    {"signedIn", orNull(status.signedIn)},
                    {"answered", isThere ? Json(!status.hasRunOut) : Json()},
                    {"unusableCustomPath", orNull(survey.unusableCustomPath(provider))},
                    {"service", serviceOf(survey, provider)},
                    {"next", std::move(next)}};
}

void listProviders(CommandContext& context) {
  const auto survey = surveyFor(context);
  survey->askAll([&context, survey = survey.get()] {
    Json::Array all;
    std::vector<views::ProviderRow> rows;
    for (const auto provider : allAgentProviders) {
      all.emplace_back(jsonOf(*survey, provider));
      rows.push_back(views::providerRow(survey->facts(provider)));
    }
    context.console.say(context.isJson() ? json::writePrettySorted(Json(std::move(all))) + "\n"
                                         : tableOf(rows, context.console));
    context.finish(exitStatus::completed);
  });
}

// ---- login --------------------------------------------------------------------------------------

void tellResult(CommandContext& context, RuntimeSurvey& survey, AgentProvider provider) {
  survey.ask(provider, [&context, &survey, provider] {
    const auto label = ProviderRegistry::descriptor(provider).label;
    const auto signedIn = survey.status(provider).signedIn;
    context.console.say(
        !signedIn   ? fmt::format("The log-in of {} ended without an error.\n", label)
        : *signedIn ? fmt::format("{} is signed in.\n", label)
                    : fmt::format("The log-in of {} ended without an error, but it says that it is "
                                  "not signed in.\n",
                                  label));
    context.finish(exitStatus::completed);
  });
}

/// In the terminal of this process, which is the caller's: a log-in is never handed over.
void login(CommandContext& context) {
  const auto named = readProgramOwner(context.word(0));
  if (!named) return context.misused(named.error());
  const auto survey = surveyFor(context);
  survey->find(*named, [&context, survey = survey.get(), provider = *named](const auto& program) {
    if (!program) {
      return context.fail(
          fmt::format("{} is not installed, or not where it is looked for. To install it: {}\n"
                      "If it is in another place: vantrell settings {}-path /path/to/{}",
                      ProviderRegistry::descriptor(provider).label, installCommand(provider),
                      programName(provider), programName(provider)));
    }
    const RuntimeLoginFlow& flow = *loginFlow(provider);
    const std::string command = loginCommandLine(flow, *program);
    if (flow.wantsTerminal && !terminal::isTerminal(context.caller.input)) {
      return context.fail(fmt::format(
          "This log-in asks questions, and there is no terminal. Type in one: {}", command));
    }
    context.console.say(fmt::format("Running {}\n", command));
    context.console.whenWritten([&context, survey, provider, &flow, path = *program] {
      // Device codes and questions are the user's to see and to answer.
      const auto ended = runInForeground(path, flow.arguments, runtimeEnvironment(provider));
      if (!ended) return context.fail(ended.error().description);
      if (ended->code() == 0) return tellResult(context, *survey, provider);
      context.complain(flow.failure);
      context.finish(ended->code() == 128 + SIGINT ? exitStatus::stopped : exitStatus::failed);
    });
  });
}

// ---- usage --------------------------------------------------------------------------------------

std::string tableOf(const std::vector<views::UsageRow>& rows, const Console& console) {
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
  return table.text(console.style(), console.columns());
}

Json dateOrNull(const std::optional<Date>& date) {
  return date ? Json(iso8601(*date)) : Json();
}

Json asJson(const views::UsageRow& row) {
  Json now, last;
  if (row.now) {
    now = JsonObject{{"usedPercent", orNull(row.now->primaryUsedPercent)},
                     {"longerUsedPercent", orNull(row.now->secondaryUsedPercent)},
                     {"exhausted", row.now->exhausted},
                     {"resetsAt", dateOrNull(row.now->resetsAt)},
                     {"plan", orNull(row.now->planType)},
                     {"resetCredits", orNull(row.now->manualResetCredits)}};
  }
  if (row.last) {
    last = JsonObject{{"usedPercent", orNull(row.last->usedPercent)},
                      {"exhausted", row.last->exhausted},
                      {"resetsAt", dateOrNull(row.last->resetAt)},
                      {"recordedAt", iso8601(row.last->recordedAt)}};
  }
  return JsonObject{{"id", rawText(row.provider)}, {"now", now}, {"lastReported", last}};
}

void resetNow(CommandContext& context, RuntimeSurvey& survey) {
  survey.resetCodexUsage([&context, &survey](const auto& result) {
    if (const auto problem = usageResetMessage(result)) return context.fail(*problem);
    survey.askModels(AgentProvider::codex, [&context](const RuntimeSurvey::Models& models) {
      context.console.say(fmt::format(
          "Codex has reset the allowance.{}\n",
          models.usage ? " Now: " + views::wordsFor(*models.usage) + "." : std::string()));
      context.finish(exitStatus::completed);
    });
  });
}

/// Spends a credit, if the user at the terminal agrees.
void reset(CommandContext& context) {
  if (!context.canAsk()) {
    return context.misused(
        "A reset spends a credit for good, so it takes a person at a terminal who agrees. Nothing "
        "was done.");
  }
  const auto survey = surveyFor(context);
  survey->askModels(
      AgentProvider::codex, [&context, survey = survey.get()](const RuntimeSurvey::Models& models) {
        const auto& usage = models.usage;
        if (!usage || usage->manualResetCredits.value_or(0) < 1) {
          return context.fail(usage ? *usageResetMessage("noCredit")
                                    : "Codex did not tell what it knows of credits. \"vantrell "
                                      "providers\" says whether it is installed and signed in.");
        }
        context.confirm(fmt::format("Codex: {}. Spend a reset credit? It is gone then.",
                                    views::wordsFor(*usage)),
                        [&context, survey] { resetNow(context, *survey); });
      });
}

void showUsage(CommandContext& context) {
  std::optional<AgentProvider> named;
  if (!context.arguments.words.empty()) {
    const auto provider = readProvider(context.word(0));
    if (!provider) return context.misused(provider.error());
    named = *provider;
  }
  if (context.arguments.has("--reset")) {
    if (named && *named != AgentProvider::codex) {
      return context.misused(fmt::format("{} has no reset credits. Only Codex has.",
                                         ProviderRegistry::descriptor(*named).label));
    }
    if (context.isJson()) {
      return context.misused("--reset asks a person. Leave out --json.");
    }
    return reset(context);
  }
  const auto tell = [&context, named](const RuntimeSurvey::Models& codex) {
    auto store = storedOrchestration();
    const auto ledger = UsageLedger::load(store);
    std::vector<views::UsageRow> rows;
    Json::Array all;
    for (const auto provider : allAgentProviders) {
      if (named && *named != provider) continue;
      const bool isKnown = provider == AgentProvider::codex && codex.usage;
      rows.push_back(
          views::usageRow(provider, isKnown ? &*codex.usage : nullptr, ledger, context.main.now()));
      all.push_back(asJson(rows.back()));
    }
    context.console.write(context.isJson() ? json::writePrettySorted(Json(std::move(all))) + "\n"
                                           : tableOf(rows, context.console));
    context.finish(exitStatus::completed);
  };
  if (named && *named != AgentProvider::codex) return tell({});
  surveyFor(context)->askModels(AgentProvider::codex, tell);
}

constexpr CommandOption usageOptions[] = {
    {"--reset", "", "spend a reset credit of Codex; asks at the terminal"},
    {"--json", "", "for scripts: all of it as JSON"},
};

constexpr Command commands[] = {
    {.name = "providers",
     .summary = "which agents are installed and signed in, and what to do next",
     .options = listOptions,
     .begin = listProviders,
     .introduction =
         "Looks for the program of every provider and asks it for its version and whether it is\n"
         "signed in. Install commands are the vendors' own; they are shown for you to run. For\n"
         "local models it looks for a server, and for Tasklet whether a webhook is stored."},
    {.name = "login",
     .parameters = "ID",
     .summary = "sign in to a provider, with the provider's own program",
     .minWords = 1,
     .maxWords = 1,
     .begin = login,
     .introduction =
         "Runs the log-in of the provider's program here, so that you see its codes and links and\n"
         "answer its questions. ID is grok, codex, kimi, glm or claude. Vantrell itself never "
         "sees\n"
         "a password or a key.",
     .closing = "Exit status: 0 it ended without an error, 1 failed, 2 wrong usage, 130 stopped."},
    {.name = "usage",
     .parameters = "[ID]",
     .summary = "how much of each provider's allowance is used",
     .options = usageOptions,
     .maxWords = 1,
     .begin = showUsage,
     .introduction =
         "Shows what is known of the providers' allowances, of all or of one. Codex is asked;\n"
         "the others report nothing, or only during a task. What was reported last in a task is\n"
         "shown with its date.",
     .closing =
         "Exit status: 0 done, 1 failed, or no credit to spend, 2 wrong usage, 130 not confirmed.\n"
         "\n"
         "Examples:\n"
         "  vantrell usage\n"
         "  vantrell usage codex --json | jq '.[0].now.usedPercent'\n"
         "  vantrell usage --reset"},
};

}  // namespace

std::span<const Command> providerCommands() {
  return commands;
}

}  // namespace vantrell::shell
