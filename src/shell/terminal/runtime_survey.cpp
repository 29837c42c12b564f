#include "shell/terminal/runtime_survey.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

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

/// A wait that is over sooner needs no word.
constexpr std::chrono::seconds momentToWait{1};

/// Settings that cannot be read are reported, and keep nothing from being looked at.
std::unique_ptr<UserDefaults> storedOrNone(CommandContext& context) {
  auto stored = VantrellApp::defaultsForReading();
  if (stored) return std::move(*stored);
  context.complain(
      fmt::format("The paths that are set for programs are not used now. {}", stored.error()));
  return UserDefaults::inMemory();
}

}  // namespace

RuntimeSurvey::RuntimeSurvey(CommandContext& context)
    : context_(context),
      defaults_(storedOrNone(context)),
      programs_(VantrellApp::programsOfThisSession(context.main, pool_, nullptr,
                                                   executableChoice({}, *defaults_))),
      changes_(context.main),
      runtimes_(std::make_shared<InstalledRuntimes>(changes_, programs_)),
      secrets_(UserFolders{}.orOwn().secretStore(), context.main, pool_),
      services_({.main = context.main,
                 .pool = pool_,
                 .defaults = *defaults_,
                 .secrets = secrets_,
                 .customExecutable = programs_.customExecutable}),
      observation_(changes_.observe([this](const ChangeBatch&) {
        if (!answered_) return;
        if (isWaitShown_) showWait();
        if (isWaiting()) return;
        waitTimer_.cancel();
        if (std::exchange(isWaitShown_, false)) context_.console.prompt("\r\x1b[K");
        context_.main.post(std::exchange(answered_, nullptr));
      })) {}

void RuntimeSurvey::whenAnswered(std::function<void()> then) {
  if (!isWaiting()) return then();
  answered_ = std::move(then);
}

void RuntimeSurvey::showWait() {
  std::vector<std::string> names;
  if (runtimes_->isReadingUserPath()) names.emplace_back("the PATH of your shell");
  for (const auto provider : allAgentProviders) {
    if (runtimes_->isAsking(provider)) names.emplace_back(programName(provider));
  }
  names.insert(names.end(), waitsFor_.begin(), waitsFor_.end());
  isWaitShown_ = true;
  context_.console.prompt("\r\x1b[K" + context_.console.errorStyle().dim(fmt::format(
                                           "Waiting for {} …", fmt::join(names, ", "))));
}

void RuntimeSurvey::askAll(std::function<void()> then) {
  if (context_.console.errorStyle().isLive()) {
    waitTimer_ = context_.main.after(momentToWait, [this] { showWait(); });
  }
  const std::pair<AgentProvider, std::string> services[] = {
      {AgentProvider::local, "model servers"}, {AgentProvider::tasklet, "the keyring"}};
  for (const auto& [provider, name] : services) {
    waitsFor_.insert(name);
    services_.prepare(provider, [this, name] {
      waitsFor_.erase(waitsFor_.find(name));
      changes_.mark(topics::runtimes);
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

std::optional<std::string> RuntimeSurvey::unusableCustomPath(AgentProvider provider) const {
  const auto custom = programs_.customExecutable(provider);
  if (!custom) return std::nullopt;
  std::string path = files::expandingTilde(text::trimmed(*custom));
  if (path.empty() || files::isExecutable(path)) return std::nullopt;
  return path;
}

views::ProviderFacts RuntimeSurvey::facts(AgentProvider provider) const {
  return {.provider = provider,
          .status = status(provider),
          .unusableCustomPath = unusableCustomPath(provider),
          .glmModel = OpenCodeLocator::configuredModel(*defaults_),
          .local = localRuntime(),
          .hasHarness = status(AgentProvider::grok).isInstalled(),
          .localKind = LocalRuntimeService::configuredKind(*defaults_),
          .localURL = LocalRuntimeService::configuredURL(*defaults_),
          .hasWebhook = webhook().isConfigured(),
          .webhookProblem = webhook().problem()};
}

void RuntimeSurvey::askModels(AgentProvider provider, std::function<void(Models)> then) {
  if (provider == AgentProvider::local) {
    return services_.prepare(provider, [this, provider, then = std::move(then)] {
      modelsKnown(provider, {.areReported = localRuntime().connection() != nullptr}, then);
    });
  }
  if (!tellsModels(provider)) return modelsKnown(provider, {}, then);
  find(provider, [this, provider, then = std::move(then)](const auto& program) {
    const auto told = [this, provider, then](DiscoveredModels found) {
      // The provider's own choice alone is what is known when the program did not tell.
      Models models{.usage = std::move(found.usage), .areReported = found.models.size() > 1};
      if (models.areReported) models.options = std::move(found.models);
      modelsKnown(provider, std::move(models), then);
    };
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
    if (provider == AgentProvider::local) context.localRuntimeStatus = localRuntime();
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
                                      context_.main, pool_, then);
  });
}

}  // namespace vantrell::shell
