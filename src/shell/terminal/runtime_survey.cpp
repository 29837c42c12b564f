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
  if (servicesAsked_ > 0 || runtimes_->isAsking()) {
    answered_ = std::move(then);
  } else {
    waitTimer_.cancel();
    context_.main.post(context_.whileAlive(std::move(then)));
  }
}

void RuntimeSurvey::askAll(std::function<void()> then) {
  for (const auto provider : {AgentProvider::local, AgentProvider::tasklet}) {
    ++servicesAsked_;
    services_.prepare(provider, context_.whileAlive([this] {
      --servicesAsked_;
      changes_.mark(topics::runtimes);
    }));
  }
  if (context_.console.errorStyle().isLive()) {
    waitTimer_ = context_.main.after(std::chrono::seconds(1), [&console = context_.console] {
      console.prompt("Waiting for the agents' programs to answer ...\n");
    });
  }
  runtimes_->refreshAll();
  whenAnswered(std::move(then));
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
  if (provider == AgentProvider::local) {
    return services_.prepare(
        provider, context_.whileAlive([this, provider, then = std::move(then)] {
          const bool areReported = services_.localRuntimeStatus().connection() != nullptr;
          modelsKnown(provider, {.areReported = areReported}, then);
        }));
  }
  if (!tellsModels(provider)) return modelsKnown(provider, {}, then);
  find(provider, [this, provider, then = std::move(then)](const auto& program) {
    const auto told = context_.whileAlive([this, provider, then](DiscoveredModels found) {
      // The provider's own choice alone is what is known when the program did not tell.
      Models models{.usage = std::move(found.usage), .areReported = found.models.size() > 1};
      if (models.areReported) models.options = std::move(found.models);
      modelsKnown(provider, std::move(models), then);
    });
    const bool isAsked =
        program && discoverModels(provider, context_.main, programs_, files::homeFolder(), told);
    if (!isAsked) modelsKnown(provider, {}, then);
  });
}

void RuntimeSurvey::modelsKnown(AgentProvider provider, Models models,
                                const std::function<void(Models)>& then) {
  auto orchestration = storedOrchestration();
  ReportedModels earlier(orchestration, nullptr);
  earlier.load();
  const auto* reported = earlier.find(provider);
  if (models.options.empty() && reported) {
    models.options = *reported;
    models.areReported = true;
  } else if (models.options.empty()) {
    ProviderConnectorContext context;
    context.workspacePath = files::homeFolder();
    if (provider == AgentProvider::local) {
      context.localRuntimeStatus = services_.localRuntimeStatus();
    }
    models.options = services_.connector(provider).modelOptions(context);
  }
  then(std::move(models));
}

void RuntimeSurvey::resetCodexUsage(
    std::function<void(std::expected<std::string, AgentError>)> then) {
  find(AgentProvider::codex, [this, then = std::move(then)](const auto& program) {
    if (!program) return then(std::unexpected(AgentError("The Codex CLI is not installed.")));
    CodexDiscovery::consumeUsageReset({.executable = *program,
                                       .workspacePath = files::homeFolder(),
                                       .environment = CodexLocator::subscriptionEnvironment()},
                                      context_.main, context_.pool(), context_.whileAlive(then));
  });
}

}  // namespace vantrell::shell
