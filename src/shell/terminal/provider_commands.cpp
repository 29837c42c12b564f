// Who works: providers, login, usage.
#include <csignal>
#include <fmt/format.h>

#include "app/runtime_survey.h"
#include "app/user_state.h"
#include "engine/turns/usage_reset.h"
#include "platform/process/foreground_program.h"
#include "records/stores/orchestration_store.h"
#include "records/stores/usage_ledger.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/catalog/runtime_login.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "views/usage_rows.h"

namespace vantrell::shell {

namespace {

// ---- providers ----------------------------------------------------------------------------------

Json textOrNull(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

/// What is set and found for a provider without a program; null for the others.
Json serviceOf(const views::ProviderFacts& facts) {
  if (facts.provider == AgentProvider::tasklet) {
    return JsonObject{{"webhookIsSet", facts.hasWebhook},
                      {"problem", textOrNull(facts.webhookProblem)}};
  }
  if (facts.provider != AgentProvider::local) return {};
  const auto* found = facts.local.connection();
  return JsonObject{
      {"kind", rawText(facts.localKind)},
      {"url", textOrNull(facts.localURL)},
      {"found", found ? Json(found->name) : Json()},
      {"baseURL", found ? Json(found->baseURL.text()) : Json()},
      {"models", found ? Json(static_cast<std::int64_t>(found->models.size())) : Json()},
      {"problem", orNull(facts.local.reason())}};
}

Json asJson(const views::ProviderFacts& facts) {
  const auto& status = facts.status;
  const bool isThere = status.isInstalled();
  const auto step = views::nextStep(facts);
  const JsonObject next{
      {"kind", rawText(step.kind)}, {"text", step.words}, {"command", textOrNull(step.command)}};
  return JsonObject{{"id", rawText(facts.provider)},
                    {"label", ProviderRegistry::descriptor(facts.provider).label},
                    {"installed", isThere},
                    {"path", isThere ? Json(status.path) : Json()},
                    {"version", orNull(status.version)},
                    {"signedIn", orNull(status.signedIn)},
                    {"answered", isThere ? Json(!status.hasRunOut) : Json()},
                    {"unusableCustomPath", orNull(facts.unusableCustomPath)},
                    {"service", serviceOf(facts)},
                    {"next", withoutNulls(next)}};
}

/// A table, and below it what there is to say of each provider.
void listProviders(CommandContext& context) {
  auto& survey = context.survey();
  context.console.status("Waiting for the agents' programs to answer ...");
  survey.askAll(context.whileAlive([&context, &survey] {
    TextTable table(
        {{""}, {"ID"}, {"VERSION", 8}, {"SIGN-IN"}, {"PROGRAM", 12, true}, {"PROVIDER"}});
    Json::Array all;
    std::string remarks;
    for (const auto provider : allAgentProviders) {
      const auto facts = survey.facts(provider);
      all.push_back(asJson(facts));
      const auto row = views::providerRow(facts);
      const auto markLook = row.mark == views::ProviderMark::ready    ? look::green
                            : row.mark == views::ProviderMark::absent ? look::dim
                                                                      : look::yellow;
      const std::string id(rawText(provider));
      table.add({{std::string(views::sign(row.mark)), markLook},
                 {id, look::bold},
                 {row.version},
                 {row.signIn},
                 {row.place, row.isThere ? nullptr : look::dim},
                 {std::string(row.label)}});
      for (const auto& remark : row.remarks) remarks += fmt::format("{:<7}  {}\n", id, remark);
    }
    remarks +=
        "\n"
        "A program in another place: vantrell settings kimi-path /path/to/kimi\n"
        "A model server elsewhere: vantrell settings local-runtime custom, and local-url ADDRESS\n";
    context.finish(context.report(json::writePrettySorted(Json(std::move(all))),
                                  table.text(context.style(), context.console.columns()) + "\n" +
                                      context.console.asTyped(remarks)));
  }));
}

// ---- login --------------------------------------------------------------------------------------

/// After the log-in of the program, which says by its status how it ended.
void tellSignIn(CommandContext& context, RuntimeSurvey& survey, AgentProvider provider, int code) {
  if (code != 0) {
    context.complain(loginFlow(provider)->failure);
    return context.finish(code == 128 + SIGINT ? exitStatus::stopped : exitStatus::failed);
  }
  survey.ask(provider, context.whileAlive([&context, &survey, provider] {
    const auto signedIn = survey.facts(provider).status.signedIn;
    const auto label = ProviderRegistry::descriptor(provider).label;
    context.finish(
        context.tell(signedIn.value_or(false)
                         ? fmt::format("{} is signed in.\n", label)
                         : fmt::format("The log-in of {} ended without an error{}.\n", label,
                                       signedIn ? ", but it is not signed in" : "")));
  }));
}

/// The program's own log-in, in the terminal of this process: the user sees its codes and links and
/// answers its questions.
void runLogin(CommandContext& context, RuntimeSurvey& survey, AgentProvider provider,
              const std::string& program) {
  const auto ended = std::make_shared<std::expected<ExitStatus, ProcessError>>();
  context.inBackground(
      [ended, program, provider, environment = runtimeEnvironment(provider)] {
        *ended = runInForeground(program, loginFlow(provider)->arguments, environment);
      },
      [&context, &survey, provider, ended] {
        if (!*ended) return context.fail(ended->error().description);
        tellSignIn(context, survey, provider, (*ended)->code());
      });
}

void login(CommandContext& context) {
  const auto named = readProgramOwner(context.word(0));
  if (!named) return context.misused(named.error());
  auto& survey = context.survey();
  const auto logIn = [&context, &survey, provider = *named](const auto& program) {
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
      return context.fail("This log-in asks questions, and there is no terminal. Type in one: " +
                          command);
    }
    context.console.write(fmt::format("Running {}\n", command));
    context.console.whenWritten([&context, &survey, provider, path = *program] {
      runLogin(context, survey, provider, path);
    });
  };
  survey.find(*named, context.whileAlive(logIn));
}

// ---- usage --------------------------------------------------------------------------------------

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

std::vector<TableCell> asCells(const views::UsageRow& row) {
  const auto nowLook = !row.now ? look::dim : row.now->exhausted ? look::yellow : nullptr;
  return {{std::string(rawText(row.provider)), look::bold},
          {row.nowWords, nowLook},
          {row.now && row.now->resetsAt ? views::minuteOf(*row.now->resetsAt) : "-"},
          {row.last ? row.lastWords : "-", look::dim},
          {std::string(row.label)}};
}

/// Of all providers, or of the one that was named; `codex` is what its program told.
void showUsage(CommandContext& context, std::optional<AgentProvider> named,
               const std::optional<ProviderUsage>& codex) {
  auto store = UserFolders{}.orOwn().orchestrationForReading();
  const auto ledger = UsageLedger::load(store);
  TextTable table({{"ID"}, {"NOW", 12}, {"RESETS"}, {"LAST REPORTED", 12}, {"PROVIDER"}});
  Json::Array all;
  for (const auto provider : allAgentProviders) {
    if (named && *named != provider) continue;
    const bool isKnown = provider == AgentProvider::codex && codex;
    const auto row =
        views::usageRow(provider, isKnown ? &*codex : nullptr, ledger, context.main.now());
    table.add(asCells(row));
    all.push_back(asJson(row));
  }
  context.finish(context.report(json::writePrettySorted(Json(std::move(all))),
                                table.text(context.style(), context.console.columns())));
}

/// Spends a credit, if the user at the terminal agrees.
void reset(CommandContext& context) {
  if (!context.canAsk()) {
    return context.misused(
        "A reset spends a credit for good, so it takes a person at a terminal who agrees. Nothing "
        "was done.");
  }
  auto& survey = context.survey();
  const auto resetNow = [&context, &survey] {
    survey.resetCodexUsage(context.whileAlive([&context](const auto& result) {
      if (const auto problem = usageResetMessage(result)) return context.fail(*problem);
      context.finish(context.tell("Codex has reset the allowance.\n"));
    }));
  };
  const auto ask = [&context, resetNow](const RuntimeSurvey::Models& told) {
    if (!told.usage) {
      return context.fail(
          "Codex did not tell what it knows of credits. \"vantrell providers\" says whether it is "
          "installed and signed in.");
    }
    if (told.usage->manualResetCredits.value_or(0) < 1) {
      return context.fail(*usageResetMessage("noCredit"));
    }
    context.confirm(fmt::format("Codex: {}. Spend a reset credit? It is gone then.",
                                views::wordsFor(*told.usage)),
                    resetNow);
  };
  survey.askModels(AgentProvider::codex, context.whileAlive(ask));
}

void usage(CommandContext& context) {
  std::optional<AgentProvider> named;
  if (!context.arguments.words.empty()) {
    const auto provider = readProvider(context.word(0));
    if (!provider) return context.misused(provider.error());
    named = *provider;
  }
  if (context.arguments.has("--reset")) {
    if (named.value_or(AgentProvider::codex) != AgentProvider::codex || context.isJson()) {
      return context.misused(
          "--reset asks a person about the credits of Codex. Only Codex has "
          "any. Leave out --json and other providers.");
    }
    return reset(context);
  }
  if (named && *named != AgentProvider::codex) return showUsage(context, named, {});
  const auto show = [&context, named](const RuntimeSurvey::Models& told) {
    showUsage(context, named, told.usage);
  };
  context.survey().askModels(AgentProvider::codex, context.whileAlive(show));
}

constexpr CommandOption usageOptions[] = {
    {"--reset", "", "spend a reset credit of Codex; asks at the terminal"}, wholeJsonOption};

constexpr Command commands[] = {
    {"providers", "", "which agents are installed and signed in, and what to do next",
     onlyWholeJson, listProviders,
     "Looks for the program of every provider and asks it for its version and whether it is\n"
     "signed in. Install commands are the vendors' own; they are shown for you to run. For\n"
     "local models it looks for a server, and for Tasklet whether a webhook is stored."},
    {"login",
     "PROVIDER",
     "sign in to a provider, with the provider's own program",
     noOptions,
     login,
     "Runs the log-in of the provider's program here: you see its codes and links and answer\n"
     "its questions. Vantrell itself never sees a password or a key. local and tasklet have\n"
     "no log-in.",
     "Exit status: 0 it ended without an error, 1 failed, 2 wrong usage, 130 stopped.",
     {},
     true},
    {"usage", "[PROVIDER]", "how much of each provider's allowance is used", usageOptions, usage,
     "Shows what is known of the providers' allowances, of all or of one. Codex is asked;\n"
     "the others report nothing, or only during a task.",
     "Exit status: 0 done, 1 failed, or no credit to spend, 2 wrong usage, 130 not\n"
     "confirmed."},
};

}  // namespace

std::span<const Command> providerCommands() {
  return commands;
}

}  // namespace vantrell::shell
