#include "shell/terminal/runtime_survey.h"

#include "engine/providers/model_discovery.h"
#include "engine/providers/reported_models.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/codex/codex_discovery.h"
#include "runtimes/local/local_runtime_service.h"
#include "shell/terminal/stored_orchestration.h"

namespace vantrell::shell {

namespace {

/// Settings that cannot be read are reported, and keep nothing from being looked at.
std::unique_ptr<UserDefaults> storedOrNone(CommandContext& context) {
  auto stored = VantrellApp::defaultsForReading();
  if (stored) return std::move(*stored);
  context.complain("The paths that are set for programs are not used now. " + stored.error());
  return UserDefaults::inMemory();
}

}  // namespace

std::shared_ptr<RuntimeSurvey> RuntimeSurvey::of(CommandContext& context) {
  auto survey = std::make_shared<RuntimeSurvey>(context);
  context.keep(survey);
  return survey;
}

RuntimeSurvey::RuntimeSurvey(CommandContext& context)
    : context_(context),
      defaults_(storedOrNone(context)),
      programs_(
          VantrellApp::programsOfThisSession(context.main, context.pool(), nullptr, *defaults_)),
      changes_(context.main),
      runtimes_(std::make_shared<InstalledRuntimes>(changes_, programs_)),
      secrets_(UserFolders{}.orOwn().secretStore(), context.main, context.pool()),
      services_({.main = context.main,
                 .pool = context.pool(),
                 .defaults = *defaults_,
                 .secrets = secrets_}),
      observation_(changes_.observe([this](const ChangeBatch&) {
        if (answered_) whenAnswered(std::exchange(answered_, nullptr));
      })) {}

void RuntimeSurvey::whenAnswered(std::function<void()> then) {
  if (runtimes_->isAsking()) {
    answered_ = std::move(then);
  } else {
    context_.main.post(context_.whileAlive(std::move(then)));
  }
}

void RuntimeSurvey::askAll(std::function<void()> then) {
  context_.console.status("Waiting for the agents' programs to answer ...");
  runtimes_->refreshAll();
  services_.prepare(AgentProvider::local, context_.whileAlive([this, then = std::move(then)] {
    services_.prepare(AgentProvider::tasklet,
                      context_.whileAlive([this, then] { whenAnswered(then); }));
  }));
}

void RuntimeSurvey::ask(AgentProvider provider, std::function<void()> then) {
  runtimes_->refresh(provider);
  whenAnswered(std::move(then));
}

void RuntimeSurvey::find(AgentProvider provider,
                         std::function<void(std::optional<std::string>)> then) {
  const auto look = [this, provider] {
    return findRuntime(provider, programs_.customExecutable(provider));
  };
  context_.withUserPath(
      *runtimes_, [look] { return look().has_value(); },
      [look, then = std::move(then)] { then(look()); });
}

views::ProviderFacts RuntimeSurvey::facts(AgentProvider provider) const {
  const auto custom = programs_.customExecutable(provider);
  const std::string path = files::expandingTilde(text::trimmed(custom.value_or("")));
  const bool isUnusable = !path.empty() && !files::isExecutable(path);
  return {.provider = provider,
          .status = runtimes_->status(provider),
          .unusableCustomPath = isUnusable ? std::optional(path) : std::nullopt,
          .glmModel = OpenCodeLocator::configuredModel(*defaults_),
          .local = services_.localRuntimeStatus(),
          .hasHarness = runtimes_->installStatus().isInstalled(),
          .localKind = LocalRuntimeService::configuredKind(*defaults_),
          .localURL = LocalRuntimeService::configuredURL(*defaults_),
          .hasWebhook = services_.webhook().isConfigured(),
          .webhookProblem = services_.webhook().problem()};
}

void RuntimeSurvey::askModels(AgentProvider provider, std::function<void(Models)> then) {
  const auto tell = [this, provider, then = std::move(then)](Models models) {
    if (models.options.empty()) addKnownModels(provider, models);
    then(std::move(models));
  };
  if (provider == AgentProvider::local) {
    return services_.prepare(provider, context_.whileAlive([this, tell] {
      tell({.areReported = services_.localRuntimeStatus().connection() != nullptr});
    }));
  }
  if (!tellsModels(provider)) return tell({});
  find(provider, [this, provider, tell](const auto& program) {
    const auto told = context_.whileAlive([tell](DiscoveredModels found) {
      // The provider's own choice alone is what is known when the program did not tell.
      Models models{.usage = std::move(found.usage), .areReported = found.models.size() > 1};
      if (models.areReported) models.options = std::move(found.models);
      tell(std::move(models));
    });
    const bool isAsked =
        program && discoverModels(provider, context_.main, programs_, files::homeFolder(), told);
    if (!isAsked) tell({});
  });
}

/// Those of an earlier report, else those that are built in.
void RuntimeSurvey::addKnownModels(AgentProvider provider, Models& models) {
  auto orchestration = storedOrchestration();
  ReportedModels earlier(orchestration, nullptr);
  earlier.load();
  if (const auto* reported = earlier.find(provider)) {
    models.options = *reported;
    models.areReported = true;
    return;
  }
  ProviderConnectorContext context;
  context.workspacePath = files::homeFolder();
  if (provider == AgentProvider::local) context.localRuntimeStatus = services_.localRuntimeStatus();
  models.options = services_.connector(provider).modelOptions(context);
}

void RuntimeSurvey::resetCodexUsage(
    std::function<void(std::expected<std::string, AgentError>)> then) {
  find(AgentProvider::codex, [this, then = std::move(then)](const auto& program) {
    if (!program) return then(std::unexpected(AgentError("The Codex CLI is not installed.")));
    CodexDiscovery::consumeUsageReset({.executable = *program,
                                       .workspacePath = files::homeFolder(),
                                       .environment = CodexLocator::subscriptionEnvironment()},
                                      context_.main, context_.pool(), then);
  });
}

}  // namespace vantrell::shell
