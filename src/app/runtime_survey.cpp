#include "app/runtime_survey.h"

#include "app/user_state.h"
#include "app/vantrell_app.h"
#include "engine/providers/model_discovery.h"
#include "engine/providers/reported_models.h"
#include "platform/files/files.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "records/stores/orchestration_store.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/codex/codex_discovery.h"
#include "runtimes/local/local_runtime_service.h"

namespace vantrell {

namespace {

/// Settings that cannot be read are reported, and keep nothing from being looked at.
std::unique_ptr<UserDefaults> storedOrNone(std::optional<std::string>& problem) {
  auto stored = VantrellApp::defaultsForReading();
  if (stored) return std::move(*stored);
  problem = "The paths that are set for programs are not used now. " + stored.error();
  return UserDefaults::inMemory();
}

}  // namespace

RuntimeSurvey::RuntimeSurvey(MainQueue& main, BackgroundPool& pool, bool hasUsersPath)
    : main_(main),
      pool_(pool),
      hasUsersPath_(hasUsersPath),
      defaults_(storedOrNone(problem_)),
      programs_(VantrellApp::programsOfThisSession(main, pool, nullptr, *defaults_)),
      changes_(main),
      runtimes_(std::make_shared<InstalledRuntimes>(changes_, programs_)),
      secrets_(UserFolders{}.orOwn().secretStore(), main, pool),
      services_({.main = main, .pool = pool, .defaults = *defaults_, .secrets = secrets_}),
      observation_(changes_.observe([this](const ChangeBatch&) {
        if (answered_) whenAnswered(std::exchange(answered_, nullptr));
      })) {}

void RuntimeSurvey::whenAnswered(std::function<void()> then) {
  if (runtimes_->isAsking()) {
    answered_ = std::move(then);
  } else {
    main_.post(weakly(this, [then = std::move(then)](RuntimeSurvey&) { then(); }));
  }
}

void RuntimeSurvey::askAll(std::function<void()> then) {
  runtimes_->refreshAll();
  services_.prepare(AgentProvider::local, weakly(this, [then = std::move(then)](auto& self) {
                      self.services_.prepare(
                          AgentProvider::tasklet,
                          weakly(&self, [then](auto& same) { same.whenAnswered(then); }));
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
  if (hasUsersPath_ && look()) return then(look());
  runtimes_->readUserPath(
      weakly(this, [look, then = std::move(then)](RuntimeSurvey&) { then(look()); }));
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
    return services_.prepare(
        provider, weakly(this, [tell](RuntimeSurvey& self) {
          tell({.areReported = self.services_.localRuntimeStatus().connection() != nullptr});
        }));
  }
  if (!tellsModels(provider)) return tell({});
  find(provider, [this, provider, tell](const auto& program) {
    const auto told = weakly(this, [tell](RuntimeSurvey&, DiscoveredModels found) {
      // The provider's own choice alone is what is known when the program did not tell.
      Models models{.usage = std::move(found.usage), .areReported = found.models.size() > 1};
      if (models.areReported) models.options = std::move(found.models);
      tell(std::move(models));
    });
    const bool isAsked =
        program && discoverModels(provider, main_, programs_, files::homeFolder(), told);
    if (!isAsked) tell({});
  });
}

/// Those of an earlier report, else those that are built in.
void RuntimeSurvey::addKnownModels(AgentProvider provider, Models& models) {
  auto orchestration = UserFolders{}.orOwn().orchestrationForReading();
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
                                      main_, pool_, then);
  });
}

}  // namespace vantrell
