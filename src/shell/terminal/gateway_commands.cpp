// `vantrell gateway`: turns the Personal Gateway on and off, and manages its keys and jobs.
#include <charconv>
#include <fmt/format.h>

#include "engine/core/workspace_tree.h"
#include "gateway/gateway_module.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "views/labels.h"

namespace vantrell::shell {

namespace {

/// Takes the state and ends with what `work` returns.
void withGateway(CommandContext& context, const std::function<Outcome(GatewayModule&)>& work) {
  context.open({}, [&](VantrellApp& app) { context.finish(work(app.gateway())); });
}

// ---- state --------------------------------------------------------------------------------------

// The words for GatewayServer::Phase.
constexpr std::string_view phases[] = {"stopped", "starting", "listening", "failed"};

Outcome showState(CommandContext& context, GatewayModule& module) {
  const auto& configuration = module.keys.configuration();
  const PersonalGateway& gateway = module.gateway;
  const std::string base = gateway.baseURL();
  const auto& failure = gateway.lastError();
  const auto phase = phases[static_cast<std::size_t>(gateway.state().phase)];
  const JsonObject all{{"enabled", configuration.enabled},
                       {"state", phase},
                       {"error", orNull(failure)},
                       {"listenMode", rawText(configuration.listenMode)},
                       {"port", configuration.port},
                       {"baseURL", base},
                       {"siteKeys", static_cast<std::int64_t>(configuration.siteKeys.size())}};
  std::string state = "off";
  if (configuration.enabled) {
    state = failure               ? "on, but it cannot listen: " + onOneLine(*failure)
            : gateway.isServing() ? fmt::format("on, {}", phase)
                                  : "on; it listens while \"vantrell serve\" runs";
  }
  const auto text = fmt::format(
      "Gateway   {1}\nListens   {2}, port {3}\nKeys      {4}\n"
      "\nJobs      {0}/v1\n"
      "          ANTHROPIC_BASE_URL={0}/anthropic\n"
      "          ANTHROPIC_AUTH_TOKEN=SITE-KEY\n"
      "          OPENAI_BASE_URL={0}/openai/v1   (or {0}/xai/v1)\n\n"
      "These routes require a site key that includes Local. Vendor model names fall back to your "
      "loaded local model, and every response identifies the real backend in X-Vantrell-* "
      "headers.\n",
      base, state, rawText(configuration.listenMode), configuration.port,
      configuration.siteKeys.size());
  return context.report(all, context.console.asTyped(text));
}

void showGateway(CommandContext& context) {
  withGateway(context, [&](GatewayModule& module) { return showState(context, module); });
}

/// The choice is stored though the gateway may not be able to listen so.
void change(CommandContext& context, const std::function<Result<>(GatewayModule&)>& choose) {
  withGateway(context, [&](GatewayModule& module) -> Outcome {
    const auto done = choose(module);
    return done ? showState(context, module) : context.refused(done.error());
  });
}

template <bool isOn>
void turn(CommandContext& context) {
  change(context, [](GatewayModule& module) { return module.gateway.setEnabled(isOn); });
}

void setListenMode(CommandContext& context) {
  const auto mode = fromRawText<GatewayListenMode>(context.word(0));
  if (!mode) {
    return context.misused(notAmong("The mode", context.word(0), choicesOf<GatewayListenMode>));
  }
  change(context, [mode = *mode](GatewayModule& module) -> Result<> {
    return module.gateway.setListenMode(mode);
  });
}

void setPort(CommandContext& context) {
  const std::string& word = context.word(0);
  std::int64_t port = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), port);
  if (error != std::errc() || end != word.data() + word.size()) {
    return context.misused(fmt::format("\"{}\" is not a port number.", onOneLine(word)));
  }
  change(context, [port](GatewayModule& module) { return module.gateway.setPort(port); });
}

// ---- keys ---------------------------------------------------------------------------------------

JsonObject asJson(const SiteKey& key) {
  Json::Array projects, providers;
  for (const auto& path : key.allowedWorkspacePaths) projects.push_back(path);
  for (const auto provider : key.allowedProviders) providers.push_back(rawText(provider));
  return {{"id", key.id.text()},
          {"name", key.name},
          {"projects", std::move(projects)},
          {"providers", std::move(providers)},
          {"maximumMode", rawText(key.maximumPermissionMode)},
          {"createdAt", key.createdAt.secondsSinceReference()},
          {"lastUsedAt", key.lastUsedAt ? Json(key.lastUsedAt->secondsSinceReference()) : Json()}};
}

void listKeys(CommandContext& context) {
  withGateway(context, [&](GatewayModule& module) {
    const auto cells = [&](const SiteKey& key) -> std::vector<TableCell> {
      std::string providers;
      for (const auto provider : key.allowedProviders) {
        providers += (providers.empty() ? "" : ", ") + std::string(rawText(provider));
      }
      return {idCell(key.id),
              {key.name},
              {std::to_string(key.allowedWorkspacePaths.size())},
              {providers},
              {std::string(rawText(key.maximumPermissionMode))},
              {key.lastUsedAt ? ago(*key.lastUsedAt, context.main.now()) : "never", look::dim}};
    };
    return context.showList(
        module.keys.configuration().siteKeys,
        TextTable({{"ID"}, {"NAME", 12}, {"PROJECTS"}, {"PROVIDERS", 12}, {"UP TO"}, {"USED"}}),
        [](const SiteKey& key) { return asJson(key); }, cells,
        "No site keys. To create one: vantrell gateway keys create NAME --project DIR --provider "
        "ID\n");
  });
}

constexpr CommandOption keyProjectOption{"--project", "PROJECT",
                                         "a project that its jobs may work in; several times"};
constexpr CommandOption keyProviderOption{"--provider", "ID",
                                          "a provider that its jobs may use; several times",
                                          choicesOf<AgentProvider>};
constexpr CommandOption keyModeOption{
    "--mode", "MODE", "the highest mode of its jobs (default: ask)", choicesOf<GrokPermissionMode>};

void createNamedKey(CommandContext& context) {
  withGateway(context, [&](GatewayModule& module) -> Outcome {
    const auto& workspaces = context.model().tree().workspaces();
    SiteKeys::Scope scope;
    for (const auto& word : context.arguments.values(keyProjectOption.name)) {
      const auto project = findProject(workspaces, word, context.caller.folder);
      if (!project) return std::unexpected(project.error());
      scope.workspacePaths.insert(workspaceOf(workspaces, *project).path);
    }
    for (const auto& word : context.arguments.values(keyProviderOption.name)) {
      scope.providers.insert(*fromRawText<AgentProvider>(word));
    }
    scope.maximumPermissionMode = context.arguments.choice<GrokPermissionMode>(keyModeOption.name)
                                      .value_or(GrokPermissionMode::ask);
    const auto created = module.gateway.createKey(context.word(0), scope);
    if (!created) return context.refused(created.error());
    context.report(JsonObject{{"id", created->id.text()}, {"key", created->secret}},
                   fmt::format("{}\n", created->secret));
    context.complain(
        "This is the only time that the key is shown. Keep it in a backend, never in a page.");
    return exitStatus::completed;
  });
}

void createKey(CommandContext& context) {
  const bool isFree =
      context.arguments.value(keyModeOption.name) == rawText(GrokPermissionMode::fullAccess);
  context.confirmFullAccess(isFree, [&context] { createNamedKey(context); });
}

void revokeKey(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) {
    GatewayModule& module = app.gateway();
    const auto key =
        findByID(module.keys.configuration().siteKeys, context.word(0), "site key", "gateway keys");
    if (!key) return context.misused(key.error());
    const auto unfinished = module.jobs->unfinishedCount((*key)->id);
    const auto question = fmt::format(
        "Revoke the key \"{}\"{}?", onOneLine((*key)->name),
        unfinished > 0 ? fmt::format(" with {} jobs that have not ended", unfinished) : "");
    context.confirm(question, [&context, &module, id = (*key)->id, name = (*key)->name] {
      context.finish(context.after(module.jobs->revokeKey(id), [&] {
        context.tell(fmt::format("{} is revoked.\n", onOneLine(name)));
      }));
    });
  });
}

// ---- jobs ---------------------------------------------------------------------------------------

Json asJson(const GatewayApproval& asked) {
  Json::Array options;
  for (const auto& option : asked.options) {
    options.push_back(JsonObject{{"id", option.id}, {"name", option.name}, {"kind", option.kind}});
  }
  return JsonObject{
      {"title", asked.title}, {"detail", asked.detail}, {"options", std::move(options)}};
}

JsonObject asJson(const GatewayJob& job) {
  JsonObject all{{"id", job.id.text()},
                 {"siteKeyID", job.siteKeyID.text()},
                 {"project", job.workspaceName},
                 {"provider", rawText(job.provider)},
                 {"mode", rawText(job.permissionMode)},
                 {"status", rawText(job.status)},
                 {"prompt", job.prompt},
                 {"output", job.output},
                 {"error", orNull(job.error)},
                 {"createdAt", job.createdAt.secondsSinceReference()}};
  if (job.pendingApproval) all.set("approval", asJson(*job.pendingApproval));
  return all;
}

void listJobs(CommandContext& context) {
  withGateway(context, [&](GatewayModule& module) {
    const auto cells = [&](const GatewayJobs::Job& job) -> std::vector<TableCell> {
      const auto status = job->status;
      return {idCell(job->id),
              {job->workspaceName},
              {std::string(rawText(job->provider))},
              {std::string(rawText(status)), status == GatewayJobStatus::failed ? look::red
                                             : status == GatewayJobStatus::waitingForApproval
                                                 ? look::yellow
                                                 : nullptr},
              {ago(job->createdAt, context.main.now()), look::dim},
              {job->prompt}};
    };
    return context.showList(
        module.jobs->jobs(),
        TextTable({{"ID"}, {"PROJECT", 8}, {"WITH"}, {"STATUS"}, {"CAME"}, {"PROMPT", 20}}),
        [](const GatewayJobs::Job& job) { return asJson(*job); }, cells, "No jobs.\n");
  });
}

/// The job that the first word names.
std::expected<GatewayJobs::Job, UsageError> findJob(const CommandContext& context,
                                                    const GatewayModule& module) {
  std::vector<GatewayJobs::Job> found;
  for (const auto& job : module.jobs->jobs()) {
    if (beginsWith(job->id, context.word(0))) found.push_back(job);
  }
  if (found.size() == 1) return found.front();
  return std::unexpected(notExactlyOne(found.size(), "job", context.word(0), "gateway jobs"));
}

std::string wordsOf(const GatewayJob& job) {
  std::string text =
      fmt::format("{}  {} in {} with {}\n\n{}\n", shortID(job.id), rawText(job.status),
                  onOneLine(job.workspaceName), rawText(job.provider), job.prompt);
  if (!job.output.empty()) text += fmt::format("\n{}\n", job.output);
  if (job.error) text += fmt::format("\nError: {}\n", *job.error);
  if (job.pendingApproval) {
    text +=
        fmt::format("\nIt asks: {}\n{}\n", job.pendingApproval->title, job.pendingApproval->detail);
    for (const auto& option : job.pendingApproval->options) {
      text += fmt::format("  {}  {}\n", option.id, option.name);
    }
    text += fmt::format("To answer: vantrell gateway jobs answer {} OPTION\n", shortID(job.id));
  }
  return text;
}

void showJob(CommandContext& context) {
  withGateway(context, [&](GatewayModule& module) -> Outcome {
    const auto job = findJob(context, module);
    if (!job) return std::unexpected(job.error());
    return context.report(asJson(**job), sanitized(wordsOf(**job)));
  });
}

void changeJob(
    CommandContext& context,
    const std::function<GatewayResult<GatewayJobs::Job>(GatewayJobs&, const Uuid&)>& work) {
  withGateway(context, [&](GatewayModule& module) -> Outcome {
    const auto job = findJob(context, module);
    if (!job) return std::unexpected(job.error());
    const auto changed = work(*module.jobs, (*job)->id);
    if (!changed) return context.refused(Refusal{changed.error().message});
    return context.report(asJson(**changed), fmt::format("{}  {}\n", shortID((*changed)->id),
                                                         rawText((*changed)->status)));
  });
}

void cancelJob(CommandContext& context) {
  changeJob(context, [](GatewayJobs& jobs, const Uuid& id) { return jobs.cancel(id); });
}

void answerJob(CommandContext& context) {
  changeJob(context, [&](GatewayJobs& jobs, const Uuid& id) {
    return jobs.answerApproval(id, context.word(1));
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption createOptions[] = {keyProjectOption, keyProviderOption, keyModeOption,
                                           jsonOption};
constexpr Command keyCommands[] = {
    {"create", "NAME", "create one; it is shown once", createOptions, createKey},
    {"revoke", "ID", "revoke one; its jobs that have not ended are removed", onlyYes, revokeKey},
};
constexpr Command jobCommands[] = {
    {"show", "ID", "one job with what its agent said and asks", onlyJson, showJob},
    {"cancel", "ID", "cancel one that has not ended", onlyJson, cancelJob},
    {"answer", "ID OPTION", "answer what its agent asks", onlyJson, answerJob},
};
constexpr Command gatewaySubcommands[] = {
    {"on", "", "turn it on", onlyJson, turn<true>},
    {"off", "", "turn it off; a job at work goes on", onlyJson, turn<false>},
    {"listen", "MODE", "localhost, or private_network for all addresses", onlyJson, setListenMode},
    {"port", "N", "the port, 43767 by default", onlyJson, setPort},
    {"keys", "", "the site keys, which say who may call it and how far", onlyJson, listKeys, "", "",
     keyCommands},
    {"jobs", "", "the jobs that callers gave it", onlyJson, listJobs, "", "", jobCommands},
};

constexpr Command commands[] = {
    {"gateway", "", "let website backends and tools send jobs over HTTP", onlyJson, showGateway,
     "The Personal Gateway is an HTTP server for website backends and tools of yours. It\n"
     "listens while \"vantrell serve\" runs, and is off until it is turned on. A caller needs\n"
     "a site key. docs/gateway.md describes the requests.",
     "Examples:\n"
     "  vantrell gateway on\n"
     "  vantrell gateway keys create website --project ~/site --provider codex\n"
     "  vantrell gateway jobs",
     gatewaySubcommands},
};

}  // namespace

std::span<const Command> gatewayCommands() {
  return commands;
}

}  // namespace vantrell::shell
